// A schedule whose driver holds up a frame.

#include "modules/LinExecutorFixture.h"

namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

// The driver holds up one frame of cycles of three slots of 200 ms.
class LinExecutorLateTest : public LinExecutorTest {
  protected:
    LinExecutorLateTest() {
        for (const uint8_t pid : Bytes{1, 2, 3}) {
            Add(pid, 200000);
        }
    }

    // Frame `held`, counted from 0, until `until` ms behind its start. Gives the starts of it and
    // of the `count` behind it, in ms.
    std::vector<double> Starts(size_t held, double until, size_t count) {
        const size_t first = socket->Slots().size() + held;
        socket->delay = [this, first, until](size_t written) {
            if (written == first + 1) {
                const auto end = socket->Slots()[first].start + Milliseconds(until);
                std::this_thread::sleep_until(std::chrono::time_point_cast<Clock::duration>(end));
            }
        };
        Start();
        const auto slots = WaitForSlots(first + count + 1);
        executor.stop();
        std::vector<double> starts;
        for (size_t i = first; i < slots.size(); ++i) {
            starts.push_back(Ms(slots[i].start - slots[first].start));
        }
        return starts;
    }

    // The same for a frame that is held up by some milliseconds: once more where this machine has
    // held up the thread itself, so that the delay was none of those that are kept.
    std::vector<double> KeptStarts(size_t held, size_t count) {
        constexpr int kTries = 10;
        for (int left = kTries; left > 0; --left) {
            const auto starts = Starts(held, 204, count);
            if (starts[1] < 209.5) {
                return starts;
            }
        }
        ADD_FAILURE() << "this machine has held up the thread in each try";
        return std::vector<double>(count + 1);
    }
};

TEST_F(LinExecutorLateTest, ASlotThatStartsMillisecondsLateKeepsItsLength) {
    const auto starts = KeptStarts(0, 2);
    EXPECT_GE(starts[2] - starts[1], 198.0); // and not the 196 that are left
}

TEST_F(LinExecutorLateTest, TheFirstSlotOfACycleKeepsItsDelayTwice) {
    // The cycle is counted from the late start, and yet the slot before was to end earlier.
    const auto starts = KeptStarts(2, 2);
    EXPECT_GE(starts[2] - starts[1], 202.0);
}

TEST_F(LinExecutorLateTest, ASlotThatStartsMuchTooLateIsCaughtUp) {
    const auto starts = Starts(0, 260, 3);
    EXPECT_GE(starts[1], 260.0);
    EXPECT_LT(starts[2] - starts[1], 180.0);
    EXPECT_GE(starts[2], 398.0);
}

} // namespace
