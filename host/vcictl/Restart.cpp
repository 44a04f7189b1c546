#include "vcictl/Restart.h"

#include "common/GlobalEnums.h"
#include "vcictl/Ask.h"
#include "vcihost/DeviceInfo.h"
#include "vcihost/DeviceTime.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace {

using Clock = std::chrono::steady_clock;

// Between two attempts. A question that the device did not hear before it went down is lost.
constexpr std::chrono::milliseconds kPause(250);
constexpr std::chrono::milliseconds kQuestion(1000);

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

ExitStatus TellOfSilence(std::chrono::nanoseconds limit) {
    Complain(fmt::format("the device does not answer again within {:.1f} s; --limit waits longer",
                         Seconds(std::chrono::duration_cast<Clock::duration>(limit))));
    return kExitNoAnswer;
}

void TellOfReturn(Tool& tool, const char* what, Clock::time_point start, uint64_t time) {
    tool.out.Line(fmt::format("{} after {:.1f} s, device time {}", what,
                              Seconds(Clock::now() - start), vcihost::TimeText(time)));
}

// The device time of an answer to the question; nothing while there is none.
std::optional<uint64_t> AskOnce(Tool& tool, Clock::time_point deadline) {
    try {
        const auto transport = tool.Open();
        vcihost::Session session(*transport);
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        const auto answer = session.Ask(vcihost::DeviceRequest(vcihost::kDeviceTimeSid),
                                        std::clamp(left, std::chrono::milliseconds(0), kQuestion));
        const auto message = answer ? vcihost::ParseMessage(answer->bytes) : std::nullopt;
        return message ? vcihost::TimeInAnswer(*message) : std::nullopt;
    } catch (const vcihost::TransportError&) { // the link is gone for the time being
        return std::nullopt;
    }
}

// True when `time` is where `before` has got to within `passed`, as on a board that is still up.
bool RunsOn(uint64_t before, uint64_t time, Clock::duration passed) {
    constexpr double kTolerance = 1; // seconds: the question takes some of it
    constexpr double kNsPerSecond = 1e9;
    const double run = (static_cast<double>(time) - static_cast<double>(before)) / kNsPerSecond;
    return std::abs(run - Seconds(passed)) < kTolerance;
}

// The answer to the clear, over links that come and go.
class ClearAnswer {
  public:
    // Takes any message. True when it is the answer, or a refusal.
    bool Take(const vcihost::Bytes& bytes) {
        const auto message = vcihost::ParseMessage(bytes);
        if (!message) {
            return false;
        }
        if (const auto refusal = vcihost::NegativeResponse::From(*message)) {
            const bool ours =
                refusal->gid == DEV_CFG_SERVICE_GID && refusal->sid == vcihost::kDeviceClearSid;
            if (ours || refusal->IsAnonymous()) {
                ComplainOfRefusal(*refusal, {});
                refused_ = true;
            }
            return refused_;
        }
        if (message->gid == DEV_CFG_SERVICE_GID && message->sid == vcihost::kDeviceClearSid) {
            time_ = vcihost::TimeInAnswer(*message);
        }
        return time_.has_value();
    }

    bool refused() const { return refused_; }
    uint64_t time() const { return time_.value_or(0); }

  private:
    bool refused_ = false;
    std::optional<uint64_t> time_;
};

bool Listen(vcihost::Transport& transport, ClearAnswer& answer, Clock::time_point deadline) {
    while (const auto bytes = transport.Receive(deadline)) {
        if (answer.Take(*bytes)) {
            return true;
        }
        if (Clock::now() >= deadline) {
            break;
        }
    }
    return false;
}

} // namespace

ExitStatus AwaitBoard(Tool& tool, uint64_t before, std::chrono::nanoseconds limit) {
    const auto start = Clock::now();
    const auto deadline = start + limit;
    bool up = false; // the last question had an answer, or no time left for one
    while (Clock::now() < deadline) {
        tool.waiter.Pause(std::min(deadline, Clock::now() + kPause));
        const auto time = AskOnce(tool, deadline);
        // Its time alone tells: a board that is busy may miss a question as well.
        if (time && !RunsOn(before, *time, Clock::now() - start)) {
            TellOfReturn(tool, "it answers again", start, *time);
            return kExitOk;
        }
        if (time || Clock::now() < deadline) {
            up = time.has_value();
        }
    }
    if (!up) {
        return TellOfSilence(limit);
    }
    Complain(fmt::format("the board still answers, and has not restarted within {:.1f} s",
                         Seconds(std::chrono::duration_cast<Clock::duration>(limit))));
    return kExitNoAnswer;
}

ExitStatus ClearAndAwait(Tool& tool, std::unique_ptr<vcihost::Transport> link,
                         std::chrono::milliseconds timeout, std::chrono::nanoseconds limit) {
    const auto start = Clock::now();
    const auto deadline = start + limit;
    {
        vcihost::Session session(*link);
        session.Drain(); // an answer to an earlier clear
        session.Tell(vcihost::DeviceRequest(vcihost::kDeviceClearSid), timeout);
    }
    ClearAnswer answer;
    bool answered = false;
    while (!answered && Clock::now() < deadline) {
        try {
            if (!link) {
                link = tool.Open();
            }
            answered = Listen(*link, answer, deadline);
        } catch (const vcihost::TransportError&) {
            link.reset(); // first: a link has one opener at a time
            tool.waiter.Pause(std::min(deadline, Clock::now() + kPause));
        }
    }
    if (answer.refused()) {
        return kExitRefused;
    }
    if (!answered) {
        return TellOfSilence(limit);
    }
    TellOfReturn(tool, "cleared and started again", start, answer.time());
    return kExitOk;
}
