#include "vcihost/LinTable.h"

#include "vcihost/Notation.h"

#include <sstream>

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

std::vector<LinSlot> Read(const std::string& text) {
    std::istringstream input(text);
    return ReadLinTable(input, "a.txt");
}

std::string FaultOf(const std::string& text) {
    try {
        Read(text);
    } catch (const NotationError& error) {
        return error.what();
    }
    return "none";
}

TEST(LinTable, EntriesInTheirOrder) {
    const auto table = Read("# body\n"
                            "\n"
                            "10 2 10\n"
                            "  3C,8,20   # diagnosis\r\n"
                            "10\t1\t65535\n"
                            "0x00 4 1");
    ASSERT_EQ(table.size(), 4U);
    EXPECT_EQ(table[0].id, 0x10);
    EXPECT_EQ(table[0].length, 2);
    EXPECT_EQ(table[0].slotMs, 10);
    EXPECT_EQ(table[1].id, 0x3C);
    EXPECT_EQ(table[1].length, 8);
    EXPECT_EQ(table[1].slotMs, 20);
    EXPECT_EQ(table[2].slotMs, 65535);
    EXPECT_EQ(table[3].id, 0);
}

TEST(LinTable, ErrorsNameFileAndLineAndWhatToDo) {
    EXPECT_EQ(FaultOf("10 2 10\n40 2 10\n"),
              "a.txt, line 2: '40' is no LIN identifier; write 00 to 3F, in hex");
    EXPECT_EQ(FaultOf("\n10 9 10\n"), "a.txt, line 2: length '9' is no whole number from 1 to 8");
    EXPECT_EQ(FaultOf("10 0 10\n"), "a.txt, line 1: length '0' is no whole number from 1 to 8");
    EXPECT_EQ(FaultOf("10 8 0\n"), "a.txt, line 1: slot '0' is no whole number from 1 to 65535");
    EXPECT_EQ(FaultOf("10 8 65536\n"),
              "a.txt, line 1: slot '65536' is no whole number from 1 to 65535");
    EXPECT_EQ(FaultOf("10 8 10ms\n"),
              "a.txt, line 1: slot '10ms' is no whole number from 1 to 65535");
    const std::string form = "a.txt, line 1: not three values; write one entry a line: identifier "
                             "in hex, length, slot in milliseconds";
    EXPECT_EQ(FaultOf("10 8\n"), form);
    EXPECT_EQ(FaultOf("10 8 10 1\n"), form);
    EXPECT_EQ(FaultOf("# nothing\n"), "a.txt holds no entry; write one entry a line: identifier in "
                                      "hex, length, slot in milliseconds");
}

TEST(LinTable, AtMost255Entries) {
    std::string text;
    for (int i = 0; i < 255; ++i) {
        text += "10 8 10\n";
    }
    EXPECT_EQ(Read(text).size(), 255U);
    EXPECT_EQ(Read(text + "# the end\n").size(), 255U);
    EXPECT_EQ(FaultOf(text + "\n10 8 10\n"),
              "a.txt, line 257: a table has at most 255 entries; leave the rest out");
}

TEST(LinTable, ASlotIsNotShorterThanItsFrameAnd15Bits) {
    EXPECT_EQ(LinSlotUs({0x10, 8, 10}, 19200), 10000U);
    EXPECT_EQ(LinSlotUs({0x10, 8, 1}, 19200), 7239U);
    EXPECT_EQ(LinSlotUs({0x10, 8, 7}, 19200), 7239U);
    EXPECT_EQ(LinSlotUs({0x10, 8, 8}, 19200), 8000U);
    EXPECT_EQ(LinSlotUs({0x10, 1, 1}, 1000), 69000U);
    EXPECT_EQ(LinSlotUs({0x10, 8, 65535}, 9600), 65535000U);
    EXPECT_EQ(LinSlotUs({0x10, 8, 1}, 0), 1000U);
}

} // namespace
