#include "vcihost/PcapngWriter.h"

#include "utils/TempDir.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

// The bytes of a file that `write` has filled.
std::string HexOf(const std::function<void(PcapngWriter&)>& write,
                  const PcapngWriter::Section& section = {}) {
    TempDir dir;
    {
        BufferedFile file(dir / "a.pcapng");
        PcapngWriter writer(file, section);
        write(writer);
        file.Flush();
    }
    const std::string text = dir.Read("a.pcapng");
    return ToHex(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

// Spaces are for the eye.
std::string Plain(std::string_view hex) {
    return ToHex(ParseHex(hex));
}

const char kEmptySection[] = "0a0d0d0a 20000000 4d3c2b1a 0100 0000 ffffffffffffffff "
                             "00000000 20000000";

TEST(PcapngWriter, SectionOfNothing) {
    EXPECT_EQ(HexOf([](PcapngWriter&) {}), Plain(kEmptySection));
}

TEST(PcapngWriter, SectionTellsHardwareSystemProgramAndComment) {
    EXPECT_EQ(HexOf([](PcapngWriter&) {}, {"hw", "Linux", "tool", "a"}),
              Plain("0a0d0d0a 44000000 4d3c2b1a 0100 0000 ffffffffffffffff "
                    "0200 0200 68770000 "
                    "0300 0500 4c696e7578 000000 "
                    "0400 0400 746f6f6c "
                    "0100 0100 61000000 "
                    "00000000 44000000"));
}

TEST(PcapngWriter, InterfacesAreCountedAndCountNanoseconds) {
    const auto hex = HexOf([](PcapngWriter& writer) {
        EXPECT_EQ(writer.AddInterface({"can0", "", LinkType::SocketCan}), 0U);
        EXPECT_EQ(writer.AddInterface({"lin0", "x", LinkType::Lin}), 1U);
        EXPECT_EQ(writer.AddInterface({"eth0", "", LinkType::Ethernet}), 2U);
    });
    EXPECT_EQ(hex, Plain(std::string(kEmptySection) +
                         "01000000 28000000 e300 0000 00000000 0200 0400 63616e30 "
                         "0900 0100 09000000 00000000 28000000"
                         "01000000 30000000 d400 0000 00000000 0200 0400 6c696e30 "
                         "0300 0100 78000000 0900 0100 09000000 00000000 30000000"
                         "01000000 28000000 0100 0000 00000000 0200 0400 65746830 "
                         "0900 0100 09000000 00000000 28000000"));
}

TEST(PcapngWriter, PacketWithItsDirectionAndTimeInTwoHalves) {
    const Bytes data = ParseHex("0102030405");
    const auto hex = HexOf([&](PcapngWriter& writer) {
        writer.AddPacket({1, 0x1122334455667788, data, PacketDirection::Inbound});
    });
    EXPECT_EQ(hex, Plain(std::string(kEmptySection) +
                         "06000000 34000000 01000000 44332211 88776655 05000000 05000000 "
                         "0102030405 000000 0200 0400 01000000 00000000 34000000"));
}

TEST(PcapngWriter, PacketBehindLostOnesWithAComment) {
    const auto hex = HexOf([&](PcapngWriter& writer) {
        writer.AddPacket({0, 1, {}, PacketDirection::Outbound, 258, "abc"});
    });
    EXPECT_EQ(hex, Plain(std::string(kEmptySection) +
                         "06000000 40000000 00000000 00000000 01000000 00000000 00000000 "
                         "0100 0300 61626300 0200 0400 02000000 0400 0800 0201000000000000 "
                         "00000000 40000000"));
}

TEST(PcapngWriter, Statistics) {
    const auto hex = HexOf([](PcapngWriter& writer) {
        writer.AddStatistics({1, 5, 0x100000002, 4, 7, 6});
    });
    EXPECT_EQ(hex, Plain(std::string(kEmptySection) +
                         "05000000 4c000000 01000000 00000000 05000000 "
                         "0200 0800 01000000 02000000 0300 0800 00000000 04000000 "
                         "0400 0800 0700000000000000 0600 0800 0600000000000000 "
                         "00000000 4c000000"));
}

TEST(PcapngWriter, StatisticsWithLosses) {
    const auto hex = HexOf([](PcapngWriter& writer) {
        writer.AddStatistics({0, 5, 3, 4, 7, 6, 258});
    });
    EXPECT_EQ(hex, Plain(std::string(kEmptySection) +
                         "05000000 58000000 00000000 00000000 05000000 "
                         "0200 0800 00000000 03000000 0300 0800 00000000 04000000 "
                         "0400 0800 0700000000000000 0500 0800 0201000000000000 "
                         "0600 0800 0600000000000000 00000000 58000000"));
}

TEST(PcapngWriter, ALongTextIsCutToWhatAnOptionCanHold) {
    const auto hex = HexOf([](PcapngWriter& writer) {
        writer.AddPacket({0, 0, {}, PacketDirection::Unknown, 0, std::string(70000, 'a')});
    });
    const size_t head = Plain(kEmptySection).size();
    // 28 bytes of block, 4 + 65532 of comment, 8 of flags, 4 of end, 4 of length.
    EXPECT_EQ(hex.size() - head, 2U * (28 + 4 + 65532 + 8 + 4 + 4));
    EXPECT_EQ(hex.substr(head + 56, 8), "0100fcff");
}

TEST(BufferedFile, APathThatCannotBeMadeIsNamed) {
    try {
        BufferedFile file("/nonexistent/a.pcapng");
        FAIL();
    } catch (const FileError& error) {
        EXPECT_STREQ(error.what(), "cannot make /nonexistent/a.pcapng: No such file or directory");
    }
}

TEST(BufferedFile, AFullDiskIsNamed) {
    BufferedFile file("/dev/full");
    file.Append("text");
    EXPECT_THROW(file.Flush(), FileError);
    EXPECT_NO_THROW(file.Flush()); // nothing is left
    EXPECT_THROW(
        {
            for (int i = 0; i < 100; ++i) {
                file.Append(std::string(4096, 'a'));
            }
        },
        FileError);
}

TEST(BufferedFile, LargePiecesGoToTheFileInOrder) {
    TempDir dir;
    std::string all;
    {
        BufferedFile file(dir / "a");
        for (int i = 0; i < 50; ++i) {
            const std::string piece(static_cast<size_t>(i) * 997, static_cast<char>('a' + i % 26));
            file.Append(piece);
            all += piece;
        }
        const std::string large(1U << 20U, '.');
        file.Append(large);
        all += large;
    }
    EXPECT_EQ(dir.Read("a"), all);
}

} // namespace
