#include "vcihost/CanRequest.h"
#include "vcihost/Describe.h"
#include "vcihost/Frame.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

std::string Request(std::string_view service) {
    return DescribeRequest(BuildFrame(ParseHex(service))).text;
}
std::string Message(std::string_view service) {
    return DescribeMessage(BuildFrame(ParseHex(service))).text;
}

TEST(DescribeCan, RequestsOfGroup21) {
    EXPECT_EQ(Request("15 29 08 00 00 01 0a 45 0a 00 00 00 00"),
              "can timing: can0, classic, normal, nominal brp 1 sjw 10 seg1 69 seg2 10 (500k "
              "bit/s, sample point 87.5 %)");
    EXPECT_EQ(Request("15 29 08 00 00 01 0a 45 0a"),
              Request("15 29 08 00 00 01 0a 45 0a 00000000"));
    EXPECT_EQ(Request("15 29 0d 01 01 01 0a 45 0a 01 02 0e 05"),
              "can timing: can5, CAN FD, listen-only, nominal brp 1 sjw 10 seg1 69 seg2 10 (500k "
              "bit/s, sample point 87.5 %), data brp 1 sjw 2 seg1 14 seg2 5 (2M bit/s, sample "
              "point 75.0 %)");
    EXPECT_EQ(Request("15 29 07 02 03 00 00 00 00"),
              "can timing: channel 7 (no CAN channel), 2 (no choice), 3 (no choice), nominal brp 0 "
              "sjw 0 seg1 0 seg2 0");
    EXPECT_EQ(Request("15 2a 09 01 10"), "second sample point: can1, offset 16");
    EXPECT_EQ(Request("15 2a 09 00 10"), "second sample point: can1, off");
    EXPECT_EQ(Request("15 2b 08 00"), "termination: can0, no resistor");
    EXPECT_EQ(Request("15 2b 08 01"), "termination: can0, add the first resistor");
    EXPECT_EQ(Request("15 2b 08 02"), "termination: can0, add the second resistor");
    EXPECT_EQ(Request("15 2b 08 03"), "termination: can0, 3 (no setting)");
    EXPECT_EQ(Request("15 2c 0a 01"), "can status: can2, open");
    EXPECT_EQ(Request("15 2c 0a 00"), "can status: can2, close");
    EXPECT_EQ(Request("15 2d 0e 01"), "controller mode: channel 14 (no CAN channel), listen-only");
    EXPECT_EQ(Request("15 2d 08 00"), "controller mode: can0, normal");
}

TEST(DescribeCan, RequestsOfGroup22) {
    EXPECT_EQ(Request("16 33 08 03 23010000 0a00 01 11 23010080 0001 62 aabb 24010000 0000 20"),
              "periodic send: can0, 123#11 every 10 ms, 00000123##1AABB every 256 ms, stop 124#R");
    EXPECT_EQ(Request("16 34 09 02 23010000 04 deadbeef ff070000 22 0000"),
              "burst send: can1, 123#DEADBEEF, 7FF#R2");
    EXPECT_EQ(Request("16 34 09 00"), "burst send: can1, nothing");
    EXPECT_EQ(Request("16 35 0b 23010000 01 55"), "send without answer: can3, 123#55");
}

TEST(DescribeCan, EntriesThatDoNotFillThePayloadAreNotRead) {
    EXPECT_EQ(Request("16 34 09 02 23010000 04 deadbeef"),
              "burst send with an unknown payload of 11 bytes");
    EXPECT_EQ(Request("16 34 09 01 23010000 00 55"),
              "burst send with an unknown payload of 8 bytes");
    EXPECT_EQ(Request("16 33"), "periodic send with an unknown payload of 0 bytes");
    EXPECT_EQ(Request("15 29 08 00 00 01"), "can timing with an unknown payload of 4 bytes");
    EXPECT_EQ(Request("15 29 08 01 00 01 0a 45 0a"),
              "can timing with an unknown payload of 7 bytes");
}

TEST(DescribeCan, Answers) {
    for (const char* const sid : {"29", "2a", "2b", "2d"}) {
        EXPECT_EQ(Message(std::string("15") + sid), "done");
    }
    EXPECT_EQ(Message("15 2c d202964900000000"), "done, device time 1.234567890 s");
    EXPECT_EQ(Message("16 33 d202964900000000"), "accepted, device time 1.234567890 s");
    EXPECT_EQ(Message("16 34 d202964900000000"), "done, device time 1.234567890 s");
    EXPECT_EQ(Message("15 29 00"), "can timing with an unknown payload of 1 byte");
    EXPECT_EQ(Message("16 35"), "send without answer with an unknown payload of 0 bytes");
}

TEST(DescribeCan, FieldsAreForPrograms) {
    const auto request = DescribeRequest(BuildFrame(ParseHex("16 34 08 01 23010000 01 55")));
    ASSERT_EQ(request.fields.size(), 6U);
    EXPECT_EQ(request.fields[2].name, "channel");
    EXPECT_EQ(std::get<uint64_t>(request.fields[2].value), 8U);
    EXPECT_EQ(request.fields[4].name, "frames");
    EXPECT_EQ(std::get<std::string>(request.fields[4].value), "123#55");
}

TEST(DescribeCan, EveryShortPayloadIsDescribed) {
    for (const int gid : {21, 22}) {
        for (int sid = 40; sid < 56; ++sid) {
            for (size_t size = 2; size < 40; ++size) {
                for (const int fill : {0x00, 0x01, 0x08, 0x4F, 0xFF}) {
                    Bytes service(size, static_cast<uint8_t>(fill));
                    service[0] = static_cast<uint8_t>(gid);
                    service[1] = static_cast<uint8_t>(sid);
                    EXPECT_FALSE(DescribeRequest(BuildFrame(service)).text.empty());
                    EXPECT_FALSE(DescribeMessage(BuildFrame(service)).text.empty());
                }
            }
        }
    }
}

} // namespace
