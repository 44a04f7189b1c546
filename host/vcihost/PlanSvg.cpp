#include "vcihost/PlanSvg.h"

#include "vcihost/CanChannel.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include <fmt/format.h>

namespace vcihost {

namespace {

// All in pixels.
constexpr double kLeft = 120; // room for the lanes' names
constexpr double kWidth = 1000;
constexpr double kRight = 20;
constexpr double kTop = 30;
constexpr double kLaneHeight = 60;
constexpr double kBoxTop = 24; // in the lane; the labels stand above
constexpr double kBoxHeight = 24;
constexpr double kNarrowest = 1; // a frame is seen in the longest window as well
constexpr double kCharWidth = 7;
constexpr double kAxisHeight = 34;
constexpr double kLegendWidth = 125; // of one entry: the longest identifier fits
constexpr double kLegendHeight = 20;
constexpr size_t kLegendColumns = 8;

constexpr int kMostTicks = 10;
constexpr double kNanosecondsPerMs = 1e6;

// Readable on light and on dark ground; text and lines follow the reader's scheme.
constexpr const char* kColours[] = {"#4c8bd6", "#d08b2e", "#4fa25c", "#b56bb8",
                                    "#3fa7a0", "#c9685f", "#8f8f3a", "#7d7fd0"};
constexpr char kStyle[] =
    "<style>text{font:12px monospace;fill:#333}line{stroke:#888}.hit{stroke:#e00000;"
    "stroke-width:2}.hits{fill:#e00000}@media(prefers-color-scheme:dark){text{fill:#ccc}"
    ".hits{fill:#ff5050}.hit{stroke:#ff5050}}</style>\n";

// One frame in a lane, in nanoseconds from the beginning of the window.
struct Box {
    int64_t start;
    int64_t end;
    size_t task; // its number in the plan
    bool hit;    // meets another frame, or had to wait for one
};

class Picture {
  public:
    Picture(const CanPlan& plan, size_t lanes)
        : plan_(plan),
          window_(static_cast<int64_t>(plan.windowUs) * 1000),
          axis_(kTop + static_cast<double>(lanes) * kLaneHeight + 8) {
        const size_t rows = (plan.tasks.size() + kLegendColumns - 1) / kLegendColumns;
        const double height = axis_ + kAxisHeight + static_cast<double>(rows) * kLegendHeight;
        text_ = fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0:g} {1:g}\" "
                            "width=\"{0:g}\" height=\"{1:g}\">\n",
                            kLeft + kWidth + kRight, height);
        text_ += kStyle;
        text_ += fmt::format("<text x=\"{:g}\" y=\"18\">one window of {:g} ms</text>\n", kLeft,
                             static_cast<double>(window_) / kNanosecondsPerMs);
    }

    void AddLane(const std::string& name, const std::vector<Box>& boxes) {
        const double top = kTop + lanes_ * kLaneHeight;
        ++lanes_;
        text_ += fmt::format("<text x=\"4\" y=\"{:g}\">{}</text>\n", top + kBoxTop + 16, name);
        const double bottom = top + kBoxTop + kBoxHeight;
        text_ += fmt::format("<line x1=\"{:g}\" y1=\"{:g}\" x2=\"{:g}\" y2=\"{:g}\"/>\n", kLeft,
                             bottom, kLeft + kWidth, bottom);
        double labelEnd = 0;
        for (const Box& box : boxes) {
            AddBox(box, top, labelEnd);
        }
    }

    std::string Finish() {
        AddAxis();
        AddLegend();
        return text_ + "</svg>\n";
    }

  private:
    double X(int64_t time) const {
        return kLeft + kWidth * static_cast<double>(time) / static_cast<double>(window_);
    }

    void AddBox(const Box& box, double top, double& labelEnd) {
        const std::string label = CanIdText(plan_.tasks[box.task].task.frame);
        const double x = X(box.start);
        const double width = std::max(kNarrowest, X(std::min(box.end, window_)) - x);
        text_ +=
            fmt::format("<rect x=\"{:.2f}\" y=\"{:g}\" width=\"{:.2f}\" height=\"{:g}\" "
                        "fill=\"{}\"{}><title>{} {:.3f} to {:.3f} ms</title></rect>\n",
                        x, top + kBoxTop, width, kBoxHeight,
                        kColours[box.task % std::size(kColours)], box.hit ? " class=\"hit\"" : "",
                        label, static_cast<double>(box.start) / kNanosecondsPerMs,
                        static_cast<double>(box.end) / kNanosecondsPerMs);
        if (box.hit) {
            text_ += fmt::format("<path class=\"hits\" d=\"M{:.2f} {:g}l-4 7h8z\"/>\n",
                                 x + width / 2, top + kBoxTop + kBoxHeight + 1);
        }
        if (x >= labelEnd) { // no label over another
            text_ += fmt::format("<text x=\"{:.2f}\" y=\"{:g}\">{}</text>\n", x, top + kBoxTop - 5,
                                 label);
            labelEnd = x + kCharWidth * static_cast<double>(label.size() + 1);
        }
    }

