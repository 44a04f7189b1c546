// The records of received frames that the driver of a LIN channel shares.

#include "drivers/LinManageFixture.h"

#include <atomic>
#include <cstring>
#include <fstream>
#include <thread>

#include <sys/stat.h>

namespace {

class LinManageMapTest : public LinManageTest {
  protected:
    // How much of a file this process has mapped.
    static size_t MappedBytes(const std::string& path) {
        std::ifstream maps("/proc/self/maps");
        size_t bytes = 0;
        for (std::string line; std::getline(maps, line);) {
            if (line.find(path) != std::string::npos) {
                size_t end = 0;
                const size_t start = std::stoull(line, &end, 16);
                bytes += std::stoull(line.substr(end + 1), nullptr, 16) - start;
            }
        }
        return bytes;
    }
};

TEST_F(LinManageMapTest, TheRecordsAreTheDriversOwn) {
    Network("LIN0");
    ASSERT_EQ(lin->OpenDevice(0), 0);
    const lin_rx_detil* const records = LinManage::GetRxMemmap(0);
    ASSERT_NE(records, nullptr);
    Bytes record(LinFiles::kRecordSize);
    record[0] = 0x3C;
    record[104] = 0x99;
    files.Write(0, 99 * LinFiles::kRecordSize, record);
    EXPECT_EQ(records[99].lin_id, 0x3CU);
    EXPECT_EQ(records[99].response_baudrate, 0x99U);
}

TEST_F(LinManageMapTest, AfterACloseTheFirstPageIsZeroAndTheRestStays) {
    Network("LIN0");
    files.Write(0, 0, Bytes(12288, 0x11));
    ASSERT_EQ(lin->OpenDevice(0), 0);
    const lin_rx_detil* const records = LinManage::GetRxMemmap(0);
    EXPECT_EQ(records[0].lin_id, 0x11111111U);
    EXPECT_EQ(lin->CloseDevice(0), 0);
    EXPECT_EQ(LinManage::GetRxMemmap(0), records); // still readable
    EXPECT_EQ(records[0].lin_id, 0U);
    EXPECT_EQ(records[35].lin_id, 0U);
    EXPECT_EQ(records[37].lin_id, 0x11111111U);
    EXPECT_EQ(records[99].lin_id, 0x11111111U);
}

TEST_F(LinManageMapTest, AReopenedChannelHasItsRecordsAgain) {
    Network("LIN0");
    files.Write(0, 0, Bytes(12288, 0x11));
    ASSERT_EQ(lin->OpenDevice(0), 0);
    ASSERT_EQ(lin->CloseDevice(0), 0);
    ASSERT_EQ(lin->OpenDevice(0), 0);
    EXPECT_EQ(LinManage::GetRxMemmap(0)[0].lin_id, 0x11111111U);
}

TEST_F(LinManageMapTest, AChannelKeepsItsAddressHoweverOftenItIsOpened) {
    Network("LIN0");
    ASSERT_EQ(lin->OpenDevice(0), 0);
    const lin_rx_detil* const records = LinManage::GetRxMemmap(0);
    for (uint8_t value = 1; value <= 20; ++value) {
        ASSERT_EQ(lin->CloseDevice(0), 0);
        files.Write(0, 0, Bytes(12288, value));
        ASSERT_EQ(lin->OpenDevice(0), 0);
        EXPECT_EQ(LinManage::GetRxMemmap(0), records);
        EXPECT_EQ(records[0].lin_id, value * 0x01010101U);
        EXPECT_EQ(records[99].lin_id, value * 0x01010101U);
        EXPECT_EQ(MappedBytes(files.Path(0)), 12288U) << int{value};
    }
}

TEST_F(LinManageMapTest, RecordsThatCannotBeMappedAgainLeaveTheEarlierOnesReadable) {
    Network("LIN0");
    files.Write(0, 0, Bytes(12288, 0x11));
    ASSERT_EQ(lin->OpenDevice(0), 0);
    const lin_rx_detil* const records = LinManage::GetRxMemmap(0);
    ASSERT_EQ(lin->CloseDevice(0), 0);
    std::filesystem::remove(files.Path(0));
    ASSERT_EQ(mkfifo(files.Path(0).c_str(), 0600), 0); // opens, and has no pages to map
    testing::internal::CaptureStderr();
    EXPECT_EQ(lin->OpenDevice(0), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "mmap failed: No such device\n");
    EXPECT_EQ(LinManage::GetRxMemmap(0), records);
    EXPECT_EQ(records[0].lin_id, 0U);
    EXPECT_EQ(records[99].lin_id, 0x11111111U);
}

TEST_F(LinManageMapTest, ARecordIsReadableAtAnyMomentOfClosingAndOpening) {
    Network("LIN0");
    files.Write(0, 0, Bytes(12288, 0x11));
    files.Resize(0, 8192);
    ASSERT_EQ(lin->OpenDevice(0), 0);
    std::atomic<bool> done{false};
    std::atomic<size_t> wrong{0};
    std::thread reader([&] {
        while (!done) {
            for (const size_t element : {0U, 40U, 99U}) {
                lin_rx_detil detil;
                std::memcpy(&detil, LinManage::GetRxMemmap(0) + element, sizeof(detil));
                wrong += detil.lin_id == 0x11111111U || detil.lin_id == 0 ? 0U : 1U;
            }
        }
    });
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(lin->CloseDevice(0), 0);
        EXPECT_EQ(lin->OpenDevice(0), 0);
    }
    done = true;
    reader.join();
    EXPECT_EQ(wrong, 0U);
}

