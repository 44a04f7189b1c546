#include "utils/DigitUtil.h"

std::shared_ptr<DigitUtil> DigitUtil::GetInstance() {
    static const auto instance = std::make_shared<DigitUtil>();
    return instance;
}

uint32_t DigitUtil::LittleEndianToUint32(const uint8_t* bytes) const {
    return uint32_t{LittleEndianToUint16(bytes + 2)} << 16 | LittleEndianToUint16(bytes);
}

uint16_t DigitUtil::LittleEndianToUint16(const uint8_t* bytes) const {
    return static_cast<uint16_t>(bytes[1] << 8 | bytes[0]);
}

uint32_t DigitUtil::BigEndianToUint32(const uint8_t* bytes) const {
    return uint32_t{BigEndianToUint16(bytes)} << 16 | BigEndianToUint16(bytes + 2);
}

uint16_t DigitUtil::BigEndianToUint16(const uint8_t* bytes) const {
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

uint64_t DigitUtil::CombineUint32(uint32_t hi, uint32_t lo) const {
    return uint64_t{hi} << 32 | lo;
}

uint16_t DigitUtil::Be16toLe(uint16_t value) const {
    return __builtin_bswap16(value);
}
uint32_t DigitUtil::Be32toLe(uint32_t value) const {
    return __builtin_bswap32(value);
}
uint64_t DigitUtil::Be64toLe(uint64_t value) const {
    return __builtin_bswap64(value);
}
uint16_t DigitUtil::Le16toBe(uint16_t value) const {
    return __builtin_bswap16(value);
}
uint32_t DigitUtil::Le32toBe(uint32_t value) const {
    return __builtin_bswap32(value);
}
uint64_t DigitUtil::Le64toBe(uint64_t value) const {
    return __builtin_bswap64(value);
}
