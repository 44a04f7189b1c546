#include "vcihost/LinRecord.h"

#include "vcihost/CandumpView.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

// The 17 words that the driver has measured: 1, 2, ... 17.
const char kTimings[] = "01000000 02000000 03000000 04000000 05000000 06000000 07000000 08000000 "
                        "09000000 0a000000 0b000000 0c000000 0d000000 0e000000 0f000000 10000000 "
                        "11000000";

// lin0 has sent 10#1122 from 1.234567890 s on, for 3 ms; `rest` begins with the status.
std::string Service(const std::string& rest) {
    return "09 1a 00 50 d202964900000000 92c9c34900000000 " + rest + kTimings;
}

// Holds the bytes that a record borrows.
struct Held {
    explicit Held(std::string_view service) : bytes(BuildFrame(ParseHex(service))) {}
    std::optional<LinFrameRecord> Frame() const {
        return LinFrameRecord::From(ParseMessage(bytes).value());
    }
    std::optional<LinWakeupRecord> Wakeup() const {
        return LinWakeupRecord::From(ParseMessage(bytes).value());
    }
    Bytes bytes;
};

const char kGood[] = "02 0000 00 02 1122333333333333 7c 7c ";

TEST(LinRecord, SwitchHasOneEntry) {
    EXPECT_EQ(ToHex(LinRecordSwitchRequest(0, true)), "090c010001");
    EXPECT_EQ(ToHex(LinRecordSwitchRequest(1, false)), "090c010100");
}

TEST(LinRecord, Frame) {
    const Held held(Service(kGood));
    ASSERT_EQ(held.bytes.size(), 116U);
    const auto record = held.Frame();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->channel, 0);
    EXPECT_EQ(record->pid, 0x50);
    EXPECT_EQ(record->start, 1234567890U);
    EXPECT_EQ(record->end, 1237567890U);
    EXPECT_FALSE(record->received || record->failed || record->HasError());
    EXPECT_EQ(record->length, 2);
    EXPECT_EQ(ToHex(record->data), "1122");
    EXPECT_EQ(record->checksum, 0x7C);
    EXPECT_EQ(record->calculated, 0x7C);
    for (size_t i = 0; i < record->timings.size(); ++i) {
        EXPECT_EQ(record->timings[i], i + 1) << kLinTimings[i];
    }
    EXPECT_EQ(record->ErrorText(), "");
    EXPECT_EQ(record->Text(), "10#1122");
    EXPECT_FALSE(held.Wakeup());
}

TEST(LinRecord, ErrorsInWords) {
    const std::pair<std::string, std::string> errors[] = {
        {"03 0100", "no response"},
        {"03 0200", "framing error"},
        {"03 0400", "parity error"},
        {"03 0800", "checksum error"},
        {"03 0f00", "no response, framing error, parity error, checksum error"},
        {"03 3000", "error code 0x0030"},
        {"03 0280", "framing error, error code 0x8000"},
        {"03 0000", "error of a code that the record does not hold"},
    };
    for (const auto& [code, text] : errors) {
        const Held held(Service(code + " 01 02 1122000000000000 7c 7c "));
        const auto record = held.Frame();
        ASSERT_TRUE(record);
        EXPECT_TRUE(record->HasError()) << code;
        EXPECT_TRUE(record->received);
        EXPECT_EQ(record->ErrorText(), text);
    }
}

TEST(LinRecord, WithoutAResponseThereAreNoBytes) {
    const Held held(Service("03 0100 01 04 1122334455667788 7c 7c "));
    EXPECT_EQ(held.Frame()->data.size(), 0U);
    EXPECT_EQ(held.Frame()->length, 4);
    EXPECT_EQ(held.Frame()->Text(), "10#");
    EXPECT_EQ(held.Frame()->ChecksumType(), LinChecksumType::Unknown);
}

TEST(LinRecord, ALengthAbove8LeavesEightBytes) {
    const Held held(Service("02 0000 01 ff 1122334455667788 00 00 "));
    EXPECT_EQ(held.Frame()->data.size(), 8U);
    EXPECT_EQ(held.Frame()->length, 255);
}

