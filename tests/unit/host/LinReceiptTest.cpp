#include "vcihost/LinReceipt.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

constexpr uint64_t kMs = 1'000'000;
constexpr uint64_t kUs = 1000;
constexpr uint32_t kRate = 19200;

// 10 ms, 20 ms, 10 ms, the first identifier again: a cycle of 60 ms.
const std::vector<LinSlot> kTable{{0x10, 2, 10}, {0x11, 8, 20}, {0x12, 8, 10}, {0x10, 2, 20}};

// Frames at their due times from `start` on.
std::vector<LinSeen> Punctual(uint64_t start, int cycles) {
    std::vector<LinSeen> seen;
    uint64_t at = start;
    for (int i = 0; i < cycles; ++i) {
        for (const LinSlot& slot : kTable) {
            seen.push_back({slot.id, at, false});
            at += slot.slotMs * kMs;
        }
    }
    return seen;
}

LinReceipt Make(const std::vector<LinSeen>& seen, uint64_t stopped) {
    return LinReceipt::Make(kTable, kRate, seen, stopped);
}

TEST(LinReceipt, APunctualSchedule) {
    const auto receipt = Make(Punctual(1000 * kMs, 3), 1180 * kMs);
    EXPECT_EQ(receipt.planned, 60'000'000);
    EXPECT_EQ(receipt.measured, 60'000'000);
    EXPECT_EQ(receipt.others, 0U);
    const int64_t at[] = {0, 10'000'000, 30'000'000, 40'000'000};
    for (size_t i = 0; i < kTable.size(); ++i) {
        const LinSlotReceipt& slot = receipt.slots[i];
        EXPECT_EQ(slot.at, at[i]);
        EXPECT_EQ(slot.went, at[i]);
        EXPECT_EQ(slot.due, 3U);
        EXPECT_EQ(slot.seen, 3U);
        EXPECT_EQ(slot.lost, 0U);
        EXPECT_EQ(slot.failed, 0U);
        EXPECT_EQ(slot.late.median, 0);
        EXPECT_EQ(slot.Worst(), 0);
    }
}

