#include "vcihost/CanFrame.h"

#include "vcihost/Notation.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

std::string Fault(std::string_view text) {
    try {
        ParseCanFrame(text);
    } catch (const NotationError& error) {
        return error.what();
    }
    return "no error";
}

TEST(CanFrame, AStandardFrame) {
    const CanFrame frame = ParseCanFrame("123#DEADBEEF");
    EXPECT_EQ(frame.id, 0x123U);
    EXPECT_FALSE(frame.extended || frame.remote || frame.fd || frame.brs);
    EXPECT_EQ(ToHex(frame.data), "deadbeef");
    EXPECT_EQ(frame.Length(), 4U);
}

TEST(CanFrame, EightDigitsAreAnExtendedIdentifier) {
    const CanFrame frame = ParseCanFrame("00000123#");
    EXPECT_TRUE(frame.extended);
    EXPECT_EQ(frame.id, 0x123U);
    EXPECT_EQ(frame.Length(), 0U);
    EXPECT_EQ(ParseCanFrame("1FFFFFFF#").id, 0x1FFFFFFFU);
}

TEST(CanFrame, RemoteFrames) {
    EXPECT_TRUE(ParseCanFrame("123#R").remote);
    EXPECT_EQ(ParseCanFrame("123#R").Length(), 0U);
    EXPECT_EQ(ParseCanFrame("123#r8").Length(), 8U);
    EXPECT_TRUE(ParseCanFrame("123#R4").data.empty());
}

TEST(CanFrame, CanFdFrames) {
    const CanFrame plain = ParseCanFrame("123##0");
    EXPECT_TRUE(plain.fd);
    EXPECT_FALSE(plain.brs);
    const CanFrame fast = ParseCanFrame("123##1AABB");
    EXPECT_TRUE(fast.fd && fast.brs);
    EXPECT_EQ(ToHex(fast.data), "aabb");
    EXPECT_EQ(ParseCanFrame("123##5AA"), ParseCanFrame("123##1AA")) << "4 says CAN FD once more";
    EXPECT_EQ(ParseCanFrame("123##0" + std::string(128, '1')).Length(), 64U);
}

TEST(CanFrame, DotsMayStandBetweenBytes) {
    EXPECT_EQ(ParseCanFrame("123#11.22.33"), ParseCanFrame("123#112233"));
    EXPECT_EQ(ParseCanFrame("123##111.22"), ParseCanFrame("123##11122"));
    EXPECT_EQ(Fault("123#1.1"), "frame '123#1.1': the byte before character 6 has only one digit");
    EXPECT_EQ(Fault("123#11."), "frame '123#11.': a byte is missing at character 8");
    EXPECT_EQ(Fault("123#.11"), "frame '123#.11': a byte is missing at character 5");
    EXPECT_EQ(Fault("123#11..22"), "frame '123#11..22': a byte is missing at character 8");
}

TEST(CanFrame, WrongIdentifiers) {
    EXPECT_EQ(Fault("800#"), "frame '800#': a standard identifier is at most 7FF; write eight "
                             "digits for an extended one");
    EXPECT_EQ(Fault("20000000#"), "frame '20000000#': an extended identifier is at most 1FFFFFFF");
    for (const char* const text : {"", "#", "12#", "1234#", "12G#", "123456789#", "-12#", "1 3#"}) {
        EXPECT_EQ(Fault(text),
                  "frame '" + std::string(text) +
                      "': an identifier has three hex digits, or eight when it is extended");
    }
    EXPECT_EQ(Fault("123"), "frame '123': no # behind the identifier; write 123#DEADBEEF, 123#R4 "
                            "or 123##1AABB");
}

TEST(CanFrame, WrongData) {
    EXPECT_EQ(Fault("123#1"), "frame '123#1': the byte before character 6 has only one digit");
    EXPECT_EQ(Fault("123#1x"), "frame '123#1x': character 6 ('x') is not a hex digit");
    EXPECT_EQ(Fault("123#\n"), "frame '123#\n': character 5 is not a hex digit");
    EXPECT_EQ(Fault("123#112233445566778899"),
              "frame '123#112233445566778899': 9 bytes; a classic frame has at most 8, a CAN FD "
              "frame (##) more");
    EXPECT_EQ(Fault("123#R9"), "frame '123#R9': a remote frame asks for at most 8 bytes");
    EXPECT_EQ(Fault("123#R4x"), "frame '123#R4x': character 7 ('x') is not a hex digit");
}

