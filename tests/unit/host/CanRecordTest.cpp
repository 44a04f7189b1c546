#include "vcihost/CanRecord.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

// Holds the bytes that a record borrows.
struct Held {
    explicit Held(std::string_view hex) : bytes(ParseHex(hex)) {}
    std::optional<CanFrameRecord> Frame() const {
        return CanFrameRecord::From(ParseMessage(bytes).value());
    }
    std::optional<CanErrorRecord> Error() const {
        return CanErrorRecord::From(ParseMessage(bytes).value());
    }
    Bytes bytes;
};

TEST(CanRecord, SwitchNamesTheChannelByItsCode) {
    EXPECT_EQ(ToHex(CanRecordSwitchRequest(0, true)), "09160801");
    EXPECT_EQ(ToHex(CanRecordSwitchRequest(5, false)), "09160d00");
}

TEST(CanRecord, ClassicFrame) {
    // Service length 20, can1, 123, 1.234567890 s, received, DLC 4, 4 bytes; handle and tail.
    const Held held("00 14000000 09 19 09 23010000 d202964900000000 84 deadbeef 00000000 000000");
    const auto record = held.Frame();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->channel, 1);
    EXPECT_EQ(record->id, 0x123U);
    EXPECT_FALSE(record->extended || record->remote || record->fd || record->brs || record->esi);
    EXPECT_TRUE(record->received);
    EXPECT_EQ(record->time, 1234567890U);
    EXPECT_EQ(record->dlc, 4);
    EXPECT_EQ(ToHex(record->data), "deadbeef");
    EXPECT_EQ(record->Length(), 4);
    EXPECT_EQ(record->Text(), "123#DEADBEEF");
}

TEST(CanRecord, ExtendedFrameThatWasSentWithoutData) {
    const Held held("00 10000000 09 19 0d ffffff9f 0000000000000000 00 00000000 000000");
    const auto record = held.Frame();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->channel, 5);
    EXPECT_TRUE(record->extended);
    EXPECT_FALSE(record->received);
    EXPECT_EQ(record->Text(), "1FFFFFFF#");
}

TEST(CanRecord, RemoteFrameHasNoDataWhateverTravelsInItsPlace) {
    const Held held("00 14000000 09 19 08 23010000 0100000000000000 a4 00000000 00000000 000000");
    const auto record = held.Frame();
    ASSERT_TRUE(record);
    EXPECT_TRUE(record->remote);
    EXPECT_FALSE(record->brs);
    EXPECT_EQ(record->data.size(), 0U);
    EXPECT_EQ(record->Length(), 4);
    EXPECT_EQ(record->Text(), "123#R4");
    const Held none("00 10000000 09 19 08 23010000 0100000000000000 20 00000000 000000");
    EXPECT_EQ(none.Frame()->Text(), "123#R");
}

TEST(CanRecord, CanFdFrame) {
    // 12 bytes, DLC 9, received, FD, BRS and ESI.
    const Held held("00 1c000000 09 19 08 23010080 0100000000000000 f9 000102030405060708090a0b "
                    "00000000 000000");
    const auto record = held.Frame();
    ASSERT_TRUE(record);
    EXPECT_TRUE(record->fd && record->brs && record->esi && record->extended);
    EXPECT_FALSE(record->remote);
    EXPECT_EQ(record->dlc, 9);
    EXPECT_EQ(record->Length(), 12);
    EXPECT_EQ(record->Text(), "00000123##3000102030405060708090A0B");
    const Held plain("00 11000000 09 19 08 23010000 0100000000000000 41 aa 00000000 0000");
    EXPECT_EQ(plain.Frame()->Text(), "123##0AA");
}

TEST(CanRecord, NoFrameHasMoreBytesThanItsKind) {
    const std::string head = "09 19 08 23010000 0100000000000000 ";
    const Bytes classic = BuildFrame(ParseHex(head + "88 112233445566778899"));
    EXPECT_EQ(CanFrameRecord::From(*ParseMessage(classic))->Length(), 8);
    std::string data;
    for (int i = 0; i < 200; ++i) {
        data += "55";
    }
    const Bytes fd = BuildFrame(ParseHex(head + "c0" + data));
    EXPECT_EQ(CanFrameRecord::From(*ParseMessage(fd))->Length(), 64);
    const Bytes error =
        BuildFrame(ParseHex("68 06 0100000000000000 08 03 0000 00 00000000 80" + data));
    EXPECT_EQ(CanErrorRecord::From(*ParseMessage(error))->data.size(), 64U);
}

TEST(CanRecord, Error) {
    // Service length 22: time 2 ns, can2, code 3, bit 300, position 5, 00000123 extended, received,
    // frame type 1, protocol 0, ESI, DLC 2, 2 bytes.
    const Held held("00 1600 0000 68 06 0200000000000000 0a 03 2c01 05 23010080 d2 aabb "
                    "00000000 0000000000");
    const auto record = held.Error();
    ASSERT_TRUE(record);
    EXPECT_EQ(record->time, 2U);
    EXPECT_EQ(record->channel, 2);
    EXPECT_EQ(record->code, 3);
    EXPECT_EQ(record->bit, 300);
    EXPECT_EQ(record->position, 5);
    EXPECT_EQ(record->id, 0x123U);
    EXPECT_TRUE(record->extended && record->received && record->esi);
    EXPECT_EQ(record->frameType, 1);
    EXPECT_EQ(record->protocol, 0);
    EXPECT_EQ(record->dlc, 2);
    EXPECT_EQ(ToHex(record->data), "aabb");
    EXPECT_EQ(record->Text(), "error code 3 at bit 300, position 5, in 00000123 [2] AA BB");
    EXPECT_FALSE(held.Frame());
}

TEST(CanRecord, ErrorWhileSendingWithoutData) {
    const Held held(
        "00 1400 0000 68 06 0200000000000000 08 07 0000 00 23010000 20 00000000 000000");
    const auto record = held.Error();
    ASSERT_TRUE(record);
    EXPECT_FALSE(record->received || record->extended || record->esi);
    EXPECT_EQ(record->frameType, 0);
    EXPECT_EQ(record->protocol, 1);
    EXPECT_EQ(record->Text(), "error code 7 at bit 0, position 0, in 123 [0]");
}

TEST(CanRecord, ShortRecordsAndOtherChannelsAreNone) {
    const std::string frame = "09 19 08 23010000 0100000000000000 84";
    const std::string error = "68 06 0100000000000000 08 03 0000 00 00000000 80";
    for (const std::string& whole : {frame, error}) {
        const Bytes service = ParseHex(whole);
        for (size_t size = 2; size <= service.size(); ++size) {
            const Bytes bytes = BuildFrame(std::span(service).first(size));
            const auto message = ParseMessage(bytes);
            const bool read = CanFrameRecord::From(*message) || CanErrorRecord::From(*message);
            EXPECT_EQ(read, size == service.size()) << whole << " cut to " << size;
        }
    }
    for (const char* const channel : {"07", "0e", "00", "ff"}) {
        const Bytes bytes =
            BuildFrame(ParseHex(std::string("09 19 ") + channel + " 23010000 0100000000000000 80"));
        EXPECT_FALSE(CanFrameRecord::From(*ParseMessage(bytes))) << channel;
        const Bytes errorBytes = BuildFrame(
            ParseHex(std::string("68 06 0100000000000000 ") + channel + " 03 0000 00 00000000 80"));
        EXPECT_FALSE(CanErrorRecord::From(*ParseMessage(errorBytes))) << channel;
    }
}

} // namespace
