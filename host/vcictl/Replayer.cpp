#include "vcictl/Replayer.h"

#include "common/GlobalEnums.h"
#include "vcictl/Ask.h"
#include "vcictl/CanRefusal.h"
#include "vcictl/Command.h"
#include "vcictl/Interrupt.h"
#include "vcihost/CanRequest.h"
#include "vcihost/DeviceTime.h"

#include <algorithm>

#include <fmt/format.h>

namespace {

// A terminal that floods must not starve the ring.
constexpr int kMostKeys = 16;

std::string ReplayAdvice(uint8_t code) {
    if (code == SERVICE_WRONG_SEQUENCE) {
        return "a channel was closed, or set to listen only, while the replay ran";
    }
    if (code == OPEN_FILE_FAILED) {
        return "the device's ring was full, or its timer failed";
    }
    return "";
}

// What one step throws is told, the first time, and becomes the status: others have to follow.
template <typename Step> void Attempt(ExitStatus& status, const Step& step) {
    try {
        step();
    } catch (const std::exception& error) {
        if (status != kExitTrouble) {
            Complain(error.what());
        }
        status = kExitTrouble;
    }
}

} // namespace

Replayer::Replayer(vcihost::Transport& transport, const vcihost::ReplayPlan& plan,
                   const Settings& settings)
    : transport_(transport),
      plan_(plan),
      settings_(settings),
      session_(transport, [this](const vcihost::Bytes& bytes) { Take(bytes); }),
      records_(session_, settings_.timeout) {}

ExitStatus Replayer::Run() {
    ExitStatus status = kExitOk;
    Attempt(status, [&] { status = Prepare(); });
    if (status == kExitOk) {
        Attempt(status, [&] { status = Play(); });
    }
    keys_.reset(); // first: a second signal ends the program at once
    Quieten(status);
    if (start_ != Clock::time_point{}) {
        progress_.End(Position());
    }
    return status;
}

// Nothing goes out on a bus here.
ExitStatus Replayer::Prepare() {
    ExitStatus status = Request(vcihost::kReplayCancelSid); // of a host that went without a word
    for (size_t i = 0; status == kExitOk && i < plan_.channels.size(); ++i) {
        // The device looks at the first channel of a batch alone.
        const uint8_t channel = plan_.channels[i];
        status = Ask(session_, vcihost::CanProbeRequest(channel), settings_.timeout,
                     CanSendAdvice(channel))
                     .status;
    }
    for (size_t i = 0; settings_.receipt && status == kExitOk && i < plan_.channels.size(); ++i) {
        status = records_.On({vcihost::RecordChannel::Bus::Can, plan_.channels[i]});
    }
    session_.Drain();
    // What came so far is of no replay of ours.
    feed_ = {};
    receipt_ = {};
    refusal_.reset();
    ended_ = false;
    return status;
}

ExitStatus Replayer::Play() {
    start_ = sign_ = Clock::now();
    while (!ended_ && !Interrupt::Came()) {
        ExitStatus status = HandleKeys();
        const bool feeding = status == kExitOk && CanFeed();
        if (feeding) {
            status = Feed();
        }
        if (status != kExitOk) {
            return status;
        }
        const auto now = Clock::now();
        if (progress_.IsDue(now)) {
            progress_.Show(Position(), now);
        }
        Listen(feeding ? vcihost::Deadline{} : now + Interrupt::kLongestWait);
        if (refusal_) {
            ComplainOfRefusal(*refusal_, ReplayAdvice);
            return kExitRefused;
        }
        if (!ended_ && IsSilent()) {
            Complain(fmt::format("the device {}; does the application on it run?",
                                 finishing_ ? "does not tell the end of the replay"
                                            : "does not ask for more frames"));
            return kExitNoAnswer;
        }
    }
    return kExitOk;
}

// Also behind a refusal, a silence or trouble, so that the device is left as quiet as can be.
void Replayer::Quieten(ExitStatus& status) {
    if (start_ != Clock::time_point{}) {
        idle_ += paused_ ? Clock::now() - stopped_ : std::chrono::nanoseconds(0);
        stopped_ = Clock::now();
        over_ = true;
        if (!ended_) {
            Attempt(status, [&] { status = FirstBad(status, Request(vcihost::kReplayCancelSid)); });
        }
    }
    Attempt(status, [&] { status = records_.Off(status); });
    Attempt(status, [&] { session_.Drain(); });
}

bool Replayer::HasMore() const {
    return settings_.passes == 0 || pass_ < settings_.passes;
}

// In a pause nothing is sent: data would end it, and so would the finish.
bool Replayer::CanFeed() const {
    if (paused_ || finishing_) {
        return false;
    }
    if (!HasMore()) {
        return true;
    }
    const bool last = settings_.passes != 0 && pass_ + 1 == settings_.passes;
    const size_t left = plan_.frames.size() - next_;
    return feed_.Room() >= (last ? std::min(left, vcihost::kReplayBatch) : vcihost::kReplayBatch);
}

