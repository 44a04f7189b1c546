#include "vcictl/ReplayOutput.h"

#include "vcictl/Command.h"
#include "vcictl/JsonText.h"
#include "vcictl/Measured.h"
#include "vcihost/CanChannel.h"
#include "vcihost/Notation.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace {

constexpr char kRow[] = "{:<4} {:<11} {:>8} {:>8} {:>6} {:>10} {:>10} {:>10} {:>10} {:>10} {:>10}";

constexpr uint64_t kNsPerUs = 1000;

void PrintCount(Output& out, uint64_t count, const char* one, const char* many, const char* what) {
    if (count > 0) {
        out.Line(fmt::format("{} {}", CountText(count, one, many), what));
    }
}

void PrintReceipt(Output& out, const vcihost::ReplayReceipt& receipt) {
    out.Line("times in us: late against the file, counted from the first frame, below 0 too early; "
             "spacing is");
    out.Line("how far the time since the frame before on the channel is off; - is not measured");
    out.Line(fmt::format(kRow, "", "frame", "due", "sent", "lost", "earliest", "median", "p99",
                         "latest", "spc p99", "spc max"));
    for (const vcihost::ReplayFrameReceipt& frame : receipt.Frames()) {
        out.Line(fmt::format(kRow, vcihost::CanChannelName(frame.channel),
                             vcihost::CanIdText(frame.frame), frame.due, frame.sent, frame.Lost(),
                             Microseconds(frame.late.earliest), Microseconds(frame.late.median),
                             Microseconds(frame.late.p99), Microseconds(frame.late.latest),
                             Microseconds(frame.spacingP99), Microseconds(frame.spacingMax)));
    }
    const auto ran = receipt.Ran();
    const auto planned = receipt.Planned();
    out.Line(fmt::format(
        "{} due, {} sent, {} lost; {}", CountText(receipt.TotalDue(), "frame", "frames"),
        receipt.TotalSent(), receipt.TotalDue() - receipt.TotalSent(),
        ran && planned ? fmt::format("{} of the file took {}", vcihost::SecondsText(*planned),
                                     vcihost::SecondsText(*ran))
                       : "time not measured"));
    PrintCount(out, receipt.Others(), "frame", "frames",
               "sent on these channels by something else meanwhile");
}

} // namespace

void PrintReplayPlan(Output& out, const vcihost::Trace& trace, const vcihost::ReplayPlan& plan) {
    PrintCount(out, trace.errors, "error frame", "error frames", "in the file, not played");
    PrintCount(out, trace.comments, "line", "lines", "without a frame in the file");
    PrintCount(out, trace.others, "packet", "packets", "of another kind in the file, not played");
    PrintCount(out, plan.unmapped, "frame", "frames",
               "of interfaces without a channel, not played");
    PrintCount(out, plan.backward, "frame", "frames",
               "older in the file than the one before, sent right behind it");
    if (plan.skipped > 0) {
        out.Line(fmt::format("{} skipped: all that follows comes earlier, in the end by {}",
                             CountText(plan.skipped, "interval", "intervals"),
                             vcihost::SecondsText(plan.skippedTime * kNsPerUs)));
    }
}

void PrintReplay(Output& out, const Replayer& replayer, bool receipt) {
    if (receipt) {
        PrintReceipt(out, replayer.Receipt());
    }
    const auto ran = static_cast<uint64_t>(replayer.Ran().count());
    out.Line(fmt::format("{} given to the device in {}, {}",
                         CountText(replayer.Given(), "frame", "frames"), vcihost::SecondsText(ran),
                         replayer.HasEnded() ? "ended" : "cancelled before the end"));
}

void PrintReplayJson(Output& out, const vcihost::Trace& trace, const vcihost::ReplayPlan& plan,
                     const Replayer& replayer, bool receipt) {
    nlohmann::ordered_json object{{"file", trace.path},
                                  {"ended", replayer.HasEnded()},
                                  {"frames_given", replayer.Given()},
                                  {"host_ns", replayer.Ran().count()},
                                  {"error_frames", trace.errors},
                                  {"comments", trace.comments},
                                  {"other_packets", trace.others},
                                  {"unmapped_frames", plan.unmapped},
                                  {"backward_frames", plan.backward},
                                  {"skipped_intervals", plan.skipped},
                                  {"skipped_ns", plan.skippedTime * kNsPerUs}};
    if (receipt) {
        const vcihost::ReplayReceipt& seen = replayer.Receipt();
        object["due"] = seen.TotalDue();
        object["sent"] = seen.TotalSent();
        object["lost"] = seen.TotalDue() - seen.TotalSent();
        object["others"] = seen.Others();
        object["planned_ns"] = OrNull(seen.Planned());
        object["ran_ns"] = OrNull(seen.Ran());
        object["frames"] = nlohmann::ordered_json::array();
        for (const vcihost::ReplayFrameReceipt& frame : seen.Frames()) {
            object["frames"].push_back({{"channel", vcihost::CanChannelName(frame.channel)},
                                        {"frame", vcihost::CanIdText(frame.frame)},
                                        {"due", frame.due},
                                        {"sent", frame.sent},
                                        {"lost", frame.Lost()},
                                        {"late_earliest_ns", OrNull(frame.late.earliest)},
                                        {"late_median_ns", OrNull(frame.late.median)},
                                        {"late_p99_ns", OrNull(frame.late.p99)},
                                        {"late_latest_ns", OrNull(frame.late.latest)},
                                        {"spacing_p99_ns", OrNull(frame.spacingP99)},
                                        {"spacing_max_ns", OrNull(frame.spacingMax)}});
        }
    }
    out.Line(JsonText(object));
}
