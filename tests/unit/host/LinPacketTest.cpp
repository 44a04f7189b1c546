#include "vcihost/LinPacket.h"

#include "utils/TempDir.h"
#include "vcihost/RecordFile.h"

#include <array>
#include <cstdio>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// LIN in capture files, as tshark (package tshark) reads them.

using namespace vcihost;
using testing::HasSubstr;

namespace {

// What a program prints; the test fails when it cannot be run.
std::string OutputOf(const std::string& command) {
    std::string text;
    FILE* const pipe = popen((command + " 2>/dev/null").c_str(), "r");
    std::array<char, 4096> buffer{};
    size_t got = 0;
    while (pipe != nullptr && (got = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) {
        text.append(buffer.data(), got);
    }
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0) << "failed or is not installed: " << command;
    return text;
}

// A frame of lin0 from 1.234567890 s to 1.237567890 s: PID, then status, error code, direction,
// length, eight bytes, both checksums.
Bytes Frame(const std::string& pid, const std::string& rest) {
    Bytes service = ParseHex("09 1a 00" + pid + "d202964900000000 92c9c34900000000" + rest);
    service.resize(103);
    return BuildFrame(service);
}

const Bytes kSent = Frame("50", "02 0000 00 02 1122000000000000 7c 7c");
const Bytes kClassic = Frame("7d", "02 0000 01 08 0102030405060708 db db");
const Bytes kNoResponse = Frame("11", "03 0100 01 04 1122334400000000 00 00");
const Bytes kFraming = Frame("11", "03 0200 01 01 aa 00000000000000 11 44");
const Bytes kParity = Frame("91", "03 0400 01 01 aa 00000000000000 c3 c3");
const Bytes kChecksum = Frame("11", "03 0800 01 01 aa 00000000000000 11 44");
const Bytes kOwnError = Frame("11", "03 1200 01 01 aa 00000000000000 44 44");
const Bytes kSleep = Frame("3c", "02 0000 00 08 00ffffffffffffff 00 00");
const Bytes kWakeup = BuildFrame(ParseHex("09 1b 00 d302964900000000 62d3994900000000"));

LinFrameRecord Record(const Bytes& bytes) {
    return LinFrameRecord::From(ParseMessage(bytes).value()).value();
}

std::string HexOf(const Bytes& bytes) {
    return ToHex(LinPacket(Record(bytes)).bytes());
}

// Revision and reserved bytes; length, kind and checksum type; PID, checksum, errors; bytes.
TEST(LinPacket, Frames) {
    EXPECT_EQ(HexOf(kSent), "01000000"
                            "22507c00"
                            "1122");
    EXPECT_EQ(HexOf(kClassic), "01000000"
                               "817ddb00"
                               "0102030405060708");
    EXPECT_EQ(HexOf(kNoResponse), "01000000"
                                  "00110001");
    EXPECT_EQ(HexOf(kFraming), "01000000"
                               "12111102"
                               "aa");
    EXPECT_EQ(HexOf(kOwnError), "01000000"
                                "12114402"
                                "aa");
}

TEST(LinPacket, Events) {
    EXPECT_EQ(ToHex(LinPacket(LinEvent::GoToSleep).bytes()), "010000000c000000b0b00001");
    EXPECT_EQ(ToHex(LinPacket(LinEvent::WakeUp).bytes()), "010000000c000000b0b00004");
}

// A file of all of these and a CAN frame.
void WriteSome(const std::string& path) {
    using Bus = RecordChannel::Bus;
    const RecordFileOptions options{{1000, 1'700'000'000'000'000'000, 5},
                                    {{Bus::Can, 0}, {Bus::Lin, 0}, {Bus::Lin, 1}},
                                    "/dev/link",
                                    "vcictl 1.2.3"};
    const auto writer = MakeRecordFile(path, options);
    const Bytes can = BuildFrame(ParseHex("09 19 08 23010000 d202964900000000 84 deadbeef"));
    writer->Write(CanFrameRecord::From(ParseMessage(can).value()).value());
    for (const Bytes& bytes :
         {kSent, kClassic, kNoResponse, kFraming, kParity, kChecksum, kOwnError, kSleep}) {
        writer->Write(Record(bytes));
    }
    writer->Write(LinWakeupRecord::From(ParseMessage(kWakeup).value()).value());
    RecordCounts counts{};
    counts[RecordChannel{Bus::Lin, 0}.Index()] = {9, 9};
    writer->Finish(counts);
}

TEST(LinPacket, TsharkReadsFrames) {
    const TempDir dir;
    WriteSome(dir / "a.pcapng");
    EXPECT_EQ(OutputOf("tshark -r " + dir / "a.pcapng" +
                       " -T fields -E separator=/s -E occurrence=f"
                       " -e frame.interface_name -e frame.packet_flags_direction"
                       " -e lin.message_format -e lin.message_type -e lin.length"
                       " -e lin.checksum_type -e lin.protected_id -e lin.frame_id -e lin.checksum"
                       " -Y 'lin.message_type == 0'"),
              "lin0 0x00000002 1 0 2 2 0x50 0x10 0x7c\n"
              "lin0 0x00000001 1 0 8 1 0x7d 0x3d 0xdb\n"
              "lin0 0x00000001 1 0 0 0 0x11 0x11 0x00\n"
              "lin0 0x00000001 1 0 1 2 0x11 0x11 0x11\n"
              "lin0 0x00000001 1 0 1 2 0x91 0x11 0xc3\n"
              "lin0 0x00000001 1 0 1 2 0x11 0x11 0x11\n"
              "lin0 0x00000001 1 0 1 2 0x11 0x11 0x44\n"
              "lin0 0x00000002 1 0 8 1 0x3c 0x3c 0x00\n");
}

TEST(LinPacket, TsharkReadsErrors) {
    const TempDir dir;
    WriteSome(dir / "a.pcapng");
    EXPECT_EQ(OutputOf("tshark -r " + dir / "a.pcapng" +
                       " -T fields -E separator=/s -E occurrence=f"
                       " -e lin.errors.no_slave_response -e lin.errors.framing_error"
                       " -e lin.errors.parity_error -e lin.errors.checksum_error"
                       " -e frame.comment -Y 'lin.message_type == 0'"),
              "0 0 0 0 \n"
              "0 0 0 0 \n"
              "1 0 0 0 \n"
              "0 1 0 0 \n"
              "0 0 1 0 \n"
              "0 0 0 1 \n"
              "0 1 0 0 framing error, error code 0x0010\n"
              "0 0 0 0 \n");
}

TEST(LinPacket, TsharkReadsEventsAndTimes) {
    const TempDir dir;
    WriteSome(dir / "a.pcapng");
    EXPECT_EQ(OutputOf("TZ=UTC tshark -r " + dir / "a.pcapng" +
                       " -T fields -E separator=/s -E occurrence=f -e frame.time_epoch"
                       " -e frame.packet_flags_direction -e lin.event_id"
                       " -Y 'lin.message_type == 3'"),
              "1700000001.237566890 0x00000002 0xb0b00001\n"
              "1700000001.234566891 0x00000000 0xb0b00004\n");
    EXPECT_THAT(OutputOf("tshark -V -r " + dir / "a.pcapng"),
                testing::AllOf(HasSubstr("Go-to-Sleep event by Go-to-Sleep frame"),
                               HasSubstr("Wake-up event by Wake-up signal")));
}

TEST(LinPacket, CapinfosReadsBothKindsOfInterfaces) {
    const TempDir dir;
    WriteSome(dir / "a.pcapng");
    const std::string text = OutputOf("capinfos " + dir / "a.pcapng");
    EXPECT_THAT(text, HasSubstr("Number of packets:   11\n"));
    EXPECT_THAT(text, HasSubstr("Number of interfaces in file: 3\n"));
    EXPECT_THAT(text, HasSubstr("Name = can0\n                     Encapsulation = SocketCAN"));
    for (const char* const name : {"lin0", "lin1"}) {
        EXPECT_THAT(text, HasSubstr(std::string("Name = ") + name +
                                    "\n                     Encapsulation = Local Interconnect "
                                    "Network"));
    }
}

TEST(LinPacket, TheTextLogHasNoPlaceForLin) {
    const TempDir dir;
    const RecordFileOptions options{{}, {{RecordChannel::Bus::Lin, 1}}, "/dev/link", ""};
    try {
        MakeRecordFile(dir / "a.log", options);
        FAIL();
    } catch (const FileError& error) {
        EXPECT_EQ(error.what(), "'" + dir / "a.log" +
                                    "': the text log of candump cannot hold the frames of lin1; "
                                    "record to a file that ends with .pcapng");
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "a.log"));
}

} // namespace
