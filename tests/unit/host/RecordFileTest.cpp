#include "vcihost/RecordFile.h"

#include "utils/TempDir.h"
#include "utils/WireFormat.h"
#include "vcihost/PcapngWriter.h"

#include <array>
#include <cstdio>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Files of records as the programs of the field read them: capinfos and tshark (package tshark),
// log2asc (can-utils).

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

Bytes Frame(std::string_view service) {
    return BuildFrame(ParseHex(service));
}

// Device times from 1.234567890 s on.
const Bytes kClassic = Frame("09 19 08 23010000 d202964900000000 84 deadbeef");
const Bytes kRemote = Frame("09 19 09 ff070000 d302964900000000 a4 00000000");
const Bytes kExtended = Frame("09 19 09 23010080 d402964900000000 00");
const Bytes kFd = Frame("09 19 0d 24010000 d502964900000000 69 000102030405060708090a0b");
const Bytes kFdPlain = Frame("09 19 0d 25010000 d602964900000000 d1 aa");
const Bytes kError = Frame("68 06 d702964900000000 0d 03 0c00 05 23010000 02 aabb");

std::vector<RecordChannel> CanChannels(const std::vector<uint8_t>& numbers) {
    std::vector<RecordChannel> channels;
    for (const uint8_t number : numbers) {
        channels.push_back({RecordChannel::Bus::Can, number});
    }
    return channels;
}

void WriteSome(const std::string& path) {
    const RecordFileOptions options{
        {1000, 1'700'000'000'000'000'000, 5}, CanChannels({0, 1, 5}), "/dev/link", "vcictl 1.2.3"};
    const auto writer = MakeRecordFile(path, options);
    for (const Bytes& bytes : {kClassic, kRemote, kExtended, kFd, kFdPlain}) {
        writer->Write(CanFrameRecord::From(ParseMessage(bytes).value()).value());
    }
    writer->Lost(2);
    writer->Lost(1);
    writer->Write(CanErrorRecord::From(ParseMessage(kError).value()).value());
    writer->Finish({{{1, 1}, {5, 2}, {}, {}, {}, {3, 3}}});
}

TEST(RecordFile, CapinfosReadsSectionAndInterfaces) {
    const TempDir dir;
    WriteSome(dir / "a.pcapng");
    const std::string text = OutputOf("capinfos " + dir / "a.pcapng");
    EXPECT_THAT(text, HasSubstr("Number of packets:   6\n"));
    EXPECT_THAT(text, HasSubstr("File encapsulation:  SocketCAN\n"));
    EXPECT_THAT(text, HasSubstr("First packet time:   2023-11-14 22:13:21.234566890\n"));
    EXPECT_THAT(text, HasSubstr("vehicle communication interface at /dev/link\n"));
    EXPECT_THAT(text, HasSubstr("Capture oper-sys:    Linux "));
    EXPECT_THAT(text, HasSubstr("Capture application: vcictl 1.2.3\n"));
    EXPECT_THAT(text, HasSubstr("time = device time + 1699999999999999000 ns."));
    EXPECT_THAT(text, HasSubstr("Number of interfaces in file: 3\n"));
    for (const char* const name : {"can0", "can1", "can5"}) {
        EXPECT_THAT(text, HasSubstr(std::string("Name = ") + name +
                                    "\n                     Encapsulation = SocketCAN"));
    }
    EXPECT_THAT(text, HasSubstr("Time precision = nanoseconds (9)\n"));
    EXPECT_THAT(text, HasSubstr("Number of stat entries = 1\n                     "
                                "Number of packets = 3\n"));
}

TEST(RecordFile, TsharkReadsEveryRecord) {
    const TempDir dir;
    WriteSome(dir / "a.pcapng");
    EXPECT_EQ(OutputOf("tshark -r " + dir / "a.pcapng" +
                       " -T fields -E separator=/s -E occurrence=f"
                       " -e frame.interface_name -e frame.packet_flags_direction -e can.id"
                       " -e can.len -e can.flags.xtd -e can.flags.rtr -e data.data"),
              "can0 0x00000001 291 4 0 0 deadbeef\n"
              "can1 0x00000001 2047 4 0 1 \n"
              "can1 0x00000002 291 0 1 0 \n"
              "can5 0x00000002 292 12 0  000102030405060708090a0b\n"
              "can5 0x00000001 293 1 0  aa\n"
              "can5 0x00000002  8   \n");
}

TEST(RecordFile, TsharkReadsFlagsErrorsAndLosses) {
    const TempDir dir;
    WriteSome(dir / "a.pcapng");
    EXPECT_EQ(OutputOf("tshark -r " + dir / "a.pcapng" +
                       " -T fields -E separator=/s -E occurrence=f"
                       " -e canfd.flags.brs -e canfd.flags.esi -e can.flags.err -e can.err.prot"
                       " -e can.err.prot.type.tx -e frame.drop_count -e frame.comment"),
              "  0    \n"
              "  0    \n"
              "  0    \n"
              "1 0     \n"
              "0 1     \n"
              "  1 1 1 3 error code 3 at bit 12, position 5, in 123 [2] AA BB\n");
}

