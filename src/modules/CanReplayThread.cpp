#include "modules/CanReplayThread.h"

#include "base/ThreadPriority.h"
#include "common/Refusal.h"
#include "common/UploadFrame.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <system_error>

#include <linux/can.h>
#include <pthread.h>
#include <sys/epoll.h>

namespace {

constexpr int kPushTries = 3;
constexpr std::chrono::microseconds kPushWait{100};
constexpr std::chrono::microseconds kSignalWait{20};

// Microseconds.
constexpr int32_t kBeforeFinish = 1000;
constexpr int32_t kClosingWait = 100000; // for the last frames to leave the bus
constexpr int32_t kSignalRetry = 10000;  // to a link that had no room

constexpr uint8_t kEndOfReplay = 128;

// While this lives, signals stay away from this thread and from those that it starts.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

  private:
    sigset_t before_;
};

// A refusal from beside the main thread, whose buffer for them is in use.
void SendRefusal(NegtiveErrorCode code, uint8_t gid, uint8_t sid, uint32_t handle) {
    std::array<uint8_t, kRefusalLength> frame{};
    WriteRefusal(frame, code, gid, sid, handle);
    Drivers::UsbDriver::GetInstance().UsbWrite(frame.data(), kRefusalLength);
}

bool Plays(ReplayState state) {
    return state == ReplayState::RUNNING || state == ReplayState::CONTINUE;
}

} // namespace

CanReplayThread::CanReplayThread(net::ZephCanComM& canComM) : canComM_(canComM) {}

CanReplayThread::~CanReplayThread() {
    Cancel();
}

void CanReplayThread::SetLastRequest(uint8_t gid, uint8_t sid, uint32_t handle) {
    lastRequest = Request{handle, gid, sid, 0};
}

// Commands.

// False when there is no thread to take the command. IDLE is the last word of a thread: it touches
// nothing but its own end any more, and a command that finds it waits for that end.
bool CanReplayThread::Command(ReplayState next) {
    if (replayState.Command(next) == ReplayState::IDLE) {
        Join();
    }
    return replayThread.joinable();
}

void CanReplayThread::Join() {
    if (!replayThread.joinable()) {
        return;
    }
    replayThread.join();
    timer_.Close();
}

void CanReplayThread::BeginBatch() {
    if (SharedReplayState::StateOf(replayState.Get()) == ReplayState::IDLE) {
        Join();
    }
    if (!replayThread.joinable() && failed) {
        failed = false;
        replayFifo.clear(); // of what came while the replay failed
    }
}

bool CanReplayThread::Queue(const ReplayCanFrameType& frame) {
    for (int tries = 1; !replayFifo.push(frame); ++tries) {
        if (tries == kPushTries) {
            return false;
        }
        std::this_thread::sleep_for(kPushWait);
    }
    return true;
}

NegtiveErrorCode CanReplayThread::Play() {
    const bool outstanding = requestSignalFlag;
    const bool low = replayFifo.halfEmpty();
    if (low) {
        SendReplayReadySignal();
    }
    const bool alive = Command(ReplayState::RUNNING);
    // A signal that knows nothing of this batch must be out before a request behind it is answered.
    // The command stands between the frames' entry into the ring and this look; the thread raises
    // the flag before it looks at the ring. So one of the two has seen the other.
    while (signalling) {
        std::this_thread::sleep_for(kSignalWait);
    }
    requestSignalFlag = false;
    // Before the flag fell, the thread may have sent the whole batch and left its signal out.
    if (outstanding && !low && replayFifo.empty()) {
        SendReplayReadySignal();
    }
    if (alive) {
        timer_.Wake(); // for a ring that had run empty; otherwise the thread finds nothing to do
        return NO_ERROR;
    }
    if (failed) { // while this batch came, and has told the host
        failed = false;
        replayFifo.clear();
        replayState.Command(ReplayState::IDLE);
        return NO_ERROR;
    }
    return Start();
}

