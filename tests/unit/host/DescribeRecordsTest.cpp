#include "vcihost/Describe.h"
#include "vcihost/Frame.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

std::string Request(std::string_view service) {
    return DescribeRequest(BuildFrame(ParseHex(service))).text;
}
Description Message(std::string_view service) {
    return DescribeMessage(BuildFrame(ParseHex(service)));
}

TEST(DescribeRecords, Switch) {
    EXPECT_EQ(Request("09 16 08 01"), "record switch: can0, on");
    EXPECT_EQ(Request("09 16 0d 00"), "record switch: can5, off");
    EXPECT_EQ(Request("09 16 07 02"), "record switch: channel 7 (no CAN channel), 2 (no state)");
    EXPECT_EQ(Request("09 16 08"), "record switch with an unknown payload of 1 byte");
    EXPECT_EQ(Message("09 16 d202964900000000").text, "done, device time 1.234567890 s");
    EXPECT_EQ(Message("09 16 d202964900000000").kind, "answer");
    EXPECT_EQ(Message("09 16 00").text, "record switch with an unknown payload of 1 byte");
}

TEST(DescribeRecords, Frame) {
    const auto frame = Message("09 19 09 23010000 d202964900000000 84 deadbeef");
    EXPECT_EQ(frame.kind, "upload");
    EXPECT_EQ(frame.text, "can1 rx 123#DEADBEEF at 1.234567890 s");
    ASSERT_EQ(frame.fields.size(), 7U);
    EXPECT_EQ(frame.fields[2].name, "device_ns");
    EXPECT_EQ(std::get<uint64_t>(frame.fields[2].value), 1234567890U);
    EXPECT_EQ(frame.fields[5].name, "frame");
    EXPECT_EQ(std::get<std::string>(frame.fields[5].value), "123#DEADBEEF");
    EXPECT_EQ(Message("09 19 08 23010080 0000000000000000 61 aa").text,
              "can0 tx 00000123##1AA at 0.000000000 s");
    EXPECT_EQ(Message("09 19 08").text, "CAN frame record with an unknown payload of 1 byte");
}

TEST(DescribeRecords, Error) {
    const auto error = Message("68 06 d202964900000000 0a 03 2c01 05 23010000 82 aabb");
    EXPECT_EQ(error.kind, "upload");
    EXPECT_EQ(error.text, "can2 rx error code 3 at bit 300, position 5, in 123 [2] AA BB at "
                          "1.234567890 s");
    ASSERT_EQ(error.fields.size(), 13U);
    EXPECT_EQ(error.fields[5].name, "code");
    EXPECT_EQ(std::get<uint64_t>(error.fields[5].value), 3U);
    EXPECT_EQ(Message("68 06 00").text, "CAN error record with an unknown payload of 1 byte");
}

} // namespace
