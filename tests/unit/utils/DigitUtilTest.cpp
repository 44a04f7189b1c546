#include "utils/DigitUtil.h"

#include <gtest/gtest.h>

namespace {

constexpr uint8_t kBytes[] = {0x81, 0x92, 0xA3, 0xB4};

TEST(DigitUtil, IsOneInstance) {
    EXPECT_NE(DigitUtil::GetInstance(), nullptr);
    EXPECT_EQ(DigitUtil::GetInstance(), DigitUtil::GetInstance());
}

TEST(DigitUtil, ReadsLittleEndianBytes) {
    EXPECT_EQ(DigitUtil::GetInstance()->LittleEndianToUint32(kBytes), 0xB4A39281U);
    EXPECT_EQ(DigitUtil::GetInstance()->LittleEndianToUint16(kBytes), 0x9281U);
}

TEST(DigitUtil, ReadsBigEndianBytes) {
    EXPECT_EQ(DigitUtil::GetInstance()->BigEndianToUint32(kBytes), 0x8192A3B4U);
    EXPECT_EQ(DigitUtil::GetInstance()->BigEndianToUint16(kBytes), 0x8192U);
}

TEST(DigitUtil, ReadsAtAnyAlignment) {
    constexpr uint8_t kShifted[] = {0xFF, 0x01, 0x02, 0x03, 0x04, 0xFF};
    EXPECT_EQ(DigitUtil::GetInstance()->LittleEndianToUint32(kShifted + 1), 0x04030201U);
    EXPECT_EQ(DigitUtil::GetInstance()->BigEndianToUint32(kShifted + 1), 0x01020304U);
}

TEST(DigitUtil, CombinesHighAboveLow) {
    EXPECT_EQ(DigitUtil::GetInstance()->CombineUint32(0x89ABCDEFU, 0x81234567U),
              0x89ABCDEF81234567ULL);
    EXPECT_EQ(DigitUtil::GetInstance()->CombineUint32(0, 0xFFFFFFFFU), 0xFFFFFFFFULL);
}

TEST(DigitUtil, ReversesBytesBothWays) {
    const auto digits = DigitUtil::GetInstance();
    EXPECT_EQ(digits->Be16toLe(0x8192), 0x9281U);
    EXPECT_EQ(digits->Le16toBe(0x8192), 0x9281U);
    EXPECT_EQ(digits->Be32toLe(0x8192A3B4U), 0xB4A39281U);
    EXPECT_EQ(digits->Le32toBe(0x8192A3B4U), 0xB4A39281U);
    EXPECT_EQ(digits->Be64toLe(0x8192A3B4C5D6E7F8ULL), 0xF8E7D6C5B4A39281ULL);
    EXPECT_EQ(digits->Le64toBe(0x8192A3B4C5D6E7F8ULL), 0xF8E7D6C5B4A39281ULL);
}

} // namespace
