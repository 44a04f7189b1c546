#include "modules/BuildDate.h"
#include "modules/CommCfgFixture.h"

#include <cerrno>

namespace {

constexpr uint8_t kBufferBusy = 13;
constexpr uint8_t kNoFile = 41;
constexpr uint8_t kOpenFileFailed = 42;

using Strings = std::vector<std::string>;

TEST_F(CommCfgServiceTest, TheVersionIsThatOfHardwareKernelAndSoftware) {
    const Bytes answer = Ask({1, 6});
    EXPECT_EQ(answer.size(), 32U);
    EXPECT_EQ(Head(answer, 23),
              (Bytes{0, 18, 0, 0, 0, 1, 6, 1, 2, 1, 2, 0, 1, 2, 0, 0x10, 0x27, 0, 0, 0, 0, 0, 0}));
}

TEST_F(CommCfgServiceTest, TheTimeIsAnswered) {
    ExpectTime(Ask({1, 18}), 1, 18);
}

TEST_F(CommCfgServiceTest, TheBuildDateIsBigEndianInFrontOfTheTime) {
    const uint32_t date = GetBuildTime();
    const Bytes answer = Ask({1, 24});
    EXPECT_EQ(answer.size(), 28U);
    EXPECT_EQ(Head(answer, 20), (Bytes{0,
                                       15,
                                       0,
                                       0,
                                       0,
                                       1,
                                       24,
                                       2,
                                       static_cast<uint8_t>(date >> 24),
                                       static_cast<uint8_t>(date >> 16),
                                       static_cast<uint8_t>(date >> 8),
                                       static_cast<uint8_t>(date),
                                       0x10,
                                       0x27,
                                       0,
                                       0,
                                       0,
                                       0,
                                       0,
                                       0}));
    EXPECT_EQ(answer.at(8), 1); // the first byte of any date from the year 1677 to 3355
}

TEST_F(CommCfgServiceTest, AWrongLengthIsRefusedAndNothingIsDone) {
    for (const uint8_t sid : Bytes{1, 6, 18, 20, 24}) {
        ExpectRefused({1, sid, 0}, kLength);
    }
    EXPECT_TRUE(board.Machine().calls.empty());
}

TEST_F(CommCfgServiceTest, UnknownServicesAreRefused) {
    for (const uint8_t sid : Bytes{0, 2, 7, 9, 19, 21, 26, 99, 255}) {
        ExpectRefused({1, sid}, 14);
    }
}

TEST_F(CommCfgServiceTest, AResetIsLoggedAnsweredSyncedAndThenDone) {
    auto& machine = board.Machine();
    machine.onCall = [&] { // and is told behind the answers that are there
        for (const auto& answer : Answers()) {
            ExpectTime(answer, 1, 1);
            machine.calls.emplace_back("answer");
        }
    };
    Send(*service, {1, 1});
    EXPECT_EQ(machine.calls, (Strings{"answer", "sync", "reboot 19088743"})); // 0x1234567
    EXPECT_TRUE(Answers().empty());
    EXPECT_EQ(Logged(), Strings{"INFO CommCfgService::ResetDevice"});
}

TEST_F(CommCfgServiceTest, AResetThatTheKernelRefusesIsLoggedAndNotAnsweredAgain) {
    board.Machine().rebootResult = -1;
    ExpectTime(Ask({1, 1}), 1, 1);
    EXPECT_EQ(Logged(), (Strings{"INFO CommCfgService::ResetDevice", "ERRO reboot faild"}));
}

TEST_F(CommCfgServiceTest, AResetOfAWrongLengthIsLogged) {
    ExpectRefused({1, 1, 0}, kLength);
    EXPECT_EQ(Logged(), Strings{"INFO CommCfgService::ResetDevice"});
}

// --- the identity

const Bytes kUid{0,    18,   0,    0,    0,    1,    20,   0x01, 0x23, 0x45, 0x67, 0x89,
                 0xab, 0xcd, 0xef, 0xfe, 0xdc, 0xba, 0x98, 0x76, 0x54, 0x32, 0x10};

TEST_F(CommCfgServiceTest, TheIdentityIsTheCardsRegisterAsBytes) {
    files.Write("cid", "0123456789abcdeffedcba9876543210\n");
    Bytes answer;
    EXPECT_EQ(Told([&] {
                  answer = Ask({1, 20});
              }),
              "CommCfgService::GetDevUID read:0123456789abcdeffedcba9876543210\n");
    EXPECT_EQ(answer.size(), 32U);
    EXPECT_EQ(Head(answer, 23), kUid);
}

TEST_F(CommCfgServiceTest, UppercaseDigitsGiveTheSameIdentity) {
    files.Write("cid", "0123456789ABCDEFFEDCBA9876543210");
    EXPECT_EQ(Head(Ask({1, 20}), 23), kUid);
}

TEST_F(CommCfgServiceTest, OfALongerIdentityTheFirst32DigitsCount) {
    files.Write("cid", "0123456789abcdeffedcba9876543210ffff");
    EXPECT_EQ(Head(Ask({1, 20}), 23), kUid);
}

TEST_F(CommCfgServiceTest, WithoutAnIdentityFileThereIsNoFile) {
    ExpectRefused({1, 20}, kNoFile);
}

TEST_F(CommCfgServiceTest, AnIdentityOf31CharactersIsTooShort) {
    files.Write("cid", "0123456789abcdeffedcba987654321");
    EXPECT_EQ(Told([&] { ExpectRefused({1, 20}, kBufferBusy); }), "");
    files.Write("cid", "");
    ExpectRefused({1, 20}, kBufferBusy);
}

TEST_F(CommCfgServiceTest, AnIdentityThatCannotBeReadIsTooShort) {
    std::filesystem::create_directory(files / "cid");
    ExpectRefused({1, 20}, kBufferBusy);
}

TEST_F(CommCfgServiceTest, ACharacterThatIsNoDigitIsRefusedBehindItsLine) {
    for (const std::string bad : {"g123456789abcdef0123456789abcdef", // first
                                  "0123456789abcdef0123456789abcdeg", // last
                                  "0123456789abcde\n0123456789abcdef",
                                  "0123456789abcdeG@/:`[{}~ "
                                  "\x80\xff..........."}) {
        files.Write("cid", bad);
        EXPECT_EQ(Told([&] {
                      ExpectRefused({1, 20}, kOpenFileFailed);
                  }),
                  "CommCfgService::GetDevUID read:" + bad.substr(0, 32) + "\n");
    }
    for (const char near : std::string("/:@G`g")) { // beside the digits of each kind
        files.Write("cid", std::string(31, '0') + near);
        ExpectRefused({1, 20}, kOpenFileFailed);
    }
}

} // namespace
