#include "vcihost/Printable.h"

#include <gtest/gtest.h>

using vcihost::Printable;

namespace {

TEST(Printable, TextOfAnyLanguageStays) {
    for (const char* const text :
         {"", "a ~", "\u00a0\u00e4\u07ff", "\u0800\ud7ff\ue000\uffff", "\U00010000\U0010ffff"}) {
        EXPECT_EQ(Printable(text), text);
    }
}

TEST(Printable, ControlCharactersDoNot) {
    EXPECT_EQ(Printable("\x1b[2J\r\n\t\x7f."), "?[2J????.");
    EXPECT_EQ(Printable("\u0080\u009b\u009f."), "??????.");
    EXPECT_EQ(Printable(std::string(1, '\0')), "?");
}

TEST(Printable, NorDoBytesThatAreNoUtf8) {
    EXPECT_EQ(Printable("\x80\xbf\xff"), "???");
    EXPECT_EQ(Printable("\xc1\xbf"), "??");           // a longer form of 7F
    EXPECT_EQ(Printable("\xe0\x9f\xbf"), "???");      // of 7FF
    EXPECT_EQ(Printable("\xf0\x8f\xbf\xbf"), "????"); // of FFFF
    EXPECT_EQ(Printable("\xed\xa0\x80"), "???");      // half of a pair
    EXPECT_EQ(Printable("\xf4\x90\x80\x80"), "????"); // beyond the last character
    EXPECT_EQ(Printable("\xe2\x82"), "??");           // cut off
    EXPECT_EQ(Printable("\xe2\x82z\xc3\xa4"), "??z\u00e4");
}

} // namespace
