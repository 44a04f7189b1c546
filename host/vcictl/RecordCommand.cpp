#include "vcictl/RecordCommand.h"

#include "vcictl/Ask.h"
#include "vcictl/Interrupt.h"
#include "vcictl/RecordSwitches.h"
#include "vcihost/CandumpLog.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/Notation.h"
#include "vcihost/RecordFile.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <optional>

#include <unistd.h>

#include <CLI/App.hpp>

namespace {

constexpr char kFooter[] =
    "CHANNEL is lin0 or lin1, which must be open, or can0 to can5, or any for all CAN\n"
    "channels, these with filters behind them in hex: can0,123:7FF,400~700. id:mask\n"
    "lets frames through that agree with id in the bits of mask, id~mask those that\n"
    "do not; one of several is enough, with j all are needed. Eight digits of id\n"
    "stand for an extended identifier. #MASK chooses the classes of errors, #0 none.\n"
    "\n"
    "FILE.pcapng is a capture file with an interface for each channel, FILE.log the\n"
    "text log of candump, which cannot hold LIN frames. Times in both are the\n"
    "device's clock told as wall-clock time by one comparison at the start. The\n"
    "device drops records that nobody reads in time and does not tell.\n"
    "\n"
    "Exit status: 0 done, 1 the device refused, 2 wrong usage, trouble with the\n"
    "device or a file, 3 no answer, or fewer records than --count in time. Ctrl-C\n"
    "ends the recording: everything is written and the channels are switched off.\n"
    "\n"
    "Examples:\n"
    "  vcictl record can0 can1                        watch two channels\n"
    "  vcictl record -o drive.pcapng                  all CAN channels to a file, until Ctrl-C\n"
    "  vcictl record -o body.pcapng can0 lin0 lin1    CAN and LIN on one clock\n"
    "  vcictl record can0,123:7FF -n 10 -T 5000       ten frames, at most 5 s apart\n"
    "  vcictl record -L can0 | log2asc can0           as another tool wants it";

// Of so many comparisons of the clocks the one with the shortest round trip counts.
constexpr int kClockSamples = 5;

constexpr std::chrono::seconds kFlushPeriod(1);

// Compares the clocks; nothing, with `status` set, when the device does not tell its time.
std::optional<vcihost::ClockPair>
CompareClocks(vcihost::Session& session, std::chrono::milliseconds timeout, ExitStatus& status) {
    std::optional<vcihost::ClockPair> best;
    for (int i = 0; i < kClockSamples; ++i) {
        const AskResult answer = Ask(session, vcihost::SyncRequest(), timeout);
        if (answer.status != kExitOk) {
            status = answer.status;
            return std::nullopt;
        }
        const auto pair = vcihost::ClockPair::Make(answer.deviceTime, answer.sent, answer.received,
                                                   WallClock(), std::chrono::steady_clock::now());
        if (!best || pair.uncertainty < best->uncertainty) {
            best = pair;
        }
    }
    return best;
}

} // namespace

RecordCommand::RecordCommand(CLI::App& app) {
    app.footer(kFooter);
    app.add_option("CHANNEL", channels_, "What to record; without it all CAN channels")
        ->type_name("");
    CLI::Option* const file =
        app.add_option("-o,--output", file_, "Record to FILE.pcapng or FILE.log")
            ->type_name("FILE");
    app.add_option("--duration", duration_, "Stop after this time: 500ms, 10s")->type_name("TIME");
    AddNumber(app, "-n,--count", count_, std::numeric_limits<uint64_t>::max(),
              "Stop after N records; 0: no limit", "N", "0");
    AddNumber(app, "-T", silence_, kMostMilliseconds,
              "Stop after this time without a record; 0: no limit", "MS", "0");
    app.add_option("-t", time_, "Time: (a)bsolute, (d)elta, (z)ero, (A) dated; else device time")
        ->check(CLI::IsMember({"a", "d", "z", "A"}))
        ->type_name("TYPE");
    const std::string always = "Taken as candump takes it; the lines look so in any case";
    app.add_flag("-x,-e", always);
    app.add_flag("-l", logFile_, "Record to candump-DATE_TIME.log")->excludes(file);
    CLI::Option* const log = app.add_flag("-L", log_, "Print the text log");
    app.add_flag("--json", json_, "Print one JSON object a record")->excludes(log);
    AddWait(app, wait_);
}

