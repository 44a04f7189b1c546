#pragma once

#include <cstdint>
#include <memory>

// Byte order. Holds no state: safe from any thread.
class DigitUtil {
  public:
    static std::shared_ptr<DigitUtil> GetInstance();

    // The number in the first 4 or 2 bytes of `bytes`.
    uint32_t LittleEndianToUint32(const uint8_t* bytes) const;
    uint16_t LittleEndianToUint16(const uint8_t* bytes) const;
    uint32_t BigEndianToUint32(const uint8_t* bytes) const;
    uint16_t BigEndianToUint16(const uint8_t* bytes) const;

    // `hi` above `lo`.
    uint64_t CombineUint32(uint32_t hi, uint32_t lo) const;

    // The value with its bytes reversed, whatever the order of the machine.
    uint16_t Be16toLe(uint16_t value) const;
    uint32_t Be32toLe(uint32_t value) const;
    uint64_t Be64toLe(uint64_t value) const;
    uint16_t Le16toBe(uint16_t value) const;
    uint32_t Le32toBe(uint32_t value) const;
    uint64_t Le64toBe(uint64_t value) const;
};