ExitStatus Replayer::Feed() {
    if (HasMore()) {
        return SendBatch(vcihost::kReplayBatch);
    }
    finishing_ = true;
    return Request(vcihost::kReplayFinishSid);
}

// To so many frames, fewer at the end of the replay.
ExitStatus Replayer::SendBatch(size_t frames) {
    std::vector<vcihost::ReplayFrame> batch;
    while (HasMore() && batch.size() < frames) {
        batch.push_back(plan_.frames[next_]);
        dueBefore_.push_back(at_);
        at_ += batch.back().interval;
        if (settings_.receipt) {
            receipt_.Due(batch.back(), at_);
        }
        if (++next_ == plan_.frames.size()) {
            next_ = 0;
            ++pass_;
        }
    }
    while (dueBefore_.size() > vcihost::kReplayRing) {
        dueBefore_.pop_front();
    }
    given_ += batch.size();
    feed_.Sent(batch.size());
    session_.Tell(vcihost::ReplayDataRequest(batch), settings_.timeout);
    const ExitStatus status = Ask(session_, vcihost::SyncRequest(), settings_.timeout).status;
    if (status == kExitOk) {
        feed_.Taken();
        sign_ = Clock::now();
    }
    return status;
}

ExitStatus Replayer::HandleKeys() {
    ExitStatus status = kExitOk;
    for (int i = 0; i < kMostKeys && status == kExitOk; ++i) {
        const auto key = keys_->Next();
        if (!key) {
            break;
        }
        if (*key == ' ' || *key == 'p') {
            status = SwitchPause();
        }
    }
    return status;
}

ExitStatus Replayer::SwitchPause() {
    const ExitStatus status =
        Request(paused_ ? vcihost::kReplayContinueSid : vcihost::kReplayPauseSid);
    if (status != kExitOk) {
        return status;
    }
    paused_ = !paused_;
    const auto now = Clock::now();
    if (paused_) {
        stopped_ = now;
    } else {
        idle_ += now - stopped_;
        receipt_.Resumed();
    }
    sign_ = now;
    progress_.Show(Position(), now);
    return status;
}

ExitStatus Replayer::Request(uint8_t sid) {
    return AskPlain(session_, vcihost::ReplayRequest(sid), settings_.timeout, ReplayAdvice);
}

// Any message that is not the answer to a request in hand.
void Replayer::Take(const vcihost::Bytes& bytes) {
    const auto message = vcihost::ParseMessage(bytes);
    if (!message) {
        return;
    }
    if (const auto record = vcihost::CanFrameRecord::From(*message)) {
        const uint64_t before = receipt_.TotalSent();
        receipt_.Seen(*record);
        if (receipt_.TotalSent() == before) {
            return; // no sign of the replay
        }
    } else if (vcihost::IsReplayReady(*message)) {
        feed_.Ready();
    } else if (vcihost::IsReplayEnd(*message)) {
        ended_ = finishing_;
    } else if (const auto refusal = vcihost::NegativeResponse::From(*message)) {
        if (refusal->gid == CAN_REPLAY_SERVICE_GID || refusal->IsAnonymous()) {
            refusal_ = refusal;
        }
    } else {
        return;
    }
    sign_ = Clock::now();
}

// Takes what waits, and waits for one message when nothing does.
void Replayer::Listen(Clock::time_point until) {
    auto bytes = transport_.Receive(vcihost::Deadline{});
    if (!bytes && until > Clock::now()) {
        bytes = transport_.Receive(until);
    }
    for (int more = 0; bytes; ++more) {
        Take(*bytes);
        if (more == static_cast<int>(vcihost::kReplayRing)) {
            return; // the ring may want to be fed
        }
        bytes = transport_.Receive(vcihost::Deadline{});
    }
}

// The frames in the ring may be far apart, and nothing has to come between them.
bool Replayer::IsSilent() const {
    const uint64_t intervals = dueBefore_.empty() ? 0 : at_ - dueBefore_.front();
    return !paused_ &&
           Clock::now() - sign_ > settings_.silence + std::chrono::microseconds(intervals);
}

std::chrono::nanoseconds Replayer::Ran() const {
    return (paused_ || over_ ? stopped_ : Clock::now()) - start_ - idle_;
}

vcihost::ReplayPosition Replayer::Position() const {
    vcihost::ReplayPosition position;
    position.sent = ended_ ? given_ : std::max<uint64_t>(receipt_.TotalSent(), feed_.Gone());
    position.paused = paused_ && !over_;
    position.ended = ended_;
    if (settings_.passes != 0) {
        position.frames = plan_.frames.size() * settings_.passes;
        const auto ran = std::chrono::duration_cast<std::chrono::microseconds>(Ran()).count();
        const uint64_t whole = plan_.duration * settings_.passes;
        const auto past = static_cast<uint64_t>(ran);
        constexpr uint64_t kSecond = 1'000'000;
        position.leftSeconds = whole > past ? (whole - past + kSecond - 1) / kSecond : 0;
    }
    return position;
}