TEST(LinReceipt, LatenessIsTakenWithinACycle) {
    auto seen = Punctual(1000 * kMs, 3);
    seen[1].start += 100 * kUs;
    seen[5].start -= 30 * kUs;
    seen[9].start += 70 * kUs;
    seen[9].failed = true;
    // The last cycle is 50 us late as a whole: only its first frame is.
    for (size_t i = 8; i < 12; ++i) {
        seen[i].start += 50 * kUs;
    }
    const auto receipt = Make(seen, 1180 * kMs);
    EXPECT_EQ(receipt.slots[1].late.earliest, -30'000);
    EXPECT_EQ(receipt.slots[1].late.median, 70'000);
    EXPECT_EQ(receipt.slots[1].late.p99, 100'000);
    EXPECT_EQ(receipt.slots[1].late.latest, 100'000);
    EXPECT_EQ(receipt.slots[1].Worst(), 100'000);
    EXPECT_EQ(receipt.slots[1].went, 10'070'000);
    EXPECT_EQ(receipt.slots[1].failed, 1U);
    EXPECT_EQ(receipt.slots[0].late.earliest, 0);
    EXPECT_EQ(receipt.slots[0].late.latest, 50'000);
    EXPECT_EQ(receipt.slots[2].late.latest, 0);
    EXPECT_EQ(receipt.measured, 60'000'000); // the lower one of 60.00 and 60.05 ms
}

TEST(LinReceipt, WorstIsTheFarthestEitherWay) {
    auto seen = Punctual(1000 * kMs, 2);
    seen[1].start -= 90 * kUs;
    seen[5].start += 20 * kUs;
    EXPECT_EQ(Make(seen, 1120 * kMs).slots[1].Worst(), 90'000);
}

TEST(LinReceipt, LossesInTheMiddleAtTheStartAndAtTheEnd) {
    auto seen = Punctual(1000 * kMs, 4);
    // The last two frames, all of the second cycle but its last one, and the very first frame.
    seen.erase(seen.end() - 2, seen.end());
    seen.erase(seen.begin() + 4, seen.begin() + 7);
    seen.erase(seen.begin());
    const auto receipt = Make(seen, 1240 * kMs);
    const uint64_t lost[] = {2, 1, 2, 1};
    for (size_t i = 0; i < kTable.size(); ++i) {
        EXPECT_EQ(receipt.slots[i].due, 4U) << i;
        EXPECT_EQ(receipt.slots[i].lost, lost[i]) << i;
        EXPECT_EQ(receipt.slots[i].Worst(), 0) << i;
    }
}

TEST(LinReceipt, ASlotThatWasNotOverWhenTheScheduleStoppedIsNotDue) {
    const auto seen = Punctual(1000 * kMs, 1);
    EXPECT_EQ(Make(seen, 1060 * kMs).slots[0].due, 1U);
    // The next cycle's first slot takes until 1070, its second one until 1090.
    EXPECT_EQ(Make(seen, 1070 * kMs - 1).slots[0].lost, 0U);
    EXPECT_EQ(Make(seen, 1070 * kMs).slots[0].lost, 1U);
    EXPECT_EQ(Make(seen, 1070 * kMs).slots[1].lost, 0U);
    EXPECT_EQ(Make(seen, 1090 * kMs).slots[1].lost, 1U);
    // Two cycles later, in the middle of the third slot.
    const auto later = Make(seen, 1215 * kMs);
    const uint64_t due[] = {4, 4, 3, 3};
    for (size_t i = 0; i < kTable.size(); ++i) {
        EXPECT_EQ(later.slots[i].due, due[i]) << i;
    }
    // A stop before the frame, which cannot be.
    EXPECT_EQ(Make(seen, 5).slots[0].due, 1U);
}

TEST(LinReceipt, FramesOfNoEntryAndOutOfOrderAreOthers) {
    auto seen = Punctual(1000 * kMs, 2);
    seen.insert(seen.begin(), LinSeen{0x3C, 990 * kMs, false});
    seen.insert(seen.begin() + 3, LinSeen{0x3C, 1012 * kMs, false});
    seen.insert(seen.begin() + 5, LinSeen{0x11, 5, false});
    seen.push_back({0x11, ~uint64_t{0}, false});
    const auto receipt = Make(seen, 1120 * kMs);
    EXPECT_EQ(receipt.others, 4U);
    for (const LinSlotReceipt& slot : receipt.slots) {
        EXPECT_EQ(slot.seen, 2U);
        EXPECT_EQ(slot.lost, 0U);
        EXPECT_EQ(slot.Worst(), 0);
    }
}

TEST(LinReceipt, WhenNothingWasSeenNothingIsKnown) {
    const auto receipt = Make({}, 1000 * kMs);
    EXPECT_FALSE(receipt.measured);
    for (const LinSlotReceipt& slot : receipt.slots) {
        EXPECT_EQ(slot.due, 0U);
        EXPECT_FALSE(slot.went || slot.late.median || slot.Worst());
    }
}

TEST(LinReceipt, OneEntryAndSlotsThatAreTooShort) {
    const std::vector<LinSlot> table{{0x10, 8, 1}};
    std::vector<LinSeen> seen;
    for (uint64_t i = 0; i < 10; ++i) {
        seen.push_back({0x10, i * 7239 * kUs, false});
    }
    const auto receipt = LinReceipt::Make(table, kRate, seen, 10 * 7239 * kUs);
    EXPECT_EQ(receipt.planned, 7'239'000);
    EXPECT_EQ(receipt.slots[0].due, 10U);
    EXPECT_EQ(receipt.slots[0].lost, 0U);
    EXPECT_EQ(receipt.slots[0].Worst(), 0);
}

} // namespace
