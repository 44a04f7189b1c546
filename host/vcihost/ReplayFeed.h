#pragma once

#include <cstddef>

namespace vcihost {

// The device's ring: it holds so many frames, and asks for more when fewer than this are left.
constexpr size_t kReplayRing = 511;
constexpr size_t kReplayLow = 256;

// Frames of a batch. Two of them fit behind a request for more, whatever came between.
constexpr size_t kReplayBatch = 128;
static_assert(kReplayLow - 1 + 2 * kReplayBatch <= kReplayRing);

// How full the ring can be at most, which a host has to know: a frame that does not fit fails the
// replay. The device does not tell. It asks for more when the ring runs low, and once more while it
// takes a batch, if the ring is still low then. So a request for more may be older than the batch
// that was sent last, and says nothing about it then.
//
// To tell them apart, the host asks for something that is answered behind each batch: requests are
// treated in order, so what comes behind the answer knows of the batch. A plain value.
class ReplayFeed {
  public:
    // Frames that the ring has room for in any case.
    size_t Room() const { return kReplayRing - most_; }

    void Sent(size_t frames); // a batch, of at most Room() frames
    void Taken();             // all batches are known to be in the ring
    void Ready();             // the device has asked for more

    // Frames that have left the ring in any case.
    size_t Gone() const { return sent_ - most_; }

  private:
    size_t sent_ = 0;    // all in all
    size_t most_ = 0;    // in the ring
    size_t unknown_ = 0; // of batches that a request for more may not know of
};

} // namespace vcihost
