#include "vcihost/SocketCan.h"

#include "vcihost/CandumpLog.h"
#include "vcihost/CandumpView.h"

#include <cstdlib>

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

// Records of can1 at 12.345678900 s, and the bytes that they borrow.
struct Frame {
    Frame(std::string_view id, std::string_view flags, std::string_view data)
        : bytes(BuildFrame(ParseHex("09 19 09 " + std::string(id) + " 341cdcdf02000000 " +
                                    std::string(flags) + std::string(data)))),
          record(CanFrameRecord::From(ParseMessage(bytes).value()).value()) {}
    Bytes bytes;
    CanFrameRecord record;
};

struct Error {
    explicit Error(std::string_view flags)
        : bytes(BuildFrame(ParseHex("68 06 341cdcdf02000000 09 03 0c00 05 23010000 " +
                                    std::string(flags) + "aabb"))),
          record(CanErrorRecord::From(ParseMessage(bytes).value()).value()) {}
    Bytes bytes;
    CanErrorRecord record;
};

constexpr uint64_t kWall = 1'700'000'000'123'456'789;

const Frame kClassic("23010000", "84", "deadbeef");
const Frame kExtended("23010080", "00", "");
const Frame kRemote("ff070000", "a8", "0000000000000000");
const Frame kFd("23010000", "e2", "1122");
const Frame kFdEsi("23010000", "f9", "000102030405060708090a0b");
const Error kReceivedError("82");
const Error kSentError("02");

TEST(SocketCan, PacketsOfFrames) {
    EXPECT_EQ(ToHex(SocketCanPacket(kClassic.record).bytes()), "00000123"
                                                               "04000000"
                                                               "deadbeef");
    EXPECT_EQ(ToHex(SocketCanPacket(kExtended.record).bytes()), "80000123"
                                                                "00000000");
    EXPECT_EQ(ToHex(SocketCanPacket(kRemote.record).bytes()), "400007ff"
                                                              "08000000");
    EXPECT_EQ(ToHex(SocketCanPacket(kFd.record).bytes()), "00000123"
                                                          "02050000"
                                                          "1122");
    EXPECT_EQ(ToHex(SocketCanPacket(kFdEsi.record).bytes()), "00000123"
                                                             "0c070000"
                                                             "000102030405060708090a0b");
}

TEST(SocketCan, ErrorsAreErrorFramesOfTheProtocolClass) {
    EXPECT_EQ(ToHex(SocketCanPacket(kReceivedError.record).bytes()), "20000008"
                                                                     "08000000"
                                                                     "0000000000030000");
    EXPECT_EQ(ToHex(SocketCanPacket(kSentError.record).bytes()), "20000008"
                                                                 "08000000"
                                                                 "0000800000030000");
}

TEST(CandumpLog, Lines) {
    EXPECT_EQ(CandumpLogLine(kClassic.record, kWall), "(1700000000.123456) can1 123#DEADBEEF\n");
    EXPECT_EQ(CandumpLogLine(kExtended.record, 5'000'000), "(0000000000.005000) can1 00000123#\n");
    EXPECT_EQ(CandumpLogLine(kRemote.record, kWall), "(1700000000.123456) can1 7FF#R8\n");
    EXPECT_EQ(CandumpLogLine(kFd.record, kWall), "(1700000000.123456) can1 123##11122\n");
    EXPECT_EQ(CandumpLogLine(kFdEsi.record, kWall),
              "(1700000000.123456) can1 123##3000102030405060708090A0B\n");
    EXPECT_EQ(CandumpLogLine(kReceivedError.record, kWall),
              "(1700000000.123456) can1 20000008#0000000000030000\n");
    EXPECT_EQ(CandumpLogLine(kSentError.record, kWall),
              "(1700000000.123456) can1 20000008#0000800000030000\n");
}

// A time zone for one test.
class TimeZone {
  public:
    explicit TimeZone(const char* name) {
        setenv("TZ", name, 1);
        tzset();
    }
    ~TimeZone() {
        unsetenv("TZ");
        tzset();
    }
};

TEST(CandumpLog, NameIsThatOfTheLocalTime) {
    const TimeZone zone("EET-2");
    EXPECT_EQ(CandumpLogName(kWall), "candump-2023-11-15_001320.log");
}

TEST(CandumpView, LinesWithDeviceTime) {
    CandumpView view(ViewTime::Device);
    EXPECT_EQ(view.Line(kClassic.record, kWall),
              " (12.345678900)  can1  RX - -  123   [4]  DE AD BE EF");
    EXPECT_EQ(view.Line(kFd.record, kWall), " (12.345678900)  can1  RX B -  123  [02]  11 22");
    EXPECT_EQ(view.Line(kFdEsi.record, kWall),
              " (12.345678900)  can1  RX B E  123  [12]  00 01 02 03 04 05 06 07 08 09 0A 0B");
    EXPECT_EQ(view.Line(kRemote.record, kWall),
              " (12.345678900)  can1  RX - -  7FF   [8]  remote request");
    EXPECT_EQ(
        view.Line(kSentError.record, kWall),
        " (12.345678900)  can1  TX - -  error code 3 at bit 12, position 5, in 123 [2] AA BB");
}

TEST(CandumpView, StandardIdentifiersMoveOnceAnExtendedOneHasCome) {
    CandumpView view(ViewTime::Device);
    EXPECT_EQ(view.Line(kExtended.record, kWall), " (12.345678900)  can1  TX - -  00000123   [0] ");
    EXPECT_EQ(view.Line(kClassic.record, kWall),
              " (12.345678900)  can1  RX - -       123   [4]  DE AD BE EF");
}

TEST(CandumpView, WallClockTimes) {
    const TimeZone zone("EET-2");
    EXPECT_EQ(CandumpView(ViewTime::Absolute).Line(kClassic.record, kWall),
              " (1700000000.123456)  can1  RX - -  123   [4]  DE AD BE EF");
    EXPECT_EQ(CandumpView(ViewTime::Date).Line(kClassic.record, kWall),
              " (2023-11-15 00:13:20.123456)  can1  RX - -  123   [4]  DE AD BE EF");
}

std::string TimeOf(CandumpView& view, uint64_t device) {
    CanFrameRecord record = kClassic.record;
    record.time = device;
    const std::string line = view.Line(record, kWall);
    return line.substr(1, line.find(')'));
}

TEST(CandumpView, TimesSinceTheLineBeforeAndSinceTheFirst) {
    CandumpView delta(ViewTime::Delta);
    CandumpView zero(ViewTime::Zero);
    const std::tuple<uint64_t, const char*, const char*> lines[] = {
        {5'000'000'000, "(000.000000)", "(000.000000)"},
        {5'000'001'999, "(000.000001)", "(000.000001)"},
        {7'500'001'999, "(002.500000)", "(002.500001)"},
        {7'000'001'999, "(000.000000)", "(002.000001)"}, // an error that came late
        {7'000'002'999, "(000.000001)", "(002.000002)"},
        {4'000'000'000, "(000.000000)", "(000.000000)"},
    };
    for (const auto& [device, sinceLast, sinceFirst] : lines) {
        EXPECT_EQ(TimeOf(delta, device), sinceLast) << device;
        EXPECT_EQ(TimeOf(zero, device), sinceFirst) << device;
    }
}

} // namespace
