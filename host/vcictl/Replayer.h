#pragma once

#include "vcictl/ExitStatus.h"
#include "vcictl/KeyInput.h"
#include "vcictl/RecordSwitches.h"
#include "vcictl/ReplayProgress.h"
#include "vcihost/ReplayPlan.h"
#include "vcihost/ReplayReceipt.h"
#include "vcihost/Session.h"

#include <deque>

// Plays a plan on the device: feeds its ring, heeds keys and signals, and collects what the
// channels record of it. Used on one thread, for one replay.
class Replayer {
  public:
    struct Settings {
        uint64_t passes = 1; // through the plan; 0 for no end
        bool receipt = true;
        std::chrono::milliseconds timeout; // of an answer
        std::chrono::milliseconds silence; // of the device, beyond the frames' own intervals
    };

    // All of these must outlive the replay. No wait of `transport` may be cut short by a signal:
    // the replay is to be cancelled over it.
    Replayer(vcihost::Transport& transport, const vcihost::ReplayPlan& plan,
             const Settings& settings);

    // To the end message, or to the first thing that goes wrong, which is told on standard error;
    // the device is left without a replay and without records. kExitOk as well after a signal,
    // kExitTrouble for what the session throws.
    ExitStatus Run();

    const vcihost::ReplayReceipt& Receipt() const { return receipt_; }
    uint64_t Given() const { return given_; } // frames that the device was given
    bool HasEnded() const { return ended_; }  // the device has said so
    std::chrono::nanoseconds Ran() const;     // without pauses

  private:
    using Clock = std::chrono::steady_clock;

    ExitStatus Prepare();
    ExitStatus Play();
    void Quieten(ExitStatus& status);

    bool HasMore() const;
    bool CanFeed() const;
    ExitStatus Feed();
    ExitStatus SendBatch(size_t frames);
    ExitStatus HandleKeys();
    ExitStatus SwitchPause();
    ExitStatus Request(uint8_t sid);
    void Take(const vcihost::Bytes& bytes);
    void Listen(Clock::time_point until);
    bool IsSilent() const;
    vcihost::ReplayPosition Position() const;

    vcihost::Transport& transport_;
    const vcihost::ReplayPlan& plan_;
    Settings settings_;
    vcihost::Session session_;
    RecordSwitches records_;
    vcihost::ReplayFeed feed_;
    vcihost::ReplayReceipt receipt_;
    ReplayProgress progress_;
    std::optional<KeyInput> keys_{std::in_place}; // until the end or a signal

    size_t next_ = 0;   // frame of the plan
    uint64_t pass_ = 0; // from 0
    uint64_t given_ = 0;
    uint64_t at_ = 0; // when the last frame that was given is due, microseconds
    // The same of the frame before each of those that were given last, as many as the ring holds.
    std::deque<uint64_t> dueBefore_;
    bool finishing_ = false;
    bool ended_ = false;
    bool paused_ = false;
    bool over_ = false;                                // whatever the reason
    std::optional<vcihost::NegativeResponse> refusal_; // that came unasked
    Clock::time_point start_;
    Clock::time_point stopped_;        // when the pause or the end came
    std::chrono::nanoseconds idle_{0}; // all pauses
    Clock::time_point sign_;           // when the device was last heard of
};