TEST(CanFrame, ARawDlcCodeIsRefusedWithItsReason) {
    const std::string reason = ": a DLC code behind '_' cannot be asked for: the device takes the "
                               "length of the data for it; leave '_' and what follows";
    EXPECT_EQ(Fault("123#1122334455667788_9"), "frame '123#1122334455667788_9'" + reason);
    EXPECT_EQ(Fault("123#R8_9"), "frame '123#R8_9'" + reason);
}

TEST(CanFrame, WrongFlagsOfCanFd) {
    EXPECT_EQ(Fault("123##"), "frame '123##': behind ## stands the flags digit: 0, or 1 for the "
                              "switch of the bit rate");
    EXPECT_EQ(Fault("123##2AA"), "frame '123##2AA': the error state indicator (flag 2) cannot be "
                                 "sent: the device's requests have no place for it");
    EXPECT_EQ(Fault("123##8"), "frame '123##8': flags 8 are not known; 0, or 1 for the switch of "
                               "the bit rate");
}

TEST(CanFrame, ALoggedFrameMayComeFromAnErrorPassiveSender) {
    EXPECT_EQ(ParseLoggedCanFrame("123##311"), ParseCanFrame("123##111"));
    EXPECT_EQ(ParseLoggedCanFrame("123##2"), ParseCanFrame("123##0"));
    EXPECT_EQ(ParseLoggedCanFrame("123##7"), ParseCanFrame("123##1"));
    EXPECT_EQ(ParseLoggedCanFrame("00000123#R4"), ParseCanFrame("00000123#R4"));
    EXPECT_THROW(ParseLoggedCanFrame("123##8"), NotationError);
    EXPECT_THROW(ParseLoggedCanFrame("123##0112233445566778899"), NotationError);
}

TEST(CanFrame, ALengthWithoutADlcCodeNamesItsNeighbours) {
    EXPECT_EQ(Fault("123##0112233445566778899"),
              "frame '123##0112233445566778899': 9 bytes; no CAN FD frame has this length, the "
              "next are 8 and 12");
    const std::string long63 = "123##0" + std::string(126, '0');
    EXPECT_EQ(Fault(long63), "frame '" + long63 +
                                 "': 63 bytes; no CAN FD frame has this length, the next are 48 "
                                 "and 64");
    const std::string long65 = "123##0" + std::string(130, '0');
    EXPECT_EQ(Fault(long65), "frame '" + long65 + "': 65 bytes; a CAN FD frame has at most 64");
}

TEST(CanFrame, TheTextComesBack) {
    for (const char* const text :
         {"123#DEADBEEF", "7FF#", "000#00", "00000123#1122", "1FFFFFFF#R8", "123#R", "123##0",
          "123##1AABB", "00000001##00102030405060708090A0B0C"}) {
        EXPECT_EQ(CanFrameText(ParseCanFrame(text)), text);
    }
    EXPECT_EQ(CanFrameText(ParseCanFrame("7bc#de.ad")), "7BC#DEAD");
}

TEST(CanFrame, EachDlcCodeHasItsLength) {
    const uint8_t lengths[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    for (uint8_t code = 0; code < 16; ++code) {
        EXPECT_EQ(LengthOfDlc(code), lengths[code]);
        EXPECT_EQ(DlcOfLength(lengths[code]), code);
    }
    EXPECT_FALSE(DlcOfLength(9));
    EXPECT_FALSE(DlcOfLength(65));
}

TEST(CanId, SaysIdentifierAndKind) {
    for (const char* const text : {"123", "00000123", "123#R", "1FFFFFFF#R", "123##"}) {
        EXPECT_EQ(CanIdText(ParseCanId(text)), text);
    }
    EXPECT_TRUE(ParseCanId("123##").fd);
    EXPECT_TRUE(ParseCanId("123#R").remote);
    EXPECT_THROW(ParseCanId("123#DEAD"), NotationError);
    EXPECT_THROW(ParseCanId("123#"), NotationError);
    EXPECT_THROW(ParseCanId("12"), NotationError);
    EXPECT_EQ(CanIdText(ParseCanFrame("123##1AABB")), "123##");
}

} // namespace
