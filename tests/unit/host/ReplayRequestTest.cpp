#include "vcihost/ReplayRequest.h"

#include "vcihost/CanRequest.h"
#include "vcihost/Describe.h"
#include "vcihost/ReplayBar.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

Message Parsed(const Bytes& bytes) {
    return ParseMessage(bytes).value();
}

TEST(ReplayRequest, GoldenBytes) {
    const ReplayFrame frames[] = {{0, 0, ParseCanFrame("123#DEADBEEF")},
                                  {5, 0x7FFFFFFF, ParseCanFrame("00000123##1AABB")},
                                  {1, 100, ParseCanFrame("7FF#R2")},
                                  {2, 256, ParseCanFrame("124##0")}};
    EXPECT_EQ(ToSpacedHex(ReplayDataRequest(frames)), "12 01 04 00 "
                                                      "00 00 00 00 00 23 01 00 00 04 de ad be ef "
                                                      "05 ff ff ff 7f 23 01 00 80 62 aa bb "
                                                      "01 64 00 00 00 ff 07 00 00 22 00 00 "
                                                      "02 00 01 00 00 24 01 00 00 40");
    EXPECT_EQ(ToHex(ReplayRequest(kReplayFinishSid)), "1203");
    EXPECT_EQ(ToHex(ReplayRequest(kReplayCancelSid)), "1204");
    EXPECT_EQ(ToHex(ReplayRequest(kReplayPauseSid)), "1205");
    EXPECT_EQ(ToHex(ReplayRequest(kReplayContinueSid)), "1206");
    EXPECT_EQ(ToHex(CanProbeRequest(5)), "16340d00");
}

TEST(ReplayRequest, ABatchIsNoLargerThanTheRing) {
    const std::vector<ReplayFrame> full(kReplayRing, {0, 1, ParseCanFrame("123#")});
    EXPECT_EQ(ReplayDataRequest(full).size(), 4 + 511 * 10U);
    const std::vector<ReplayFrame> over(kReplayRing + 1, full[0]);
    EXPECT_THROW(static_cast<void>(ReplayDataRequest(over)), std::invalid_argument);
}

TEST(ReplayRequest, MessagesOfTheDevice) {
    const Bytes ready = BuildFrame(ParseHex("1202"));
    const Bytes end = BuildFrame(ParseHex("128003"));
    EXPECT_TRUE(IsReplayReady(Parsed(ready)));
    EXPECT_FALSE(IsReplayEnd(Parsed(ready)));
    EXPECT_TRUE(IsReplayEnd(Parsed(end)));
    EXPECT_FALSE(IsReplayReady(Parsed(end)));
    for (const char* const other : {"1203", "1280", "128004", "120200", "1102"}) {
        const Bytes bytes = BuildFrame(ParseHex(other));
        EXPECT_FALSE(IsReplayReady(Parsed(bytes))) << other;
        EXPECT_FALSE(IsReplayEnd(Parsed(bytes))) << other;
    }
}

TEST(ReplayRequest, InWords) {
    const auto request = [](std::string_view service) {
        return DescribeRequest(BuildFrame(ParseHex(service))).text;
    };
    const auto message = [](std::string_view service) {
        return DescribeMessage(BuildFrame(ParseHex(service)));
    };
    EXPECT_EQ(request("12 01 0200 00 00000000 23010000 01 aa  06 64000000 23010080 62 aabb"),
              "replay data: can0 123#AA after 0 us, channel 6 (no CAN channel) 00000123##1AABB "
              "after 100 us");
    std::string many = "12 01 0a00";
    for (int i = 0; i < 10; ++i) {
        many += " 01 00000000 23010000 00";
    }
    EXPECT_TRUE(request(many).ends_with(", can1 123# after 0 us and 2 more")) << request(many);
    EXPECT_EQ(request("12 01 0000"), "replay data: nothing");
    EXPECT_EQ(request("12 01 0100"), "replay data with an unknown payload of 2 bytes");
    EXPECT_EQ(request("12 03"), "replay finish: no more data comes");
    EXPECT_EQ(request("12 04"), "replay cancel");
    EXPECT_EQ(request("12 05"), "replay pause");
    EXPECT_EQ(request("12 06"), "replay continue");
    EXPECT_EQ(message("12 06").text, "done");
    EXPECT_EQ(message("12 06").kind, "answer");
    EXPECT_EQ(message("12 02").text, "ready for replay data");
    EXPECT_EQ(message("12 02").kind, "upload");
    EXPECT_EQ(message("12 80 03").text, "the replay has ended");
    EXPECT_EQ(message("12 80 03").kind, "upload");
    EXPECT_EQ(message("12 80 04").text, "replay end with an unknown payload of 1 byte");
}

TEST(ReplayFeed, NeverMoreThanTheRingHolds) {
    ReplayFeed feed;
    EXPECT_EQ(feed.Room(), 511U);
    feed.Sent(128);
    feed.Ready(); // says nothing new: there are fewer than 256 in any case
    EXPECT_EQ(feed.Room(), 383U);
    feed.Taken();
    feed.Sent(128);
    feed.Taken();
    feed.Sent(128);
    feed.Taken();
    EXPECT_EQ(feed.Room(), 127U);
    EXPECT_EQ(feed.Gone(), 0U);
    feed.Ready(); // knows of all batches
    EXPECT_EQ(feed.Room(), 256U);
    EXPECT_EQ(feed.Gone(), 129U);
    feed.Sent(128);
    feed.Ready(); // may be older than the batch
    EXPECT_EQ(feed.Room(), 128U);
    feed.Sent(128);
    EXPECT_EQ(feed.Room(), 0U);
    feed.Ready(); // may be older than both: neither was seen to be taken
    EXPECT_EQ(feed.Room(), 0U);
    feed.Taken();
    feed.Ready();
    EXPECT_EQ(feed.Room(), 256U);
}

TEST(ReplayBar, NeverAllBeforeTheEnd) {
    ReplayPosition position{999, 1000, 12, false, false};
    EXPECT_EQ(ReplayBarText(position),
              "[###################-]  99 %, 999 of 1000 frames, 12 s left");
    position.sent = 1000;
    position.leftSeconds = 0;
    EXPECT_EQ(ReplayBarText(position),
              "[###################-]  99 %, 1000 of 1000 frames, 0 s left");
    position.ended = true;
    EXPECT_EQ(ReplayBarText(position), "[####################] 100 %, 1000 of 1000 frames");
    EXPECT_EQ(ReplayBarText({0, 1000, 61, true, false}),
              "[--------------------]   0 %, 0 of 1000 frames, 1 min 01 s left, paused: space goes "
              "on");
    EXPECT_EQ(ReplayBarText({5, {}, {}, false, false}), "5 frames");
}

} // namespace
