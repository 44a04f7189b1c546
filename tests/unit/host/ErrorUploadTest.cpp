#include "vcihost/ErrorUpload.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

std::optional<ErrorUpload> Read(std::string_view hex) {
    const Bytes bytes = ParseHex(hex);
    const auto message = ParseMessage(bytes);
    return message ? ErrorUpload::From(*message) : std::nullopt;
}

TEST(ErrorUpload, ASyncDropIsReadFieldByField) {
    const auto upload = Read("00 0e000000 68 01 d202964900000000 01 04 00 01 00000000 0000000000");
    ASSERT_TRUE(upload);
    EXPECT_EQ(upload->time, 1234567890U);
    EXPECT_EQ(upload->count, 1);
    EXPECT_EQ(upload->busType, ErrorUpload::SyncLine);
    EXPECT_EQ(upload->channel, 0);
    EXPECT_EQ(upload->code, ErrorUpload::Dropped);
    EXPECT_TRUE(upload->IsSyncDrop());
    EXPECT_EQ(upload->Text(), "sync line dropped at 1.234567890 s");
}

TEST(ErrorUpload, OtherBusesAreNamed) {
    const std::pair<int, const char*> buses[] = {
        {0, "CAN"}, {1, "K-line"}, {2, "LIN"}, {3, "CAN FD"}, {4, "sync line"}, {5, "bus type 5"}};
    for (const auto& [type, name] : buses) {
        ErrorUpload upload{};
        upload.busType = static_cast<uint8_t>(type);
        EXPECT_EQ(upload.BusText(), name);
    }
    EXPECT_EQ((ErrorUpload{1'000'000'000, 2, 0, 9, 7}.Text()),
              "CAN channel 9: error code 7 at 1.000000000 s, 2 errors");
    EXPECT_EQ((ErrorUpload{1, 1, 4, 0, 2}.Text()),
              "sync line channel 0: error code 2 at 0.000000001 s");
}

TEST(ErrorUpload, OtherMessagesAreNone) {
    EXPECT_FALSE(Read("00 05000000 68 02 0a 10 01 00000000 0000"));
    EXPECT_FALSE(Read("00 0d000000 68 01 d202964900000000 01 04 00 00000000 0000"));
    EXPECT_FALSE(Read("00 0e000000 10 01 d202964900000000 01 04 00 01 00000000 0000000000"));
}

} // namespace
