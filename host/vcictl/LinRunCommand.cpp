#include "vcictl/LinRunCommand.h"

#include "vcictl/Interrupt.h"
#include "vcictl/LinOpenCommand.h"
#include "vcictl/LinReceiptOutput.h"
#include "vcictl/LinRefusal.h"
#include "vcictl/LinTableFile.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/LinRequest.h"
#include "vcihost/Notation.h"

#include <algorithm>
#include <optional>

#include <CLI/App.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace {

constexpr char kFooter[] =
    "A responder, and a commander without a table, accepts the start and runs nothing.\n"
    "\n"
    "With --duration the schedule is loaded from the table, run for this time and stopped. The\n"
    "channel is recorded all the while, and a receipt tells for each entry when it was due and\n"
    "when it went in a cycle, how many frames were due, seen, lost and in error, and how late "
    "they\n"
    "were. Each cycle counts from its first frame, and that one from the cycle before, since the\n"
    "device plans a cycle when it begins. Frames carry no number: a whole cycle that is missing "
    "is\n"
    "told as one that came late. Ctrl-C ends the run before its time.\n"
    "\n"
    "Exit status: 0 done, 1 the device refused, or with --max-jitter: a frame was lost, none was\n"
    "seen, or one was further than this from due; 2 wrong usage or trouble with the device, 3 no\n"
    "answer in time.\n"
    "\n"
    "Examples:\n"
    "  vcictl lin run lin0\n"
    "  vcictl lin run lin0 --table body.txt --duration 5s --max-jitter 500us";

// A signal is seen at least so often.
constexpr std::chrono::milliseconds kLongestWait(100);

// The frames of one channel among all that the device sends.
class SeenFrames {
  public:
    explicit SeenFrames(uint8_t channel) : channel_(channel) {}

    void Take(const vcihost::Bytes& bytes) {
        const auto message = vcihost::ParseMessage(bytes);
        const auto record = message ? vcihost::LinFrameRecord::From(*message) : std::nullopt;
        if (record && record->channel == channel_) {
            frames_.push_back({vcihost::LinIdOf(record->pid), record->start, record->HasError()});
        }
    }

    void Forget() { frames_.clear(); }
    const std::vector<vcihost::LinSeen>& Frames() const { return frames_; }

  private:
    uint8_t channel_;
    std::vector<vcihost::LinSeen> frames_;
};

void Follow(vcihost::Transport& transport, SeenFrames& seen, vcihost::Deadline end) {
    while (!Interrupt::Came()) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= end) {
            return;
        }
        if (const auto bytes = transport.Receive(std::min(end, now + kLongestWait))) {
            seen.Take(*bytes);
        }
    }
}

// The stop of a schedule is answered when the slot in hand is over.
std::chrono::milliseconds LongestSlot(const std::vector<vcihost::LinSlot>& table) {
    const auto longest =
        std::max_element(table.begin(), table.end(), [](const auto& one, const auto& other) {
            return one.slotMs < other.slotMs;
        });
    return std::chrono::milliseconds(longest->slotMs);
}

} // namespace

LinRunCommand::LinRunCommand(CLI::App& app) {
    app.footer(kFooter);
    app.add_option("CHANNEL", channel_, "lin0 or lin1")->required()->type_name("");
    CLI::Option* const table =
        app.add_option("--table", table_, "Load this table first; see table --help")
            ->type_name("FILE");
    CLI::Option* const duration =
        app.add_option("--duration", duration_, "Run for this time, and measure: 500ms, 10s")
            ->type_name("TIME")
            ->needs(table);
    app.add_option("--bitrate", rate_, "Bit rate of the channel, for the slots that are due")
        ->type_name("RATE")
        ->capture_default_str()
        ->needs(duration);
    app.add_option("--max-jitter", maxJitter_, "End with status 1 above this: 200us")
        ->type_name("TIME")
        ->needs(duration);
    app.add_flag("--json", json_, "Print the receipt as a JSON object")->needs(duration);
    AddNumber(app, "--wait", wait_, kMostMilliseconds, "Time limit of an answer", "MS", "1000");
}