NegtiveErrorCode CanReplayThread::Start() {
    if (!timer_.InitEpollTimer()) {
        return OPEN_FILE_FAILED;
    }
    restartTimer = false;
    failed = false;
    threadRunning = true;
    {
        // A signal would end epoll_wait and the replay with it. The main thread is there for them.
        const SignalsBlocked blocked;
        try {
            replayThread = std::thread([this] { ReplayThreadFunc(); });
        } catch (const std::system_error&) { // too many threads
            threadRunning = false;
            timer_.Close();
            return OPEN_FILE_FAILED;
        }
    }
    SetHighestPriority(replayThread);
    return NO_ERROR;
}

void CanReplayThread::Finish() {
    finishTempStatus = true; // first: a replay that ends in between has had its finish
    Command(ReplayState::FINISH);
    timer_.Wake(); // in an empty ring nothing else would
}

void CanReplayThread::Pause() {
    Command(ReplayState::PAUSE);
}

void CanReplayThread::Continue() {
    Command(ReplayState::CONTINUE);
    restartTimer = true; // behind the state: an expiry in a pause would be the frame's last
    timer_.Wake();
}

void CanReplayThread::Cancel() {
    Command(ReplayState::CANCEL);
    threadRunning = false;
    timer_.Wake();
    Join();
    ClearStatusFlag();
    replayFifo.clear();
    replayState.Command(ReplayState::IDLE);
}

// The thread.

void CanReplayThread::ReplayThreadFunc() {
    queueFirstFlag = true;
    finishTimeOutFlag = false;
    while (threadRunning) {
        ArmTimer();
        epoll_event event{};
        const int nfds = timer_.Wait(event);
        if (nfds == -1) {
            Fail();
            return;
        }
        if (!threadRunning) {
            return;
        }
        HandleStateMachineEvent(nfds, &event);
    }
}

// Arms the timer for what nothing else has armed it for.
void CanReplayThread::ArmTimer() {
    const ReplayState state = SharedReplayState::StateOf(replayState.Get());
    const bool restart = restartTimer && restartTimer.exchange(false);
    // In a pause the expiry would be lost, and the batch that ends the pause with it.
    if (restart || (queueFirstFlag && state != ReplayState::PAUSE)) {
        ReplayCanFrameType frame;
        if (replayFifo.peek(frame)) {
            // The interval 0xFFFFFFFF disarms: it holds its frame, and all behind it, until a
            // cancel.
            timer_.SetTimer(static_cast<int32_t>(frame.intervalTime));
            queueFirstFlag = false;
            return;
        }
    }
    if (timer_.IsArmed() || !replayFifo.empty()) {
        return;
    }
    if (finishTempStatus && (Plays(state) || state == ReplayState::FINISH)) {
        // The host finished when the last frame was gone already.
        timer_.SetTimer(ReplayTimer::kAtOnce);
    } else if (signalDue && Plays(state)) {
        timer_.SetTimer(kSignalRetry); // no frame is left that would try again
    }
}

void CanReplayThread::HandleStateMachineEvent(int nfds, const epoll_event* events) {
    if (nfds < 1) {
        return;
    }
    if (timer_.TakeWakeUp(*events) || !timer_.TakeExpiry()) {
        return;
    }
    // An expiry that belongs to something else than the frame which is first in the ring now.
    if (restartTimer || (queueFirstFlag && !replayFifo.empty())) {
        return;
    }
    const SharedReplayState::Look seen = replayState.Get();
    switch (SharedReplayState::StateOf(seen)) {
    case ReplayState::RUNNING:
    case ReplayState::CONTINUE:
        if (!finishTempStatus || !replayFifo.empty()) {
            SendNextFrame();
        } else if (replayState.Follow(seen, ReplayState::FINISH)) {
            timer_.SetTimer(ReplayTimer::kAtOnce);
        }
        break;
    case ReplayState::FINISH:
        ReplaySecondFinishSignal(seen);
        break;
    case ReplayState::PAUSE:  // the timer has expired, and the frame stays
    case ReplayState::CANCEL: // the main thread is about to end this one, and then clears the ring
    case ReplayState::IDLE:
        break;
    }
}

