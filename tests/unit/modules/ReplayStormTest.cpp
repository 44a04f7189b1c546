// Requests in any order and at any moment, also for ThreadSanitizer.

#include "modules/ReplayFixture.h"

#include <random>

namespace {

class ReplayStormTest : public ReplayTest {
  protected:
    static constexpr uint32_t kIds = 0x800;
    static constexpr int64_t kShortWait = 20000; // nanoseconds: so that replays end in it

    // What is sent must have been downloaded since the last cancel or end, in its order, with
    // nothing left out.
    void ExpectInOrder() {
        for (const uint32_t id : sent) {
            ASSERT_EQ(id, expected % kIds);
            ++expected;
        }
        sent.clear();
        ASSERT_LE(expected, downloaded);
    }

    uint32_t downloaded = 0;
    uint32_t expected = 0;
};

TEST_F(ReplayStormTest, RequestsAtAnyMomentLoseNoFrameAndRepeatNone) {
    std::mt19937 random(20240917);
    const auto upTo = [&random](uint32_t most) {
        return std::uniform_int_distribution<uint32_t>(0, most)(random);
    };
    TimerSettings settings;
    settings.Replace(kClosingWait, kShortWait);
    const auto deadline = Clock::now() + kDeadline;
    for (int i = 0; i < 3000 || (ends < 30 && Clock::now() < deadline); ++i) {
        switch (upTo(9)) {
        case 0:
            Command(kPause);
            break;
        case 1:
        case 2:
            Command(kContinue);
            break;
        case 3:
            Command(kFinish);
            break;
        case 4:
            Command(kCancel);
            Listen();
            ExpectInOrder();
            expected = downloaded; // the rest is dropped
            break;
        case 5:
            ExpectRefused({18, 2}, kWrongSid);
            break;
        case 6:
            std::this_thread::sleep_for(std::chrono::microseconds(upTo(300)));
            break;
        default: {
            // Never so much that the ring could fill: it holds what was not sent yet.
            const uint32_t count = std::min(upTo(20), 500 - (downloaded - expected));
            auto batch = Numbered(count, 0, upTo(60));
            for (HostFrame& frame : batch) {
                frame.id = downloaded++ % kIds;
            }
            Bytes request = Batch(batch);
            request.resize(std::max<size_t>(request.size(), 12)); // one without frames
            Send(request);
            break;
        }
        }
        Listen();
        ExpectInOrder();
        if (HasFatalFailure()) {
            return;
        }
        replies.clear();
    }
    EXPECT_GE(ends, 30);
    Command(kContinue);
    Await([&] { return expected + sent.size() == downloaded; }, "rest of the frames");
    ExpectInOrder();
}

} // namespace