ExitStatus LinRunCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseLinChannel(channel_);
    if (duration_.empty()) {
        return Start(tool, channel);
    }
    // What is wrong with these is told before anything is done.
    std::optional<std::chrono::nanoseconds> limit;
    if (!maxJitter_.empty()) {
        limit = vcihost::ParseDuration("--max-jitter", maxJitter_);
    }
    const Plan plan{channel, ReadLinTableFile(table_), ParseLinBitRate(rate_),
                    vcihost::ParseDuration("--duration", duration_),
                    std::chrono::milliseconds(wait_)};
    vcihost::LinReceipt receipt;
    ExitStatus status = Measure(tool, plan, receipt);
    if (status != kExitOk) {
        return status;
    }
    if (json_) {
        tool.out.Line(LinReceiptJson(plan.table, receipt).dump());
    } else {
        PrintLinReceipt(tool.out, plan.table, receipt);
    }
    if (limit) {
        status = CheckJitter(plan, receipt, *limit);
    }
    if (Interrupt::Came()) {
        throw vcihost::Interrupted();
    }
    return status;
}

ExitStatus LinRunCommand::Start(Tool& tool, uint8_t channel) const {
    std::vector<vcihost::Bytes> requests;
    if (!table_.empty()) {
        requests.push_back(vcihost::LinTableRequest(channel, ReadLinTableFile(table_)));
    }
    requests.push_back(vcihost::LinScheduleRequest(channel, true));
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    for (const vcihost::Bytes& request : requests) {
        const ExitStatus status =
            AskPlain(session, request, std::chrono::milliseconds(wait_), LinAdvice(channel));
        if (status != kExitOk) {
            return status;
        }
    }
    tool.out.Line(vcihost::LinChannelName(channel) + ": schedule start accepted");
    return kExitOk;
}

ExitStatus LinRunCommand::Measure(Tool& tool, const Plan& plan,
                                  vcihost::LinReceipt& receipt) const {
    // No wait of this link is cut short by a signal: the schedule is to be stopped over it.
    const auto transport = vcihost::Transport::Open(tool.device, vcihost::Waiter());
    SeenFrames seen(plan.channel);
    vcihost::Session session(*transport, [&](const vcihost::Bytes& bytes) { seen.Take(bytes); });
    const auto advice = LinAdvice(plan.channel);
    const auto ask = [&](const vcihost::Bytes& request) {
        return AskPlain(session, request, plan.timeout, advice);
    };
    const auto stop = [&] {
        return AskPlain(session, vcihost::LinScheduleRequest(plan.channel, false),
                        plan.timeout + LongestSlot(plan.table), advice);
    };
    const auto record = [&](bool on) {
        return Ask(session, vcihost::LinRecordSwitchRequest(plan.channel, on), plan.timeout, advice)
            .status;
    };

    ExitStatus status = stop();
    if (status == kExitOk) {
        status = ask(vcihost::LinTableRequest(plan.channel, plan.table));
    }
    if (status == kExitOk) {
        status = record(true);
    }
    if (status != kExitOk) {
        return status;
    }
    session.Drain();
    seen.Forget(); // frames of an earlier schedule
    status = ask(vcihost::LinScheduleRequest(plan.channel, true));
    AskResult time;
    if (status == kExitOk) {
        Follow(*transport, seen, std::chrono::steady_clock::now() + plan.duration);
        time = Ask(session, vcihost::SyncRequest(), plan.timeout);
        status = time.status;
    }
    // Also behind a refusal or a silence, so that the channel is left as quiet as can be.
    const ExitStatus stopped = stop();
    const ExitStatus off = record(false);
    status = status != kExitOk ? status : stopped != kExitOk ? stopped : off;
    session.Drain();
    if (status == kExitOk) {
        receipt = vcihost::LinReceipt::Make(plan.table, plan.rate, seen.Frames(), time.deviceTime);
    }
    return status;
}

ExitStatus LinRunCommand::CheckJitter(const Plan& plan, const vcihost::LinReceipt& receipt,
                                      std::chrono::nanoseconds limit) const {
    ExitStatus status = kExitOk;
    for (size_t i = 0; i < plan.table.size(); ++i) {
        const vcihost::LinSlotReceipt& slot = receipt.slots[i];
        const auto worst = slot.Worst();
        std::string fault;
        if (slot.lost > 0) {
            fault = fmt::format("{} of {} frames lost", slot.lost, slot.due);
        } else if (!worst) {
            fault = fmt::format("seen {} times, jitter not measured", slot.seen);
        } else if (*worst > limit.count()) {
            fault = fmt::format("{:.1f} us from due, above {}", static_cast<double>(*worst) / 1000,
                                maxJitter_);
        } else {
            continue;
        }
        Complain(fmt::format("{} entry {} ({}): {}", vcihost::LinChannelName(plan.channel), i + 1,
                             vcihost::LinIdText(plan.table[i].id), fault));
        status = kExitRefused;
    }
    return status;
}