void CanReplayThread::SendNextFrame() {
    bool armed = false;
    ReplayCanFrameType frame;
    if (replayFifo.pop(frame)) {
        ReplayCanFrameType nextFrame;
        if (replayFifo.peek(nextFrame)) {
            // Before the present frame is written, so that the write does not add to the interval.
            timer_.SetTimer(static_cast<int32_t>(nextFrame.intervalTime));
            armed = true;
        }
        WriteFrame(frame);
    }
    // By what was looked at above: a frame that has come since has no timer.
    queueFirstFlag = !armed;
    signalling = true; // before the looks below: a batch that they miss waits for their signal
    const ReplayState state = SharedReplayState::StateOf(replayState.Get());
    if (finishTempStatus && replayFifo.empty() && (Plays(state) || state == ReplayState::FINISH)) {
        timer_.SetTimer(kBeforeFinish);
    }
    if (replayFifo.halfEmpty() && !requestSignalFlag) {
        SendReplayReadySignal();
    }
    signalling = false;
}

// A frame that its channel does not take, or whose channel there is not, is gone and the replay
// goes on: a bus that cannot send now must not end it.
void CanReplayThread::WriteFrame(const ReplayCanFrameType& frame) {
    const ReplayCanTxFrameType& sent = frame.Frame;
    const int extend = (sent.id & CAN_EFF_FLAG) != 0 ? 1 : 0;
    if (sent.FDF != 0) {
        canfd_frame fd{};
        fd.can_id = sent.id;
        fd.len = sent.reallen;
        std::copy_n(sent.data, sent.reallen, fd.data);
        canComM_.WriteCallback(frame.channl, &fd, sent.FDF, sent.BRS, extend);
    } else {
        can_frame classic{};
        classic.can_id = sent.id;
        classic.can_dlc = sent.reallen; // above 8 the kernel refuses it
        std::copy_n(sent.data, std::min<size_t>(sent.reallen, CAN_MAX_DLEN), classic.data);
        canComM_.WriteCallback(frame.channl, &classic, sent.FDF, sent.BRS, extend);
    }
}

// Sends what is left, then waits once, then ends the replay.
void CanReplayThread::ReplaySecondFinishSignal(SharedReplayState::Look seen) {
    if (!replayFifo.empty()) {
        SendNextFrame();
        return;
    }
    if (!finishTimeOutFlag) {
        finishTimeOutFlag = true;
        timer_.SetTimer(kClosingWait);
        return;
    }
    // The ring is not cleared: it was empty, and what has come since belongs to the next replay. A
    // batch whose command came first keeps this thread.
    if (!replayState.Follow(seen, ReplayState::IDLE)) {
        return;
    }
    threadRunning = false;
    finishTempStatus = false;
    UploadFrame<3> end;
    end.Service().U8(CAN_REPLAY_SERVICE_GID).U8(kEndOfReplay).U8(REPLAY_FINISH_SID);
    end.Send();
}

void CanReplayThread::Fail() {
    failed = true;
    ClearStatusFlag();
    replayFifo.clear();
    replayState.Abandon();
    const Request request = lastRequest;
    SendRefusal(OPEN_FILE_FAILED, request.gid, request.sid, request.handle);
}

void CanReplayThread::ClearStatusFlag() {
    threadRunning = false;
    finishTempStatus = false;
    queueFirstFlag = true;
    finishTimeOutFlag = false;
    requestSignalFlag = false;
    signalDue = false;
}

void CanReplayThread::SendReplayReadySignal() {
    UploadFrame<2> signal;
    signal.Service().U8(lastRequest.load().gid).U8(UPLOAD_REPLAY_SIGNAL_SID);
    // Before the host can answer: its batch clears this, and must not find it cleared too early.
    requestSignalFlag = true;
    const bool sent = signal.Send();
    signalDue = !sent;
    if (!sent) {
        requestSignalFlag = false; // no room in the link: the next frame tries again
    }
}
