// How long the slots are that a host downloads, and when that changes.

#include "modules/VciLinMsgFixture.h"

#include <algorithm>

namespace {

// Of a slot that is written late, the next seems early: by less than this, in ms.
constexpr double kLateness = 50;

TEST_F(VciLinMsgServiceTest, ADownloadedSlotIsInMillisecondsOfTwoBytes) {
    BeCommander(0);
    ExpectDone({6, 1, 0, 1, 0x01, 8, 0x2C, 0x01}); // at no bit rate
    const double gap = Gap();
    EXPECT_GE(gap, 300 - kLateness);
    EXPECT_LT(gap, 5000); // and not the 11 s of the bytes the other way round
}

TEST_F(VciLinMsgServiceTest, ADownloadedSlotIsOfTheLengthDownloadedAndNotOfTheResponses) {
    SetBaudrate(0, 1000);
    BeCommander(0);
    ExpectDone({6, 3, 0, 1, 0x01, 2, 0xAA, 0xBB, 0, 0, 0, 0, 0, 0});
    ExpectDone({6, 1, 0, 1, 0x01, 8, 1, 0});
    EXPECT_GE(Gap(), 139 - kLateness); // (124 + 15) bits, and not (64 + 15)
}

TEST_F(VciLinMsgServiceTest, AResponseOfARunningScheduleStartsItAnewWithTheSlotItNeeds) {
    SetBaudrate(0, 1000);
    BeCommander(0);
    ExpectDone({6, 1, 0, 2, 0x01, 2, 1, 0, 0x02, 2, 1, 0}); // (64 + 15) bits each
    struct Write {
        pid_t thread;
        std::chrono::steady_clock::time_point time;
    };
    std::vector<Write> writes; // one behind the other, never two at once
    lin.sockets[0]->beforeWrite = [&] {
        writes.push_back({gettid(), std::chrono::steady_clock::now()});
    };
    ExpectDone({6, 6, 0, 1});
    auto frames = WaitForFrames(1); // the second slot would be next
    Bytes answer;
    EXPECT_EQ(Told([&] { answer = Ask({6, 3, 0, 1, 0x01, 8, 1, 2, 3, 4, 5, 6, 7, 8}); }), "");
    ExpectShort(answer, 6, 3);
    EXPECT_TRUE(lin.schedules.getExecutorStatus(0));
    const auto add = [&frames](const std::vector<LinSocket::Frame>& more) {
        frames.insert(frames.end(), more.begin(), more.end());
    };
    add(Frames(0));        // all that were sent before
    add(WaitForFrames(2)); // at least two of those behind it
    lin.schedules.stopExecutor(0);
    const auto anew = std::find_if(writes.begin(), writes.end(), [&](const Write& write) {
        return write.thread != writes[0].thread;
    });
    const auto first = static_cast<size_t>(anew - writes.begin());
    ASSERT_LT(first + 1, frames.size());
    EXPECT_EQ(Pids({frames[first], frames[first + 1]}), (Bytes{0xC1, 0x42}));
    EXPECT_EQ(frames[first][17], 8);
    const std::chrono::duration<double, std::milli> slot = anew[1].time - anew[0].time;
    EXPECT_GE(slot.count(), 139 - kLateness); // (124 + 15) bits
}

} // namespace
