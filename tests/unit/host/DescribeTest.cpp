#include "vcihost/Describe.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

std::string Request(std::string_view hex) {
    return DescribeRequest(ParseHex(hex)).text;
}
std::string Message(std::string_view hex) {
    return DescribeMessage(ParseHex(hex)).text;
}

TEST(Describe, RequestsOfGroup16) {
    EXPECT_EQ(Request("00 02000000 1001 44332211 0000000000"), "sync request, handle 0x11223344");
    EXPECT_EQ(Request("00 02000000 1001 00000000 0000000000"), "sync request");
    EXPECT_EQ(Request("00 0a000000 1002 d202964900000000 00000000 0000000000"),
              "sync follow-up, host time 1.234567890 s");
    EXPECT_EQ(Request("00 03000000 1003 01 00000000 00000000"), "sync node: be master");
    EXPECT_EQ(Request("00 03000000 1003 00 00000000 00000000"), "sync node: be slave");
    EXPECT_EQ(Request("00 03000000 1003 02 00000000 00000000"), "sync node: 2 (no mode)");
    EXPECT_EQ(Request("00 04000000 1004 0101 00000000 000000"), "sync state: go up");
    EXPECT_EQ(Request("00 04000000 1004 0100 00000000 000000"), "sync state: go down");
    EXPECT_EQ(Request("00 04000000 1004 0001 00000000 000000"), "sync state: leave it as it is");
    EXPECT_EQ(Request("00 04000000 1004 0102 00000000 000000"), "sync state: 1 2 (no state)");
}

TEST(Describe, RequestsThatNobodyKnows) {
    EXPECT_EQ(Request("00 02000000 1963 00000000 0000000000"), "group 25 service 99");
    EXPECT_EQ(Request("00 03000000 1963 05 00000000 00000000"),
              "group 25 service 99, payload of 1 byte");
    EXPECT_EQ(Request("00 03000000 1001 00 00000000 00000000"),
              "sync request with an unknown payload of 1 byte");
    EXPECT_EQ(Request("000102"), "malformed: too short, 3 of at least 16 bytes");
}

TEST(Describe, AnswersOfGroup16) {
    EXPECT_EQ(Message("00 0a000000 1001 d202964900000000 00000000 0000000000"),
              "device time 1.234567890 s");
    EXPECT_EQ(Message("00 0a000000 1002 d202964900000000 00000000 0000000000"),
              "device time 1.234567890 s");
    EXPECT_EQ(Message("00 0a000000 1003 d202964900000000 00000000 0000000000"),
              "done, device time 1.234567890 s");
    EXPECT_EQ(Message("00 0a000000 1004 d202964900000000 00000000 0000000000"),
              "done, device time 1.234567890 s");
}

TEST(Describe, ARefusalIsToldByName) {
    const auto refusal = DescribeMessage(ParseHex("00 05000000 68 02 0a 10 01 44332211 0000"));
    EXPECT_EQ(refusal.kind, "refusal");
    EXPECT_EQ(refusal.text, "refused: ERROR_LENGTH (10) to group 16 service 1, handle 0x11223344");
    ASSERT_EQ(refusal.fields.size(), 7U);
    EXPECT_EQ(refusal.fields[2].name, "code");
    EXPECT_EQ(std::get<uint64_t>(refusal.fields[2].value), 10U);
    EXPECT_EQ(refusal.fields[3].name, "code_name");
    EXPECT_EQ(std::get<std::string>(refusal.fields[3].value), "ERROR_LENGTH");
    EXPECT_EQ(refusal.fields[6].name, "handle");
    EXPECT_EQ(std::get<uint64_t>(refusal.fields[6].value), 0x11223344U);
}

TEST(Describe, ASyncDropIsAnUpload) {
    const auto upload = DescribeMessage(
        ParseHex("00 0e000000 68 01 d202964900000000 01 04 00 01 00000000 0000000000"));
    EXPECT_EQ(upload.kind, "upload");
    EXPECT_EQ(upload.text, "sync line dropped at 1.234567890 s");
}

TEST(Describe, UploadsOfGroup104ThatNobodyKnows) {
    const auto upload = DescribeMessage(ParseHex("00 03000000 68 05 01 00000000 00000000"));
    EXPECT_EQ(upload.kind, "upload");
    EXPECT_EQ(upload.text, "group 104 service 5, payload of 1 byte");
    EXPECT_EQ(Message("00 03000000 68 01 01 00000000 00000000"),
              "bus trouble with an unknown payload of 1 byte");
}

TEST(Describe, BytesThatAreNoFrame) {
    EXPECT_EQ(DescribeMessage({}).kind, "malformed");
    EXPECT_EQ(Message("00 02000000 1001 00000000 000000000000000000"),
              "malformed: 20 bytes, but service length 2 makes a frame of 16");
}

// A device may send anything: whatever comes is described, none of it read out of bounds.
TEST(Describe, EveryShortMessageIsDescribed) {
    for (size_t size = 0; size <= 40; ++size) {
        for (const int n : {0, 1, 2, 5, 10, 14, 255}) {
            for (const int gid : {16, 104, 9}) {
                for (int sid = 0; sid < 8; ++sid) {
                    Bytes bytes(size);
                    const Bytes header{0,
                                       static_cast<uint8_t>(n),
                                       0,
                                       0,
                                       0,
                                       static_cast<uint8_t>(gid),
                                       static_cast<uint8_t>(sid)};
                    std::copy_n(header.begin(), std::min(size, header.size()), bytes.begin());
                    EXPECT_FALSE(DescribeMessage(bytes).text.empty());
                    EXPECT_FALSE(DescribeRequest(bytes).text.empty());
                }
            }
        }
    }
}

} // namespace
