#include "utils/TempDir.h"
#include "vcihost/BufferedFile.h"
#include "vcihost/Notation.h"
#include "vcihost/RecordFile.h"
#include "vcihost/Trace.h"

#include <fstream>
#include <thread>

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace vcihost;
using testing::HasSubstr;

namespace {

using Strings = std::vector<std::string>;

class TraceFile : public testing::Test {
  protected:
    Trace Read(const std::string& text) const {
        dir_.Write("a.log", text);
        return Trace::Read(dir_ / "a.log");
    }

    Trace ReadBytes(std::string_view hex) const {
        const Bytes bytes = ParseHex(hex);
        return Read(std::string(bytes.begin(), bytes.end()));
    }

    // What reading throws, without the directory.
    std::string Fault(const std::string& text) const {
        try {
            static_cast<void>(Read(text));
        } catch (const NotationError& error) {
            std::string what = error.what();
            const std::string path = dir_.path() + "/";
            return what.starts_with(path) ? what.substr(path.size()) : "elsewhere: " + what;
        }
        return "none";
    }

    std::string BytesFault(std::string_view hex) const {
        const Bytes bytes = ParseHex(hex);
        return Fault(std::string(bytes.begin(), bytes.end()));
    }

    TempDir dir_;
};

Strings Frames(const Trace& trace) {
    Strings frames;
    for (const TraceFrame& frame : trace.frames) {
        frames.push_back(trace.interfaces.at(frame.interface) + " " + CanFrameText(frame.frame) +
                         " " + std::to_string(frame.time));
    }
    return frames;
}

TEST_F(TraceFile, AllFormsOfALog) {
    const auto trace = Read("# made by hand\n"
                            "(1700000000.123456) can0 123#DEADBEEF\n"
                            "(1700000000.223456789) vcan0 00000123#11.22\n"
                            "\n"
                            "(1700000000.5) can0 123#R4 R\r\n"
                            "  ; another comment\n"
                            "(1700000001.000000) can0 123##3AABB T\n"
                            "(1700000001.000001) can0 20000008#0000000000030000\n"
                            "(1700000001.000002) can0 7FF#R\n"
                            "(1700000001.000003) can1 123#1122334455667788_E\n"
                            "(1700000001.000004) can0 1FFFFFFF#");
    EXPECT_EQ(
        Frames(trace),
        (Strings{"can0 123#DEADBEEF 1700000000123456000", "vcan0 00000123#1122 1700000000223456789",
                 "can0 123#R4 1700000000500000000", "can0 123##1AABB 1700000001000000000",
                 "can0 7FF#R 1700000001000002000", "can1 123#1122334455667788 1700000001000003000",
                 "can0 1FFFFFFF# 1700000001000004000"}));
    EXPECT_EQ(trace.errors, 1U);
    EXPECT_EQ(trace.comments, 3U);
    EXPECT_EQ(trace.others, 0U);
    EXPECT_EQ(trace.Place(trace.frames.at(1)), (dir_ / "a.log") + ", line 3");
}

TEST_F(TraceFile, BadLinesAreNamed) {
    EXPECT_EQ(Fault("(1.5) can0 123#\n1.5 can0 123#\n"),
              "a.log, line 2: '1.5' is no time; write '(SECONDS.DECIMALS) INTERFACE FRAME' as "
              "candump -l does");
    EXPECT_THAT(Fault("(15) can0 123#\n"), HasSubstr("line 1: '(15)' is no time"));
    EXPECT_THAT(Fault("(1.x) can0 123#\n"), HasSubstr("line 1: '(1.x)' is no time"));
    EXPECT_THAT(Fault("(1.0123456789) can0 123#\n"), HasSubstr("is no time"));
    EXPECT_THAT(Fault("(9999999999999999999.0) can0 123#\n"), HasSubstr("is no time"));
    EXPECT_THAT(Fault("(1.5)\n"), HasSubstr("line 1: the interface is missing"));
    EXPECT_THAT(Fault("(1.5) can0\n"), HasSubstr("line 1: the frame is missing"));
    EXPECT_THAT(Fault("(1.5) can0 123# X\n"), HasSubstr("line 1: 'X' stands behind the frame"));
    EXPECT_THAT(Fault("(1.5) can0 123# R R\n"), HasSubstr("stands behind the frame"));
    EXPECT_EQ(Fault("(1.5) can0 800#\n"),
              "a.log, line 1: frame '800#': a standard identifier is at most 7FF; write eight "
              "digits for an extended one");
    EXPECT_THAT(Fault("(1.5) can0 123##1" + std::string(18, 'A') + "\n"),
                HasSubstr("line 1: frame '123##1AAAAAAAAAAAAAAAAAA': 9 bytes"));
    EXPECT_THAT(Fault("\n" + std::string(5000, 'x')), HasSubstr("line 2: longer than any frame"));
}

TEST_F(TraceFile, UnreadableFiles) {
    EXPECT_THROW(static_cast<void>(Trace::Read(dir_ / "none.log")), FileError);
    EXPECT_THROW(static_cast<void>(Trace::Read(dir_.path())), FileError);
    EXPECT_TRUE(Read("").frames.empty());
}

TEST_F(TraceFile, CaptureFileAsItIsRecorded) {
    const auto record = [](std::string_view service) { return BuildFrame(ParseHex(service)); };
    const Bytes frames[] = {record("09 19 08 23010000 d202964900000000 84 deadbeef"),
                            record("09 19 09 ff070000 d302964900000000 a4 00000000"),
                            record("09 19 09 23010080 d402964900000000 00"),
                            record("09 19 08 25010000 d602964900000000 61 aa")};
    const Bytes error = record("68 06 d702964900000000 08 03 0c00 05 23010000 02 aabb");
    const RecordChannel lin{RecordChannel::Bus::Lin, 0};
    {
        const RecordFileOptions options{
            {0, 1'000'000'000'000, 5}, {{}, {RecordChannel::Bus::Can, 1}, lin}, "/dev/link", "us"};
        const auto writer = MakeRecordFile(dir_ / "a.pcapng", options);
        for (const Bytes& frame : frames) {
            writer->Write(CanFrameRecord::From(ParseMessage(frame).value()).value());
        }
        writer->Write(CanErrorRecord::From(ParseMessage(error).value()).value());
        LinWakeupRecord wakeup{};
        writer->Write(wakeup);
        writer->Finish({});
    }
    const auto trace = Trace::Read(dir_ / "a.pcapng");
    EXPECT_EQ(Frames(trace),
              (Strings{"can0 123#DEADBEEF 1001234567890", "can1 7FF#R4 1001234567891",
                       "can1 00000123# 1001234567892", "can0 125##1AA 1001234567894"}));
    EXPECT_EQ(trace.errors, 1U);
    EXPECT_EQ(trace.others, 1U);
    EXPECT_EQ(trace.Place(trace.frames.at(3)), (dir_ / "a.pcapng") + ", packet 4");
}

// Blocks by hand, from the format's layout.
const std::string kSection = "0a0d0d0a 1c000000 4d3c2b1a 0100 0000 ffffffffffffffff 1c000000 ";
const std::string kBigSection = "0a0d0d0a 0000001c 1a2b3c4d 0001 0000 ffffffffffffffff 0000001c ";
const std::string kCan = "01000000 14000000 e300 0000 00000000 14000000 "; // microseconds
// 123#11 at 5.
const std::string kPacket = "06000000 2c000000 00000000 00000000 05000000 09000000 09000000 "
                            "00000123 01 00 0000 11 000000 2c000000 ";

TEST_F(TraceFile, BothByteOrdersAndSeveralSections) {
    // The second section has a name, "x", and times in 2^-10 s; its packet is at 1.5 s.
    const auto trace =
        ReadBytes(kSection + kCan + kPacket + kBigSection +
                  "00000001 00000024 00e3 0000 00000000 0002 0001 78000000 0009 0001 8a000000 "
                  "00000024" // no end of options
                  "00000006 00000028 00000000 00000000 00000600 00000008 00000008 "
                  "80000123 00 00 0000 00000028");
    EXPECT_EQ(Frames(trace), (Strings{"interface0 123#11 5000", "x 00000123# 1500000000"}));
}

TEST_F(TraceFile, UnknownBlocksAndOtherPacketsAreSkipped) {
    const std::string ethernet = "01000000 14000000 0100 0000 00000000 14000000 ";
    const std::string simple = "03000000 14000000 04000000 00000000 14000000 ";
    const std::string custom = "ad0b0000 10000000 00000000 10000000 ";
    const std::string other = "06000000 24000000 01000000 00000000 05000000 01000000 01000000 "
                              "00000000 24000000 ";
    const auto trace = ReadBytes(kSection + kCan + ethernet + custom + simple + other + kPacket);
    EXPECT_EQ(Frames(trace), (Strings{"interface0 123#11 5000"}));
    EXPECT_EQ(trace.others, 2U);
    EXPECT_EQ(trace.frames.at(0).number, 3U);
}

TEST_F(TraceFile, TimeOffsetAndResolutions) {
    const auto at = [&](const std::string& options) {
        const std::string end = " 00000000 ";
        const size_t size = 24 + ParseHex(options).size();
        const std::string length = ToHex(Bytes{static_cast<uint8_t>(size), 0, 0, 0}) + " ";
        return ReadBytes(kSection + "01000000 " + length + "e300 0000 00000000 " + options + end +
                         length + kPacket)
            .frames.at(0)
            .time;
    };
    EXPECT_EQ(at(""), 5000U);
    EXPECT_EQ(at("0900 0100 09000000"), 5U);
    EXPECT_EQ(at("0900 0100 00000000"), 5'000'000'000U);
    EXPECT_EQ(at("0900 0100 0c000000"), 0U); // picoseconds
    EXPECT_EQ(at("0900 0100 81000000"), 2'500'000'000U);
    EXPECT_EQ(at("0900 0100 bf000000"), 0U);
    EXPECT_EQ(at("0e00 0800 0200000000000000"), 2'000'005'000U);
    EXPECT_THAT(BytesFault(kSection +
                           "01000000 24000000 e300 0000 00000000 "
                           "0e00 0800 ffffffffffffffff 00000000 24000000" +
                           kPacket),
                HasSubstr("packet 1: its time is beyond"));
    EXPECT_THAT(BytesFault(kSection + "01000000 1c000000 e300 0000 00000000 0900 0100 14000000 "
                                      "1c000000"),
                HasSubstr("times of an unknown resolution, 20"));
}

// As `vcictl replay <(zcat drive.log.gz)` has it.
TEST_F(TraceFile, BothFormatsFromAPipe) {
    const std::string pipe = dir_ / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const auto read = [&](const std::string& text) {
        std::thread writer([&] { std::ofstream(pipe) << text; });
        Strings frames;
        try {
            frames = Frames(Trace::Read(pipe));
        } catch (const std::exception& error) {
            frames = {error.what()};
        }
        writer.join();
        return frames;
    };
    EXPECT_EQ(read("(1.000000) can0 123#11\n"), Strings{"can0 123#11 1000000000"});
    const Bytes capture = ParseHex(kSection + kCan + kPacket);
    EXPECT_EQ(read({capture.begin(), capture.end()}), Strings{"interface0 123#11 5000"});
    EXPECT_EQ(read("#\n"), Strings{});
}

TEST_F(TraceFile, AHeadThatComesInPiecesIsTold) {
    const std::string pipe = dir_ / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::ofstream file(pipe, std::ios::in | std::ios::out); // waits for no reader, nor misses one
    std::thread writer([&] {
        for (const char each : std::string("(1.0) can0 123#11\n")) {
            file << each << std::flush;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    std::string what;
    try {
        static_cast<void>(Trace::Read(pipe));
    } catch (const FileError& error) {
        what = error.what();
    }
    writer.join();
    EXPECT_THAT(what, HasSubstr("comes in pieces of less than four bytes"));
}

TEST_F(TraceFile, MoreInterfacesThanAnyBenchHasAreRefused) {
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        text += "(1.0) can" + std::to_string(i) + " 123#11\n";
    }
    EXPECT_EQ(Read(text + "(1.0) can999 123#11\n").frames.back().interface, 999U);
    EXPECT_EQ(Fault(text + "(1.0) can1000 123#11\n"),
              "a.log, line 1001: more than 1000 interfaces; is this a trace of one bench?");
}

TEST_F(TraceFile, DamagedCaptures) {
    EXPECT_EQ(BytesFault(kSection + kCan + "06000000 2c0000"),
              "a.log, packet 1: the file ends within a block");
    EXPECT_THAT(BytesFault(kSection + kCan + "06000000 2c000000 00000000 0000"),
                HasSubstr("the file ends within a block"));
    EXPECT_THAT(BytesFault(kSection + "01000000 00000000 00000000"),
                HasSubstr("a block of 0 bytes cannot be"));
    EXPECT_THAT(BytesFault(kSection + "01000000 fcffffff 00000000"),
                HasSubstr("a block of 4294967292 bytes cannot be"));
    EXPECT_THAT(BytesFault(kSection + "01000000 10000000 00000000 14000000"),
                HasSubstr("a block's two lengths differ"));
    EXPECT_THAT(BytesFault(kSection + "01000000 10000000 e3000000 10000000"),
                HasSubstr("a block is shorter than what it tells of"));
    EXPECT_THAT(BytesFault(kSection + kPacket), HasSubstr("interface 0 was not described"));
    EXPECT_THAT(BytesFault("0a0d0d0a 1c000000 00000000 0100 0000 ffffffffffffffff 1c000000"),
                HasSubstr("no known byte order"));
    EXPECT_THAT(BytesFault("0a0d0d0a 1c000000 4d3c2b1a 0200 0000 ffffffffffffffff 1c000000"),
                HasSubstr("version 2 of the format"));
    // A packet that was cut off, one that is no frame, one of nine bytes.
    EXPECT_THAT(BytesFault(kSection + kCan +
                           "06000000 28000000 00000000 00000000 05000000 08000000 09000000 "
                           "00000123 01 00 0000 28000000"),
                HasSubstr("packet 1: only 0 of the frame's 1 bytes were captured"));
    EXPECT_THAT(BytesFault(kSection + kCan +
                           "06000000 24000000 00000000 00000000 05000000 04000000 04000000 "
                           "00000123 24000000"),
                HasSubstr("4 bytes are no CAN frame"));
    EXPECT_THAT(BytesFault(kSection + kCan +
                           "06000000 28000000 00000000 00000000 05000000 08000000 08000000 "
                           "00000123 09 00 0000 28000000"),
                HasSubstr("no CAN frame has 9 bytes"));
    EXPECT_THAT(BytesFault("d4c3b2a1 02000400"), HasSubstr("the old pcap format"));
}

} // namespace
