#include "vcihost/NegativeResponse.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

std::optional<NegativeResponse> Read(std::string_view hex) {
    const Bytes bytes = ParseHex(hex);
    const auto message = ParseMessage(bytes);
    return message ? NegativeResponse::From(*message) : std::nullopt;
}

TEST(NegativeResponse, TellsCodeAndRequest) {
    const auto response = Read("00 05000000 68 02 0e 01 63 44332211 0000");
    ASSERT_TRUE(response);
    EXPECT_EQ(response->code, 14);
    EXPECT_EQ(response->gid, 1);
    EXPECT_EQ(response->sid, 99);
    EXPECT_EQ(response->handle, 0x11223344U);
    EXPECT_FALSE(response->IsAnonymous());
    EXPECT_EQ(response->Text(), "WRONG_SID (14) to group 1 service 99, handle 0x11223344");
}

TEST(NegativeResponse, TheLastTwoBytesMeanNothing) {
    EXPECT_EQ(Read("00 05000000 68 02 0a 10 01 00000000 beef")->Text(),
              "ERROR_LENGTH (10) to group 16 service 1, handle 0x00000000");
}

TEST(NegativeResponse, OfAnUnknownGroupNamesNoRequest) {
    const auto response = Read("00 05000000 68 02 0f 00 00 00000000 0000");
    ASSERT_TRUE(response);
    EXPECT_TRUE(response->IsAnonymous());
    EXPECT_EQ(response->Text(), "WRONG_GID (15) to group 0 service 0, handle 0x00000000");
}

TEST(NegativeResponse, ACodeWithoutANameIsToldByNumber) {
    for (const int code : {1, 9, 36, 46, 85, 152, 159, 161, 255}) {
        NegativeResponse response{};
        response.code = static_cast<uint8_t>(code);
        EXPECT_EQ(response.CodeText(), "unnamed code " + std::to_string(code));
    }
    EXPECT_EQ((NegativeResponse{0, 0, 0, 0}.CodeText()), "NO_ERROR (0)");
    EXPECT_EQ((NegativeResponse{160, 0, 0, 0}.CodeText()), "CAN_SENDFRAME_WITH_ACKOFF_MODE (160)");
}

TEST(NegativeResponse, OtherMessagesAreNone) {
    EXPECT_FALSE(Read("00 02000000 10 01 000000000000000000"));              // another group
    EXPECT_FALSE(Read("00 05000000 68 01 0e 01 63 44332211 0000"));          // another service
    EXPECT_FALSE(Read("00 04000000 68 02 0e 01 00 44332211 0000"));          // too short a section
    EXPECT_FALSE(Read("00 06000000 68 02 0e 01 63 00 44332211 0000000000")); // too long a one
}

} // namespace