ExitStatus RecordCommand::Run(Tool& tool) {
    auto selection = vcihost::RecordSelection::Parse(channels_);
    if (log_ && selection.HasLin()) {
        throw UsageError("-L: the text log of candump cannot hold LIN frames; leave it out, or "
                         "record to a file that ends with .pcapng");
    }
    std::optional<std::chrono::nanoseconds> duration;
    if (!duration_.empty()) {
        duration = vcihost::ParseDuration("--duration", duration_);
    }
    if (!file_.empty()) {
        static_cast<void>(vcihost::FormatOfPath(file_)); // to throw before anything is done
    }
    const auto transport = tool.OpenUninterrupted();
    vcihost::Session session(*transport); // what waited before is of no recording of ours
    ExitStatus status = kExitOk;
    const auto clock = CompareClocks(session, wait_, status);
    if (!clock) {
        return status;
    }
    const auto channels = selection.Channels();
    auto writers = Writers(tool, *clock, channels);
    Recorder recorder(std::move(selection), std::move(writers), count_);
    return Record(*transport, recorder, channels, duration);
}

bool RecordCommand::HasView() const {
    return log_ || json_ || (file_.empty() && !logFile_);
}

vcihost::ViewTime RecordCommand::Time() const {
    if (time_.empty()) {
        return vcihost::ViewTime::Device;
    }
    switch (time_.front()) {
    case 'a':
        return vcihost::ViewTime::Absolute;
    case 'd':
        return vcihost::ViewTime::Delta;
    case 'z':
        return vcihost::ViewTime::Zero;
    default:
        return vcihost::ViewTime::Date;
    }
}

Recorder::Writers
RecordCommand::Writers(Tool& tool, const vcihost::ClockPair& clock,
                       const std::vector<vcihost::RecordChannel>& channels) const {
    Recorder::Writers writers;
    if (!file_.empty() || logFile_) {
        const std::string path = logFile_ ? vcihost::CandumpLogName(WallClock()) : file_;
        writers.push_back(vcihost::MakeRecordFile(
            path, {clock, channels, tool.device, std::string("vcictl ") + VCI_VERSION}));
    }
    if (HasView()) {
        const RecordStyle style = json_  ? RecordStyle::Json
                                  : log_ ? RecordStyle::Log
                                         : RecordStyle::View;
        writers.push_back(std::make_unique<RecordOutput>(tool.out, clock, style, Time()));
    }
    return writers;
}

ExitStatus RecordCommand::Record(vcihost::Transport& transport, Recorder& recorder,
                                 const std::vector<vcihost::RecordChannel>& channels,
                                 Duration duration) const {
    // Two that renew one terminal line would spoil each other's.
    RecordProgress progress(!HasView() || isatty(STDOUT_FILENO) == 0);
    std::exception_ptr failure; // the first one; the channels are switched off behind it as well
    const auto attempt = [&](const auto& action) {
        try {
            action();
        } catch (...) {
            failure = failure ? failure : std::current_exception();
        }
    };

    vcihost::Session session(transport, [&](const vcihost::Bytes& bytes) {
        if (!failure) {
            attempt([&] { recorder.Take(bytes); });
        }
    });
    RecordSwitches records(session, wait_);
    ExitStatus status = kExitOk;
    attempt([&] {
        for (size_t i = 0; status == kExitOk && !failure && i < channels.size(); ++i) {
            status = records.On(channels[i]);
        }
        if (status == kExitOk && !failure) {
            Follow(transport, recorder, progress, duration);
        }
    });
    const bool complete = count_ == 0 || recorder.IsFull();
    // What the device has sent before it answers is still recorded.
    attempt([&] { status = records.Off(status); });
    attempt([&] { recorder.Finish(); });
    progress.End(recorder.Totals());
    if (failure) {
        std::rethrow_exception(failure);
    }
    if (Interrupt::Came()) {
        throw vcihost::Interrupted();
    }
    return status == kExitOk && !complete ? kExitNoAnswer : status;
}

void RecordCommand::Follow(vcihost::Transport& transport, Recorder& recorder,
                           RecordProgress& progress, Duration duration) const {
    using Clock = std::chrono::steady_clock;
    constexpr auto kNever = vcihost::Deadline::max();
    const auto start = Clock::now();
    const auto end = duration ? start + *duration : kNever;
    const auto silence = std::chrono::milliseconds(silence_);
    auto silent = silence_ == 0 ? kNever : start + silence;
    auto flush = start + kFlushPeriod;
    while (!recorder.IsFull() && !Interrupt::Came()) {
        const auto now = Clock::now();
        if (now >= end || now >= silent) {
            return;
        }
        if (now >= flush) {
            recorder.Flush();
            flush = now + kFlushPeriod;
        }
        if (progress.IsDue(now)) {
            progress.Show(recorder.Totals(), now);
        }
        auto bytes = transport.Receive(vcihost::Deadline{});
        if (!bytes) {
            recorder.Idle();
            bytes = transport.Receive(std::min({now + Interrupt::kLongestWait, end, silent}));
        }
        if (bytes && recorder.Take(*bytes) && silence_ != 0) {
            silent = Clock::now() + silence;
        }
    }
}
