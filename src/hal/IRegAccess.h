#pragma once

#include <cstdint>

namespace Hal {

// A block of 32-bit FPGA registers. Offsets are bytes from the base of the block. Operations return
// 0 on success and a negative number otherwise; none locks, so a block has one owner and is used
// from that owner's thread (reads without side effects may come from any thread).
class IRegAccess {
  public:
    virtual ~IRegAccess() = default;

    // Sets or clears bit 0..31 by read-modify-write. -1: offset or bit out of range; -3:
    // unreadable.
    virtual int WriteBit(uint32_t offset, uint8_t bit, bool value) = 0;

    // Stores bit 0..31 in `value`. -1: offset or bit out of range. Returns -3 also on success:
    // callers look at `value` only.
    virtual int ReadBit(uint32_t offset, uint8_t bit, bool& value) = 0;

    // Write or read one word. -1: offset out of range or no block.
    virtual int Write(uint32_t offset, uint32_t value) = 0;
    virtual int Read(uint32_t offset, uint32_t& value) = 0;

    // Write or read the field of bits `startBit`..`endBit`. -1: offset out of range or no block;
    // -4: `startBit` above `endBit`, or `endBit` above 31. A written value is not cut to the width
    // of the field, and a field that ends at bit 31 is or-ed in on writing and reads as 0.
    virtual int WriteRegion(uint32_t offset, uint8_t startBit, uint8_t endBit, uint32_t value) = 0;
    virtual int ReadRegion(uint32_t offset, uint8_t startBit, uint8_t endBit, uint32_t& value) = 0;

    // True when the block is there. A block that is not answers every operation with -1.
    bool isValid() const { return isValid_; }

  protected:
    bool isValid_ = false;
};

} // namespace Hal
