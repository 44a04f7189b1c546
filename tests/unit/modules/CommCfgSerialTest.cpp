#include "modules/CommCfgFixture.h"

#include <algorithm>
#include <iterator>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint8_t kNoFile = 41;
constexpr uint8_t kWriteFail = 47;
constexpr uint8_t kWriteLengthError = 48;

// The service of group 1 with a file, or something else, for the partition of the serial record.
class CommCfgSerialTest : public CommCfgServiceTest {
  protected:
    CommCfgSerialTest() { std::filesystem::create_directory(files / "dev"); }

    // The bytes of a partition up to the record's place, and the record. Inserted, since g++ 12
    // takes a sum of the two for an access out of bounds.
    static std::string BehindZeros(const std::string& record) {
        std::string bytes = record;
        bytes.insert(0, 512, '\0');
        return bytes;
    }

    static Bytes Serial(const std::string& digits) {
        Bytes request{1, 25};
        request.insert(request.end(), digits.begin(), digits.end());
        return request;
    }

    // How often this process has the partition open.
    int Descriptors() const {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            count += std::filesystem::read_symlink(entry, gone) == partition ? 1 : 0;
        }
        return count;
    }

    const std::string partition = files / "dev/mmcblk0p3";
};

TEST_F(CommCfgSerialTest, TheSerialStandsBehindItsMarkAtByte512) {
    Bytes answer;
    EXPECT_EQ(Told([&] { answer = Ask(Serial("0123456789")); }),
              "Serial Number: NV0123456789\nWrite successful.\n");
    ExpectShort(answer, 1, 25);
    EXPECT_EQ(files.Read("dev/mmcblk0p3"), BehindZeros("NV0123456789"));
}

TEST_F(CommCfgSerialTest, ASerialOfAnotherLengthIsRefusedAndNotWritten) {
    ExpectRefused(Serial(""), kLength);
    ExpectRefused(Serial("012345678"), kLength);
    ExpectRefused(Serial("01234567890"), kLength);
    EXPECT_FALSE(std::filesystem::exists(partition));
}

TEST_F(CommCfgSerialTest, AFileInThePartitionsPlaceIsEmptiedFirst) {
    files.Write("dev/mmcblk0p3", std::string(1024, 'x'));
    ExpectShort(Ask(Serial("abcdefghij")), 1, 25);
    EXPECT_EQ(files.Read("dev/mmcblk0p3"), BehindZeros("NVabcdefghij"));
}

TEST_F(CommCfgSerialTest, DigitsAreBytesOfAnyValue) {
    const std::string digits("\0\n\xff\x80 \t%s\r\x7f", 10);
    EXPECT_EQ(Told([&] { ExpectShort(Ask(Serial(digits)), 1, 25); }),
              "Serial Number: NV" + digits + "\nWrite successful.\n");
    EXPECT_EQ(files.Read("dev/mmcblk0p3").substr(512), "NV" + digits);
}

TEST_F(CommCfgSerialTest, WithoutAPlaceForThePartitionThereIsNoFile) {
    std::filesystem::remove(files / "dev");
    EXPECT_EQ(Told([&] { ExpectRefused(Serial("0123456789"), kNoFile); }),
              "CommCfgService::WriteSequence: cannot open dev/mmcblk0p3\n");
}

TEST_F(CommCfgSerialTest, APartitionThatCannotBeOpenedForWritingIsNoFile) {
    std::filesystem::create_directory(partition);
    ExpectRefused(Serial("0123456789"), kNoFile);
    EXPECT_EQ(Descriptors(), 0);
}

TEST_F(CommCfgSerialTest, APartitionThatCannotSeekIsAFailedWrite) {
    ASSERT_EQ(mkfifo(partition.c_str(), 0600), 0);
    const UniqueFd reader(open(partition.c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_EQ(Told([&] { ExpectRefused(Serial("0123456789"), kWriteFail); }),
              "Serial Number: NV0123456789\nWrite failed.\n");
    // What follows is done all the same: the descriptor that stays open, and the reader's.
    EXPECT_EQ(Descriptors(), 2);
}

TEST_F(CommCfgSerialTest, APartitionThatStandsElsewhereAfterwardsIsAWrongLength) {
    std::filesystem::create_symlink("/dev/null", partition); // stays at 0, whatever is sought
    EXPECT_EQ(Told([&] { ExpectRefused(Serial("0123456789"), kWriteLengthError); }),
              "Serial Number: NV0123456789\nWrite LENGTH ERROR.\n");
}

TEST_F(CommCfgSerialTest, TheAnswerGoesOutBeforeTheRecordReachesThePartition) {
    std::string written = "not asked";
    usb.doorbell = [&] {
        written = files.Read("dev/mmcblk0p3");
        return 0;
    };
    ExpectShort(Ask(Serial("0123456789")), 1, 25);
    EXPECT_EQ(written, "");
}

TEST_F(CommCfgSerialTest, AFailedSecondOpeningIsToldAndTheRecordIsWritten) {
    // Away while the answer goes out, so that it is made anew; a directory cannot be.
    usb.doorbell = [&] {
        std::filesystem::rename(partition, files / "moved");
        std::filesystem::create_directory(partition);
        return 0;
    };
    testing::internal::CaptureStderr();
    ExpectShort(Ask(Serial("0123456789")), 1, 25);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "open failed: Is a directory\n");
    EXPECT_EQ(files.Read("moved").substr(512), "NV0123456789");
    EXPECT_EQ(Descriptors(), 0);
}

TEST_F(CommCfgSerialTest, ThePartitionStaysOpenOnceHoweverManySerialsAreWritten) {
    for (int i = 0; i < 20; ++i) {
        const std::string digits = std::to_string(1000000000 + i);
        ExpectShort(Ask(Serial(digits)), 1, 25);
        EXPECT_EQ(files.Read("dev/mmcblk0p3").substr(512), "NV" + digits);
        EXPECT_EQ(Descriptors(), 1);
    }
    service.reset();
    EXPECT_EQ(Descriptors(), 0);
}

} // namespace
