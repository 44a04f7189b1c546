#include "vcictl/LinRunCommand.h"

#include "vcictl/Interrupt.h"
#include "vcictl/Jitter.h"
#include "vcictl/JsonText.h"
#include "vcictl/LinReceiptOutput.h"
#include "vcictl/LinRefusal.h"
#include "vcictl/LinTableFile.h"
#include "vcictl/RecordSwitches.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/LinRequest.h"
#include "vcihost/Notation.h"

#include <algorithm>
#include <optional>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr char kFooter[] =
    "A responder, and a commander without a table, accepts the start and runs\n"
    "nothing.\n"
    "\n"
    "With --duration the schedule is loaded from the table, run for this time and\n"
    "stopped. The channel is recorded all the while, and a receipt tells for each\n"
    "entry when it was due and when it went in a cycle, how many frames were due,\n"
    "seen, lost and in error, and how late they were. Each cycle counts from its\n"
    "first frame, which is due one cycle after that of the cycle before: the device\n"
    "plans a cycle when it begins. Frames carry no number: a whole cycle that is\n"
    "missing is told as one that came late. Ctrl-C ends the run before its time.\n"
    "\n"
    "Exit status: 0 done, 1 the device refused, or with --max-jitter: a frame was\n"
    "lost, none was seen, or one was further than this from due; 2 wrong usage or\n"
    "trouble with the device, 3 no answer in time.\n"
    "\n"
    "Examples:\n"
    "  vcictl lin run lin0\n"
    "  vcictl lin run lin0 --table body.txt --duration 5s --max-jitter 500us";

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
        if (const auto bytes = transport.Receive(std::min(end, now + Interrupt::kLongestWait))) {
            seen.Take(*bytes);
        }
    }
}

std::chrono::milliseconds LongestSlot(const std::vector<vcihost::LinSlot>& table) {
    const auto longest =
        std::max_element(table.begin(), table.end(), [](const auto& one, const auto& other) {
            return one.slotMs < other.slotMs;
        });
    return std::chrono::milliseconds(longest->slotMs);
}

std::vector<JitterLine> JitterLines(uint8_t channel, const std::vector<vcihost::LinSlot>& table,
                                    const vcihost::LinReceipt& receipt) {
    std::vector<JitterLine> lines;
    for (size_t i = 0; i < table.size(); ++i) {
        const vcihost::LinSlotReceipt& slot = receipt.slots[i];
        lines.push_back({fmt::format("{} entry {} ({})", vcihost::LinChannelName(channel), i + 1,
                                     vcihost::LinIdText(table[i].id)),
                         slot.due, slot.seen, slot.lost, slot.Worst()});
    }
    return lines;
}

} // namespace

LinRunCommand::LinRunCommand(CLI::App& app) {
    app.footer(kFooter);
    AddLinChannel(app, channel_);
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
    AddMaxJitter(app, maxJitter_)->needs(duration);
    app.add_flag("--json", json_, "Print the receipt as a JSON object")->needs(duration);
    AddWait(app, wait_);
}

ExitStatus LinRunCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseLinChannel(channel_);
    if (duration_.empty()) {
        return Start(tool, channel);
    }
    // What is wrong with these is told before anything is done.
    const auto limit = JitterLimit::Parse(maxJitter_);
    const Plan plan{channel, ReadLinTableFile(table_), vcihost::ParseLinBitRate("--bitrate", rate_),
                    vcihost::ParseDuration("--duration", duration_)};
    vcihost::LinReceipt receipt;
    ExitStatus status = Measure(tool, plan, receipt);
    if (status != kExitOk) {
        return status;
    }
    if (json_) {
        tool.out.Line(JsonText(LinReceiptJson(plan.table, receipt)));
    } else {
        PrintLinReceipt(tool.out, plan.table, receipt);
    }
    if (limit) {
        status = CheckJitter(JitterLines(channel, plan.table, receipt), *limit,
                             {.before = "", .after = " from due", .needsMeasurement = true});
    }
    if (Interrupt::Came()) {
        throw vcihost::Interrupted();
    }
    return status;
}

ExitStatus LinRunCommand::Start(Tool& tool, uint8_t channel) const {
    std::vector<vcihost::LinSlot> table;
    if (!table_.empty()) {
        table = ReadLinTableFile(table_);
    }
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    ExitStatus status = kExitOk;
    if (!table.empty()) {
        status = AskPlain(session, vcihost::LinTableRequest(channel, table), wait_,
                          LinTableAdvice(channel));
    }
    if (status == kExitOk) {
        status = AskPlain(session, vcihost::LinScheduleRequest(channel, true), wait_,
                          LinAdvice(channel));
    }
    if (status == kExitOk) {
        tool.out.Line(vcihost::LinChannelName(channel) + ": schedule start accepted");
    }
    return status;
}

ExitStatus LinRunCommand::Measure(Tool& tool, const Plan& plan,
                                  vcihost::LinReceipt& receipt) const {
    const auto transport = tool.OpenUninterrupted();
    SeenFrames seen(plan.channel);
    vcihost::Session session(*transport, [&](const vcihost::Bytes& bytes) { seen.Take(bytes); });
    RecordSwitches records(session, wait_);
    const auto advice = LinAdvice(plan.channel);
    const auto schedule = [&](bool run) {
        // The stop is answered when the slot in hand is over.
        return AskPlain(session, vcihost::LinScheduleRequest(plan.channel, run),
                        run ? wait_ : wait_ + LongestSlot(plan.table), advice);
    };

    // A schedule that runs would go on with the new table before the record is on.
    ExitStatus status = schedule(false);
    if (status == kExitOk) {
        status = AskPlain(session, vcihost::LinTableRequest(plan.channel, plan.table), wait_,
                          LinTableAdvice(plan.channel));
    }
    if (status == kExitOk) {
        status = records.On({vcihost::RecordChannel::Bus::Lin, plan.channel});
    }
    AskResult time;
    if (status == kExitOk) {
        session.Drain();
        seen.Forget(); // frames of an earlier schedule
        status = schedule(true);
        if (status == kExitOk) {
            Follow(*transport, seen, std::chrono::steady_clock::now() + plan.duration);
            time = Ask(session, vcihost::SyncRequest(), wait_);
            status = time.status;
        }
        // Also behind a refusal or a silence, so that the channel is left as quiet as can be.
        status = FirstBad(status, schedule(false));
    }
    status = records.Off(status);
    session.Drain();
    if (status == kExitOk) {
        receipt = vcihost::LinReceipt::Make(plan.table, plan.rate, seen.Frames(), time.deviceTime);
    }
    return status;
}