    void AddAxis() {
        const double ms = static_cast<double>(window_) / kNanosecondsPerMs;
        // Steps of 1, 2 or 5 times a power of ten.
        double step = std::pow(10, std::floor(std::log10(ms / kMostTicks)));
        for (const double factor : {2.0, 2.5, 2.0}) {
            if (ms / step > kMostTicks) {
                step *= factor;
            }
        }
        for (int i = 0; i * step <= ms + step / 1000; ++i) {
            const double x = kLeft + kWidth * i * step / ms;
            text_ += fmt::format("<line x1=\"{0:.2f}\" y1=\"{1:g}\" x2=\"{0:.2f}\" y2=\"{2:g}\"/>"
                                 "<text x=\"{0:.2f}\" y=\"{3:g}\" text-anchor=\"middle\">{4:g}"
                                 "</text>\n",
                                 x, axis_ - 5, axis_, axis_ + 14, i * step);
        }
        text_ += fmt::format("<line x1=\"{0:g}\" y1=\"{2:g}\" x2=\"{1:g}\" y2=\"{2:g}\"/>"
                             "<text x=\"4\" y=\"{3:g}\">time, ms</text>\n",
                             kLeft, kLeft + kWidth, axis_, axis_ + 14);
    }

    void AddLegend() {
        for (size_t i = 0; i < plan_.tasks.size(); ++i) {
            const size_t column = i % kLegendColumns;
            const size_t row = i / kLegendColumns;
            const double x = kLeft + kLegendWidth * static_cast<double>(column);
            const double y = axis_ + kAxisHeight + kLegendHeight * static_cast<double>(row);
            text_ += fmt::format("<rect x=\"{:g}\" y=\"{:g}\" width=\"10\" height=\"10\" "
                                 "fill=\"{}\"/><text x=\"{:g}\" y=\"{:g}\">{}</text>\n",
                                 x, y - 10, kColours[i % std::size(kColours)], x + 15, y,
                                 CanIdText(plan_.tasks[i].task.frame));
        }
    }

    const CanPlan& plan_;
    int64_t window_;
    double axis_; // where it stands
    int lanes_ = 0;
    std::string text_;
};

// The frames of a window as planned. All channels share the planner's timeline, so that frames of
// two channels count as meeting as well.
std::vector<Box> PlannedBoxes(const CanPlan& plan) {
    std::vector<Box> boxes;
    for (size_t i = 0; i < plan.tasks.size(); ++i) {
        const PlannedTask& task = plan.tasks[i];
        for (uint64_t start = task.offsetUs; start < plan.windowUs; start += task.periodUs) {
            boxes.push_back({static_cast<int64_t>(start * 1000),
                             static_cast<int64_t>((start + task.durationUs) * 1000), i, false});
        }
    }
    std::stable_sort(boxes.begin(), boxes.end(),
                     [](const Box& a, const Box& b) { return a.start < b.start; });
    for (size_t i = 0; i < boxes.size(); ++i) {
        for (size_t j = i + 1; j < boxes.size() && boxes[j].start < boxes[i].end; ++j) {
            boxes[i].hit = true;
            boxes[j].hit = true;
        }
    }
    return boxes;
}

// When the first window begins in which every task that was seen has started.
int64_t MeasuredWindow(const CanPlan& plan, const BusTrace& trace, int64_t base) {
    int64_t started = base;
    for (const PlannedTask& planned : plan.tasks) {
        const auto first =
            std::find_if(trace.entries.begin(), trace.entries.end(),
                         [&](const auto& entry) { return IsOfTask(entry, planned.task); });
        if (first != trace.entries.end()) {
            started = std::max(started, first->start);
        }
    }
    const auto window = static_cast<int64_t>(plan.windowUs) * 1000;
    return base + (started - base + window - 1) / window * window;
}

std::vector<Box> MeasuredBoxes(const CanPlan& plan, const BusTrace& trace, int64_t begin) {
    const auto window = static_cast<int64_t>(plan.windowUs) * 1000;
    std::vector<Box> boxes;
    for (size_t at = 0; at < trace.entries.size(); ++at) {
        const BusTrace::Entry& entry = trace.entries[at];
        if (entry.start < begin || entry.start >= begin + window) {
            continue;
        }
        for (size_t i = 0; i < plan.tasks.size(); ++i) {
            if (IsOfTask(entry, plan.tasks[i].task)) {
                boxes.push_back({entry.start - begin, entry.end - begin, i, trace.HadToWait(at)});
            }
        }
    }
    return boxes;
}

std::vector<Box> OfChannel(const CanPlan& plan, const std::vector<Box>& boxes, uint8_t channel) {
    std::vector<Box> chosen;
    std::copy_if(boxes.begin(), boxes.end(), std::back_inserter(chosen),
                 [&](const Box& box) { return plan.tasks[box.task].task.channel == channel; });
    return chosen;
}

} // namespace

std::string PlanSvg(const CanPlan& plan, const BusTrace* trace, const PlanReceipt* receipt) {
    const auto channels = plan.Channels();
    const bool measured = trace != nullptr && receipt != nullptr;
    Picture picture(plan, channels.size() * (measured ? 2 : 1));
    const auto planned = PlannedBoxes(plan);
    std::vector<Box> seen;
    if (measured && receipt->base) {
        seen = MeasuredBoxes(plan, *trace, MeasuredWindow(plan, *trace, *receipt->base));
    }
    for (const uint8_t channel : channels) {
        picture.AddLane(CanChannelName(channel) + " planned", OfChannel(plan, planned, channel));
        if (measured) {
            picture.AddLane(CanChannelName(channel) + " measured", OfChannel(plan, seen, channel));
        }
    }
    return picture.Finish();
}

} // namespace vcihost