// The link types that other kinds of channels will need.
TEST(RecordFile, TsharkReadsInterfacesOfOtherKinds) {
    const TempDir dir;
    {
        BufferedFile file(dir / "a.pcapng");
        PcapngWriter writer(file, {});
        writer.AddInterface({"lin0", "", LinkType::Lin});
        writer.AddInterface({"eth0", "", LinkType::Ethernet});
        const Bytes lin = ParseHex("01 00 00 00 10 3c 00 00 55");
        const Bytes ethernet = ParseHex("ffffffffffff 020000000001 88b5 0102");
        writer.AddPacket({0, 1, lin});
        writer.AddPacket({1, 2, ethernet});
        file.Flush();
    }
    EXPECT_EQ(OutputOf("tshark -r " + dir / "a.pcapng" +
                       " -T fields -E separator=/s -e frame.interface_name -e frame.protocols"),
              "lin0 lin:iso15765\neth0 eth:ethertype:data\n");
}

// The losses of each interface's statistics block, in their order; 0 where none are told.
std::vector<uint64_t> StatisticsLosses(const std::string& file) {
    constexpr uint32_t kStatistics = 5;
    constexpr size_t kHead = 20;  // type, length, interface, time
    constexpr size_t kTail = 4;   // the length once more
    constexpr size_t kOption = 4; // code, length
    constexpr uint16_t kDropped = 5;
    const std::span bytes(reinterpret_cast<const uint8_t*>(file.data()), file.size());
    std::vector<uint64_t> losses;
    for (size_t at = 0; at < bytes.size();) {
        WireReader block(bytes.subspan(at));
        const uint32_t type = block.U32();
        const uint32_t length = block.U32();
        if (length < kHead + kTail || length > bytes.size() - at) {
            ADD_FAILURE() << "no block of length " << length << " at " << at;
            break;
        }
        if (type == kStatistics) {
            losses.push_back(0);
            WireReader options(bytes.subspan(at + kHead, length - kHead - kTail));
            while (options.Left() > kOption) { // all of them have 8 bytes
                const uint16_t code = options.U16();
                EXPECT_EQ(options.U16(), 8);
                const uint64_t value = options.U64();
                losses.back() = code == kDropped ? value : losses.back();
            }
        }
        at += length;
    }
    return losses;
}

TEST(RecordFile, StatisticsTellAllLosses) {
    const TempDir dir;
    WriteSome(dir / "a.pcapng");
    EXPECT_EQ(StatisticsLosses(dir.Read("a.pcapng")), (std::vector<uint64_t>{0, 0, 3}));
}

TEST(RecordFile, LossesBehindTheLastPacketStandInTheFirstStatistics) {
    const TempDir dir;
    const auto writer =
        MakeRecordFile(dir / "a.pcapng", {{}, CanChannels({0, 5}), "/dev/link", ""});
    writer->Lost(2);
    writer->Write(CanErrorRecord::From(ParseMessage(kError).value()).value());
    writer->Lost(4);
    writer->Finish({});
    EXPECT_EQ(StatisticsLosses(dir.Read("a.pcapng")), (std::vector<uint64_t>{4, 2}));
}

TEST(RecordFile, Log) {
    const TempDir dir;
    WriteSome(dir / "a.log");
    EXPECT_EQ(dir.Read("a.log"), "(1700000001.234566) can0 123#DEADBEEF\n"
                                 "(1700000001.234566) can1 7FF#R4\n"
                                 "(1700000001.234566) can1 00000123#\n"
                                 "(1700000001.234566) can5 124##1000102030405060708090A0B\n"
                                 "(1700000001.234566) can5 125##2AA\n"
                                 "(1700000001.234566) can5 20000008#0000800000030000\n");
}

TEST(RecordFile, Log2ascReadsTheLog) {
    const TempDir dir;
    WriteSome(dir / "a.log");
    const std::string text = OutputOf("log2asc -I " + dir / "a.log" + " can0 can1 can5");
    EXPECT_THAT(text, HasSubstr("1  123             Rx   d 4 DE AD BE EF\n"));
    EXPECT_THAT(text, HasSubstr("2  7FF             Rx   r 4\n"));
    EXPECT_THAT(text, HasSubstr("2  123x            Rx   d 0\n"));
    EXPECT_THAT(text, HasSubstr("CANFD   3 Rx        124 "));
    EXPECT_THAT(text, HasSubstr("3  ErrorFrame\n"));
}

TEST(RecordFile, TheExtensionSaysTheFormat) {
    EXPECT_EQ(FormatOfPath("a.pcapng"), RecordFormat::Pcapng);
    EXPECT_EQ(FormatOfPath("/x/a.b.log"), RecordFormat::Log);
    for (const char* const path : {"a", "a.pcap", "log", "a.log.gz"}) {
        EXPECT_THROW(FormatOfPath(path), FileError) << path;
    }
}

} // namespace
