#pragma once

#include "vcihost/CanRecord.h"
#include "vcihost/Percentile.h"
#include "vcihost/ReplayRequest.h"

#include <deque>
#include <map>

namespace vcihost {

// How the frames of one channel and identifier went. Times in nanoseconds; what could not be
// measured is empty. A plain value.
struct ReplayFrameReceipt {
    uint8_t channel = 0;
    CanFrame frame; // identifier and kind
    uint64_t due = 0;
    uint64_t sent = 0; // the channel's record has them
    Spread late;       // against the file's times, counted from the first frame that was seen
    // How far the time since the frame before on the channel was from that of the file.
    std::optional<int64_t> spacingP99;
    std::optional<int64_t> spacingMax;

    uint64_t Lost() const { return due - sent; }
};

// A replay beside what the channels have recorded of it.
//
// Frames do not overtake each other on a channel, so a record is that of the first frame due which
// looks like it, and those before it are lost. Of frames that look all alike it cannot be seen
// which are lost, only how many. Used on one thread.
class ReplayReceipt {
  public:
    ReplayReceipt() = default;
    // Moved, the frames that wait keep pointing at the elements of the map; copied, they would not.
    ReplayReceipt(ReplayReceipt&&) = default;
    ReplayReceipt& operator=(ReplayReceipt&&) = default;

    // The next frame that the device was given; `at` is microseconds since the first one.
    void Due(const ReplayFrame& frame, uint64_t at);

    // Something that a channel has recorded; what was received is not looked at.
    void Seen(const CanFrameRecord& record);

    // The replay goes on after a pause: lateness is counted anew.
    void Resumed();

    uint64_t TotalDue() const { return due_; }
    uint64_t TotalSent() const { return sent_; }
    uint64_t Others() const { return others_; } // sent on the channels, and none of the file's

    // From the first frame that was seen to the last one, without pauses; the second is what the
    // file has between them. Nothing for less than two.
    std::optional<uint64_t> Ran() const;
    std::optional<uint64_t> Planned() const;

    // By channel, then by identifier.
    std::vector<ReplayFrameReceipt> Frames() const;

    // A frame that was seen.
    struct Sighting {
        int64_t at; // when it was due, nanoseconds
        uint64_t time;
    };

  private:
    struct Key {
        uint8_t channel;
        uint32_t id;
        bool extended;
        bool remote;
        bool fd;

        auto operator<=>(const Key&) const = default;
    };

    // What is collected of one identifier.
    struct Times {
        uint64_t due = 0;
        std::vector<int64_t> late;
        std::vector<int64_t> spacing;
    };

    // A frame that was not seen yet.
    struct Waiting {
        Times* times;
        int64_t at; // nanoseconds
        Key key;
        bool brs;
        uint8_t requested;
        Bytes data;
    };

    static bool Looks(const Waiting& waiting, const Key& key, const CanFrameRecord& record);
    void Take(const Waiting& waiting, uint64_t time);

    std::map<Key, Times> times_; // whose elements stay where they are
    std::map<uint8_t, std::deque<Waiting>> waiting_;
    std::map<uint8_t, Sighting> last_; // of each channel, since the last pause
    std::optional<Sighting> first_;    // since the last pause
    std::optional<Sighting> latest_;
    uint64_t ran_ = 0; // before the last pause
    uint64_t planned_ = 0;
    uint64_t due_ = 0;
    uint64_t sent_ = 0;
    uint64_t others_ = 0;
};

} // namespace vcihost
