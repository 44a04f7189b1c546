#include "utils/DevMemUtil.h"

#include "utils/TempDir.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

// A file of four pages stands in for the memory: its offsets are the addresses.
class DevMemUtilTest : public testing::Test {
  protected:
    static constexpr size_t kPages = 4;

    void SetUp() override {
        std::string zeros(kPages * page_, '\0');
        dir_.Write("mem", zeros);
    }

    uint32_t FileWord(size_t offset) const {
        uint32_t word = 0;
        std::memcpy(&word, dir_.Read("mem").data() + offset, sizeof(word));
        return word;
    }

    // How many mappings of the file this process has.
    size_t Mappings() const {
        std::ifstream maps("/proc/self/maps");
        size_t count = 0;
        for (std::string line; std::getline(maps, line);) {
            count += line.find(dir_ / "mem") != std::string::npos ? 1 : 0;
        }
        return count;
    }

    static std::string TextOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "nothing was thrown";
    }

    const size_t page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const TempDir dir_;
};

TEST_F(DevMemUtilTest, ThrowsWhereTheMemoryDoesNotOpen) {
    EXPECT_EQ(TextOf([&] { const DevMemUtil mem(dir_ / "missing"); }),
              "Failed to open /dev/mem (run as root?)");
}

TEST_F(DevMemUtilTest, TheInstanceIsOneAndThrowsWithoutDevMem) {
    if (access("/dev/mem", R_OK | W_OK) == 0) {
        EXPECT_EQ(DevMemUtil::GetInstance(), DevMemUtil::GetInstance());
        return;
    }
    EXPECT_EQ(TextOf([] { DevMemUtil::GetInstance(); }), "Failed to open /dev/mem (run as root?)");
    EXPECT_EQ(TextOf([] { DevMemUtil::GetInstance(); }), "Failed to open /dev/mem (run as root?)");
}

TEST_F(DevMemUtilTest, WritesTheWordAtTheAddressAndNoOther) {
    DevMemUtil mem(dir_ / "mem");
    mem.Write(page_ + 8, 0x89ABCDEFU);
    EXPECT_EQ(FileWord(page_ + 4), 0U);
    EXPECT_EQ(FileWord(page_ + 8), 0x89ABCDEFU);
    EXPECT_EQ(FileWord(page_ + 12), 0U);
    EXPECT_EQ(mem.Read(page_ + 8), 0x89ABCDEFU);
}

TEST_F(DevMemUtilTest, ReachesTheLastWordOfAPage) {
    DevMemUtil mem(dir_ / "mem");
    mem.Write(2 * page_ - 4, 0x01020304U);
    EXPECT_EQ(FileWord(2 * page_ - 4), 0x01020304U);
    EXPECT_EQ(FileWord(2 * page_), 0U);
}

TEST_F(DevMemUtilTest, PageZeroIsMappedAtItsFirstUse) {
    DevMemUtil mem(dir_ / "mem");
    EXPECT_EQ(Mappings(), 0U);
    mem.Write(0, 7);
    EXPECT_EQ(Mappings(), 1U);
    EXPECT_EQ(FileWord(0), 7U);
}

TEST_F(DevMemUtilTest, OnePageStaysMappedAndIsReplacedByTheNext) {
    DevMemUtil mem(dir_ / "mem");
    mem.Write(0, 1);
    mem.Write(3 * page_, 2);
    EXPECT_EQ(Mappings(), 1U);
    EXPECT_EQ(mem.Read(0), 1U);
    EXPECT_EQ(mem.Read(3 * page_), 2U);
    EXPECT_EQ(Mappings(), 1U);
}

TEST_F(DevMemUtilTest, APageAtHandIsNotMappedAgain) {
    DevMemUtil mem(dir_ / "mem");
    mem.Write(page_, 1);
    std::filesystem::remove(dir_ / "mem");
    dir_.Write("mem", "");
    EXPECT_EQ(mem.Read(page_), 1U);
    mem.Write(page_ + 4, 2);
    EXPECT_EQ(mem.Read(page_ + 4), 2U);
}

TEST_F(DevMemUtilTest, TheMappingGoesWithTheObject) {
    {
        DevMemUtil mem(dir_ / "mem");
        mem.Read(0);
        EXPECT_EQ(Mappings(), 1U);
    }
    EXPECT_EQ(Mappings(), 0U);
}

TEST_F(DevMemUtilTest, AnAddressThatIsNotAlignedIsPrintedAndThrown) {
    DevMemUtil mem(dir_ / "mem");
    testing::internal::CaptureStdout();
    const auto read = TextOf([&] { mem.Read(0x1A2); });
    const auto write = TextOf([&] { mem.Write(0x1A3, 1); });
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Address 0x1a2 not 4-byte aligned\n"
                                                      "Address 0x1a3 not 4-byte aligned\n");
    EXPECT_EQ(read, "Address must be 4-byte aligned");
    EXPECT_EQ(write, "Address must be 4-byte aligned");
    EXPECT_EQ(Mappings(), 0U);
}

TEST_F(DevMemUtilTest, AFailedMapTellsErrnoAndThePageBeforeItStillWorks) {
    DevMemUtil mem(dir_ / "mem");
    mem.Write(page_, 5);
    // An offset that is not on a page is what mmap refuses on every machine.
    EXPECT_EQ(TextOf([&] { mem.RemapPage(page_ + 4); }), "mmap failed: " + std::to_string(EINVAL));
    EXPECT_EQ(Mappings(), 0U);
    EXPECT_EQ(mem.Read(page_), 5U);
    EXPECT_EQ(Mappings(), 1U);
}

TEST_F(DevMemUtilTest, AFailedMapIsTriedAgainAtTheNextAccess) {
    DevMemUtil mem(dir_ / "mem");
    constexpr uintptr_t kBeyondAnyFile = ~uintptr_t{0} & ~uintptr_t{3};
    EXPECT_EQ(TextOf([&] { mem.Read(kBeyondAnyFile); }).find("mmap failed: "), 0U);
    EXPECT_EQ(TextOf([&] { mem.Read(kBeyondAnyFile); }).find("mmap failed: "), 0U);
}

} // namespace
