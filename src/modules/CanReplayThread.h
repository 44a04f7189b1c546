#pragma once

#include "common/GlobalEnums.h"
#include "modules/Kfifo.h"
#include "modules/ReplayTimer.h"
#include "modules/ReplayTypes.h"
#include "modules/SharedReplayState.h"
#include "net/ZephCanComM.h"

#include <atomic>
#include <cstdint>
#include <thread>

struct epoll_event;

// The player of the CAN replay: a ring of frames, and a thread of the highest real-time priority
// that sends each when its interval is over. The thread lives from the first batch of a replay to
// its end, and alone reads the ring and sets the timer; a command changes the state and wakes it.
// Public members belong to the main thread.
//
// The host is told by a ready signal when a batch leaves the ring less than half full, and once
// more, until the next batch, when a frame that was sent leaves it so.
class CanReplayThread {
  public:
    explicit CanReplayThread(net::ZephCanComM& canComM);
    ~CanReplayThread(); // cancels
    CanReplayThread(const CanReplayThread&) = delete;
    CanReplayThread& operator=(const CanReplayThread&) = delete;

    // What the ready signal (gid) and a refusal by the thread (all three) are addressed by.
    void SetLastRequest(uint8_t gid, uint8_t sid, uint32_t handle);

    // Before the first frame of a batch: clears away a replay that has ended.
    void BeginBatch();

    // Queues a frame; waits for room, a few hundred microseconds at most. False when there is none.
    bool Queue(const ReplayCanFrameType& frame);

    // Behind the last frame of a batch: sends what is queued. OPEN_FILE_FAILED when that cannot be
    // begun; the frames then wait for the next batch.
    NegtiveErrorCode Play();

    // The ring is the end of the replay. Once it is empty, the last frames get 100 ms to leave the
    // bus before the host is told. Where nothing is being played, the next replay ends so.
    void Finish();

    // Nothing is sent any more from the next expiry on, and the waiting frame stays. A batch takes
    // the place of this command: before that expiry the replay goes on as if there had been no
    // pause, behind it the frames wait for Continue().
    void Pause();

    // Goes on, with the full interval of the frame that waits.
    void Continue();

    // Ends the replay and drops its frames. None is written after this returns; what the sockets
    // have taken before still goes out on the bus.
    void Cancel();

  private:
    // Aligned as the word it is read and written as: by alignment clang decides whether to call a
    // library for it.
    struct alignas(uint64_t) Request {
        uint32_t handle;
        uint8_t gid;
        uint8_t sid;
        uint16_t none; // to the size of the word
    };
    static_assert(std::atomic<Request>::is_always_lock_free);

    // Main thread.
    bool Command(ReplayState next);
    void Join();
    NegtiveErrorCode Start();

    // Replay thread.
    void ReplayThreadFunc();
    void ArmTimer();
    void HandleStateMachineEvent(int nfds, const epoll_event* events);
    void SendNextFrame();
    void WriteFrame(const ReplayCanFrameType& frame);
    void ReplaySecondFinishSignal(SharedReplayState::Look seen);
    void Fail();

    // Replay thread, or main thread while there is none.
    void ClearStatusFlag();

    // Both threads.
    void SendReplayReadySignal();

    Kfifo replayFifo; // main thread writes, replay thread reads
    net::ZephCanComM& canComM_;

    SharedReplayState replayState;
    std::atomic<bool> threadRunning{false};
    std::atomic<bool> requestSignalFlag{false}; // a ready signal is out
    std::atomic<bool> signalDue{false};         // the link had no room for the last one
    std::atomic<bool> signalling{false};        // the thread decides on one, or sends it
    std::atomic<bool> finishTempStatus{false};  // the host has no more data
    std::atomic<bool> restartTimer{false};      // the waiting frame gets its full interval
    std::atomic<Request> lastRequest{};

    // The replay thread's, and the main thread's while there is none.
    bool queueFirstFlag = true;     // the next frame's timer is not armed: the ring ran empty
    bool finishTimeOutFlag = false; // the closing wait has begun
    bool failed = false;            // the last replay ended by a failure

    ReplayTimer timer_;
    std::thread replayThread; // joinable from the start of a replay until its end has been noticed
};
