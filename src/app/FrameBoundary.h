#pragma once

#include <cstdint>
#include <functional>

// Finds the way back to the start of a frame. The read ring is a stream of bytes without marks: a
// frame that was cut short or carries a wrong length leaves the read index somewhere inside the
// next one, behind where it was, or past what has arrived. From there every later frame would be
// misread, and the bytes at the index would be treated again without end.
//
// So after such a frame nothing is treated until new bytes arrive. When the index had gone past
// what had arrived, and the new bytes begin with a whole frame of a known group, reading goes on
// there; otherwise it goes on at the index, as soon as as many bytes have arrived as were skipped.
// When the index stayed or went back, it goes on with the new bytes. A frame that is merely not
// complete yet is treated once for each arrival of bytes. Lives on the main thread.
class FrameBoundary {
  public:
    // `isGroup` tells the group ids that requests are routed by; `maxFrame`: bytes of the longest
    // frame that a service takes.
    FrameBoundary(std::function<bool(uint8_t gid)> isGroup, uint32_t maxFrame);

    // Takes the ring as it is found, once it is mapped: what an earlier daemon left behind may be
    // beyond sense, or a frame that has not arrived whole and waits for more.
    void Start();

    // Before a frame is treated: false when there is nothing to treat until more bytes arrive.
    bool Begin();

    // Behind it: `fault` says that it was refused for its header. Compares where the read index
    // has gone with what had arrived at Begin().
    void End(bool fault);

    // True from an End() that left the boundary in doubt until a Begin() that found it.
    bool InDoubt() const { return state_ != State::Sure; }

  private:
    enum class State {
        Sure,       // the read index stands at the start of a frame, or the ring is empty
        Incomplete, // a frame of a known group has not arrived whole
        Ahead,      // a fault has moved the index past what had arrived
        Behind,     // a fault has left the index where it was or moved it back
    };
    enum class Match {
        Whole, // a whole frame of a known group
        Begun, // the beginning of one, as far as can be told
        None,
    };

    void Lose(State state, uint32_t in);
    bool FindFrame(uint32_t in);
    Match FrameAt(uint32_t index, uint32_t end) const;

    std::function<bool(uint8_t)> isGroup_;
    uint32_t maxFrame_;
    State state_ = State::Sure;
    uint32_t seenIn_ = 0;    // write index at the last Begin(): what lies before it is not news
    uint32_t startOut_ = 0;  // read index at the last Begin()
    uint32_t candidate_ = 0; // where a new frame may begin while Ahead or Behind
};