TEST_F(LinManageMapTest, AMappingShorterThanTheRecordsReadsAsZeroBehindItsEnd) {
    Network("LIN0");
    files.Write(0, 0, Bytes(12288, 0x11));
    for (const size_t size : {size_t{4096}, size_t{0}, size_t{8192}}) {
        files.Resize(0, size);
        ASSERT_EQ(lin->OpenDevice(0), 0) << size;
        const lin_rx_detil* const records = LinManage::GetRxMemmap(0);
        EXPECT_EQ(records[0].lin_id, size == 0 ? 0U : 0x11111111U) << size;
        for (size_t i = size / 112 + 1; i < 100; ++i) {
            EXPECT_EQ(records[i].lin_id, 0U) << size << ' ' << i;
        }
        ASSERT_EQ(lin->CloseDevice(0), 0) << size;
        files.Resize(0, 0);
        files.Write(0, 0, Bytes(12288, 0x11));
    }
}

TEST_F(LinManageMapTest, WithoutItsMappingAChannelIsNotClosed) {
    LinManage::statusMask = 2;
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->CloseDevice(1), -1); }),
              "LinManage::CloseMemmp channel1 mmap is null\n"
              "drivers::LinManage::OpenDevice - close memmp fail: 1\n");
    EXPECT_EQ(LinManage::statusMask, 2);
}

TEST_F(LinManageMapTest, APageThatCannotBeReleasedIsTold) {
    LinManage::statusMask = 1;
    alignas(16) static const char bytes[4096] = {};
    // No page begins there.
    LinManage::mappedMemory[0] = reinterpret_cast<const lin_rx_detil*>(
        (reinterpret_cast<uintptr_t>(bytes) & ~uintptr_t{4095}) + 8);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->CloseDevice(0), -1); }),
              "drivers::LinManage::OpenDevice - close memmp fail: 0\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "munmap failed: Invalid argument\n");
    Forget();
}

TEST_F(LinManageMapTest, TheRecordsOfNoChannelAreNone) {
    EXPECT_EQ(Told([] { EXPECT_EQ(LinManage::GetRxMemmap(2), nullptr); }),
              "LinManage::GetRxMemmap channel error\n");
    EXPECT_EQ(Told([] { EXPECT_EQ(LinManage::GetRxMemmap(-1), nullptr); }),
              "LinManage::GetRxMemmap channel error\n");
    EXPECT_EQ(Told([] { EXPECT_EQ(LinManage::GetRxMemmap(1), nullptr); }),
              "linChannel map nullptr\n");
}

TEST_F(LinManageMapTest, RecordsThatCannotBeMappedAreTold) {
    Network("LIN0");
    std::filesystem::remove(files.Path(0));
    ASSERT_EQ(mkfifo(files.Path(0).c_str(), 0600), 0); // opens, and has no pages to map
    testing::internal::CaptureStderr();
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->OpenDevice(0), -1); }),
              "drivers::LinManage::OpenDevice - mmap set fail: \n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "mmap failed: No such device\n");
    EXPECT_EQ(LinManage::GetDeviceStatus(0), 0);
}

} // namespace