TEST(LinRecord, TheKindOfChecksumIsReckoned) {
    const auto type = [](const std::string& sums) {
        return Held(Service("02 0000 01 02 1122000000000000 " + sums)).Frame()->ChecksumType();
    };
    EXPECT_EQ(type("7c 7c "), LinChecksumType::Enhanced);
    EXPECT_EQ(type("cc cc "), LinChecksumType::Classic);
    EXPECT_EQ(type("00 7c "), LinChecksumType::Enhanced); // as calculated, when the bus has another
    EXPECT_EQ(type("cc 00 "), LinChecksumType::Classic);
    EXPECT_EQ(type("00 01 "), LinChecksumType::Unknown);
}

TEST(LinRecord, GoToSleep) {
    const std::string head = "09 1a 00 3c d202964900000000 92c9c34900000000 ";
    const auto isSleep = [&](const std::string& rest) {
        return Held(head + rest + kTimings).Frame()->IsGoToSleep();
    };
    EXPECT_TRUE(isSleep("02 0000 00 08 00ffffffffffffff 00 00 "));
    EXPECT_FALSE(isSleep("02 0000 00 08 01ffffffffffffff 00 00 "));
    EXPECT_FALSE(isSleep("03 0800 00 08 00ffffffffffffff 01 00 "));
    EXPECT_FALSE(isSleep("03 0100 00 08 00ffffffffffffff 00 00 "));
    EXPECT_FALSE(Held(Service("02 0000 00 08 00ffffffffffffff 00 00 ")).Frame()->IsGoToSleep());
}

TEST(LinRecord, Wakeup) {
    const Held held("09 1b 01 d202964900000000 62d3994900000000");
    ASSERT_EQ(held.bytes.size(), 32U);
    const auto record = held.Wakeup();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->channel, 1);
    EXPECT_EQ(record->start, 1234567890U);
    EXPECT_EQ(record->end, 1234817890U);
    EXPECT_FALSE(held.Frame());
}

TEST(LinRecord, ShortRecordsAndOtherChannelsAreNone) {
    for (const std::string& whole :
         {Service(kGood), std::string("09 1b 01 d202964900000000 62d3994900000000")}) {
        const Bytes service = ParseHex(whole);
        for (size_t size = 2; size <= service.size(); ++size) {
            const Bytes bytes = BuildFrame(std::span(service).first(size));
            const auto message = ParseMessage(bytes);
            const bool read = LinFrameRecord::From(*message) || LinWakeupRecord::From(*message);
            EXPECT_EQ(read, size == service.size()) << whole << " cut to " << size;
        }
        Bytes other = service;
        other[2] = 2;
        EXPECT_FALSE(LinFrameRecord::From(*ParseMessage(BuildFrame(other))));
        EXPECT_FALSE(LinWakeupRecord::From(*ParseMessage(BuildFrame(other))));
    }
}

TEST(LinRecord, LinesForPeople) {
    CandumpView view(ViewTime::Device);
    EXPECT_EQ(view.Line(*Held(Service(kGood)).Frame(), 0),
              " (1.234567890)  lin0  TX - -   10   [2]  11 22  checksum 7C enhanced");
    EXPECT_EQ(view.Line(*Held(Service("03 0800 01 02 1122000000000000 cd cc ")).Frame(), 0),
              " (1.234567890)  lin0  RX - -   10   [2]  11 22  checksum CD classic, checksum "
              "error");
    EXPECT_EQ(view.Line(*Held(Service("03 0100 01 02 1122000000000000 00 00 ")).Frame(), 0),
              " (1.234567890)  lin0  RX - -   10   [0]  no response");
    EXPECT_EQ(view.Line(*Held(Service("02 0000 01 01 11 00000000000000 01 02 ")).Frame(), 0),
              " (1.234567890)  lin0  RX - -   10   [1]  11  checksum 01");
    EXPECT_EQ(view.Line(*Held("09 1b 01 d202964900000000 62d3994900000000").Wakeup(), 0),
              " (1.234567890)  lin1  -- - -  wake-up signal");
}

} // namespace
