#include "vcihost/Session.h"

#include "host/FakeDevice.h"
#include "vcihost/DeviceTime.h"

#include <gtest/gtest.h>

using namespace vcihost;
using namespace std::chrono_literals;

namespace {

const char kRequest[] = "00 02000000 1001 01000000 0000000000";
const char kTime[] = "00 0a000000 1001 d202964900000000 00000000 0000000000";
const char kDrop[] = "00 0e000000 6801 d202964900000000 01040001 00000000 0000000000";

class SessionTest : public testing::Test {
  protected:
    // Asks a device that answers the first request so.
    std::optional<Answer> Ask(const std::vector<std::string>& answers,
                              std::chrono::milliseconds timeout = 5s) {
        device_ = std::make_unique<FakeDevice>(FakeDevice::Table({{kRequest, answers}}));
        transport_ = Transport::Open(device_->path(), Waiter());
        Session session(*transport_, [this](const Bytes& bytes) { aside.push_back(ToHex(bytes)); });
        return session.Ask(SyncRequest(), timeout);
    }

    std::vector<std::string> aside;

  private:
    std::unique_ptr<FakeDevice> device_;
    std::unique_ptr<Transport> transport_;
};

TEST_F(SessionTest, APositiveAnswerHasGidAndSidOfTheRequest) {
    const auto answer = Ask({kTime});
    ASSERT_TRUE(answer);
    EXPECT_FALSE(answer->refusal);
    EXPECT_EQ(ToHex(answer->bytes), ToHex(ParseHex(kTime)));
    EXPECT_GE(answer->received, answer->sent);
    EXPECT_TRUE(aside.empty());
}

TEST_F(SessionTest, ARefusalNamesGidSidAndHandle) {
    const auto answer = Ask({"00 05000000 6802 0a 10 01 01000000 0000"});
    ASSERT_TRUE(answer);
    ASSERT_TRUE(answer->refusal);
    EXPECT_EQ(answer->refusal->code, 10);
}

TEST_F(SessionTest, ARefusalThatNamesNothingIsAnAnswerToo) {
    const auto answer = Ask({"00 05000000 6802 0f 00 00 00000000 0000"});
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->refusal->code, 15);
}

TEST_F(SessionTest, MessagesOfOthersArePassedAside) {
    const std::vector<std::string> others = {
        kDrop,
        "00 05000000 6802 0a 10 01 07000000 0000",               // another handle
        "00 05000000 6802 0a 10 02 01000000 0000",               // another service
        "00 05000000 6802 0a 14 01 01000000 0000",               // another group
        "00 0a000000 1002 d202964900000000 00000000 0000000000", // another service's answer
        "00",                                                    // no frame
    };
    auto all = others;
    all.emplace_back(kTime);
    ASSERT_TRUE(Ask(all));
    ASSERT_EQ(aside.size(), others.size());
    for (size_t i = 0; i < others.size(); ++i) {
        EXPECT_EQ(aside[i], ToHex(ParseHex(others[i])));
    }
}

TEST_F(SessionTest, NoAnswerInTimeIsNothing) {
    EXPECT_FALSE(Ask({}, 30ms));
    EXPECT_FALSE(Ask({kDrop}, 30ms));
    EXPECT_EQ(aside.size(), 1U);
}

TEST(Session, WhatWaitedBeforeAnswersNothing) {
    FakeDevice device(FakeDevice::Table({{"00 02000000 1001 02000000 0000000000", {kTime}}}));
    const auto transport = Transport::Open(device.path(), Waiter());
    std::vector<std::string> aside;
    Session session(*transport, [&](const Bytes& bytes) { aside.push_back(ToHex(bytes)); });
    EXPECT_FALSE(session.Ask(SyncRequest(), 10ms)); // handle 1: no answer
    const Bytes stale = ParseHex("00 0a000000 1001 0000000000000000 00000000 0000000000");
    device.Say(stale);
    const auto answer = session.Ask(SyncRequest(), 5s); // handle 2
    ASSERT_TRUE(answer);
    EXPECT_EQ(TimeInAnswer(*ParseMessage(answer->bytes)), 1234567890U);
    EXPECT_EQ(aside, std::vector<std::string>{ToHex(stale)});
}

TEST(Session, HandlesCountFromOne) {
    FakeDevice device([](const Bytes&) { return std::vector<Bytes>{ParseHex(kTime)}; });
    const auto transport = Transport::Open(device.path(), Waiter());
    Session session(*transport);
    session.Ask(SyncRequest(), 5s);
    session.Ask(SyncRequest(), 5s);
    const auto received = device.Received();
    ASSERT_EQ(received.size(), 2U);
    EXPECT_EQ(ToHex(received[0]), "00020000001001010000000000000000");
    EXPECT_EQ(ToHex(received[1]), "00020000001001020000000000000000");
}

TEST(Session, ARequestWithoutGidAndSidIsNotSent) {
    FakeDevice device(FakeDevice::Silent);
    const auto transport = Transport::Open(device.path(), Waiter());
    Session session(*transport);
    EXPECT_THROW(session.Ask(Bytes{0x10}, 10ms), std::invalid_argument);
    EXPECT_TRUE(device.Received().empty());
}

TEST(SessionTell, SendsUnderTheNextHandleAndWaitsForNothing) {
    FakeDevice device(FakeDevice::Silent);
    const auto transport = Transport::Open(device.path(), Waiter());
    Session session(*transport);
    EXPECT_EQ(session.Tell(SyncRequest(), 5s), 1U);
    EXPECT_EQ(session.Tell(SyncRequest(), 5s), 2U);
    EXPECT_FALSE(session.Ask(SyncRequest(), 20ms));
    ASSERT_EQ(device.Received().size(), 3U);
    EXPECT_EQ(ToHex(device.Received()[1]), "00020000001001020000000000000000");
    EXPECT_EQ(ToHex(device.Received()[2]), "00020000001001030000000000000000");
}

} // namespace
