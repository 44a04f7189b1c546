#include "hal/RegBlock.h"

namespace Hal {

namespace {

constexpr int kOutOfRange = -1;
constexpr int kReadFailed = -3;
constexpr int kBadField = -4;
constexpr uint8_t kWordBits = 32;

// A shift by 32 counts as a shift by 0, as the board's processor has it. Fields that end at bit 31
// owe their odd masks to this.
constexpr uint32_t AllOnesFrom(unsigned bit) {
    return ~0U << (bit % kWordBits);
}
constexpr uint32_t OnesBelow(uint8_t bit) {
    return (1U << bit) - 1U;
}

bool IsField(uint8_t startBit, uint8_t endBit) {
    return startBit <= endBit && endBit < kWordBits;
}

} // namespace

bool RegBlock::CheckOffset(uint32_t offset, uint32_t width) const {
    return isValid_ && uint64_t{offset} + width <= size_;
}

volatile uint32_t* RegBlock::Word(uint32_t offset) const {
    return reinterpret_cast<volatile uint32_t*>(mappedBase_ + offset);
}

int RegBlock::Write(uint32_t offset, uint32_t value) {
    if (!CheckOffset(offset, sizeof(uint32_t))) {
        return kOutOfRange;
    }
    *Word(offset) = value;
    return 0;
}

int RegBlock::Read(uint32_t offset, uint32_t& value) {
    if (!CheckOffset(offset, sizeof(uint32_t))) {
        return kOutOfRange;
    }
    value = *Word(offset);
    return 0;
}

int RegBlock::WriteBit(uint32_t offset, uint8_t bit, bool value) {
    if (!CheckOffset(offset, sizeof(uint32_t)) || bit >= kWordBits) {
        return kOutOfRange;
    }
    uint32_t word = 0;
    if (Read(offset, word) != 0) {
        return kReadFailed;
    }
    const uint32_t mask = 1U << bit;
    Write(offset, value ? word | mask : word & ~mask);
    return 0;
}

int RegBlock::ReadBit(uint32_t offset, uint8_t bit, bool& value) {
    if (!CheckOffset(offset, sizeof(uint32_t)) || bit >= kWordBits) {
        return kOutOfRange;
    }
    uint32_t word = 0;
    if (Read(offset, word) == 0) {
        value = (word >> bit & 1U) != 0;
    }
    return kReadFailed; // also after a good read: only the stored bit tells
}

int RegBlock::WriteRegion(uint32_t offset, uint8_t startBit, uint8_t endBit, uint32_t value) {
    if (!CheckOffset(offset, sizeof(uint32_t))) {
        return kOutOfRange;
    }
    if (!IsField(startBit, endBit)) {
        return kBadField;
    }
    const uint32_t keep = AllOnesFrom(endBit + 1U) | OnesBelow(startBit);
    uint32_t word = 0;
    Read(offset, word);
    return Write(offset, (word & keep) | value << startBit);
}

int RegBlock::ReadRegion(uint32_t offset, uint8_t startBit, uint8_t endBit, uint32_t& value) {
    if (!CheckOffset(offset, sizeof(uint32_t))) {
        return kOutOfRange;
    }
    if (!IsField(startBit, endBit)) {
        return kBadField;
    }
    const uint32_t mask = ~AllOnesFrom(endBit + 1U) | OnesBelow(startBit);
    uint32_t word = 0;
    Read(offset, word);
    value = (word & mask) >> startBit;
    return 0;
}

} // namespace Hal
