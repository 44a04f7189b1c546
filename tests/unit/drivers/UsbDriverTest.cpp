#include "drivers/UsbDriver.h"

#include "doubles/MemoryUsb.h"

#include <cstring>
#include <numeric>
#include <thread>

#include <gtest/gtest.h>

namespace {

constexpr uint32_t kWriteSize = 0x1000000;

class UsbDriverTest : public testing::Test {
  protected:
    UsbDriverTest() {
        usb.Reset();
        testing::internal::CaptureStdout();
        driver = std::make_unique<Drivers::UsbDriver>(usb.MakePort());
        testing::internal::GetCapturedStdout();
    }

    ~UsbDriverTest() override {
        testing::internal::CaptureStdout();
        driver.reset();
        testing::internal::GetCapturedStdout();
    }

    static std::vector<uint8_t> Counting(size_t length) {
        std::vector<uint8_t> bytes(length);
        std::iota(bytes.begin(), bytes.end(), uint8_t{1});
        return bytes;
    }

    MemoryUsb& usb = MemoryUsb::Instance();
    std::unique_ptr<Drivers::UsbDriver> driver;
};

TEST_F(UsbDriverTest, PrintsItsBeginningAndItsEnd) {
    testing::internal::CaptureStdout();
    { Drivers::UsbDriver another(usb.MakePort()); }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "UsbDriver(): \n~UsbDriver(): \n");
}

TEST_F(UsbDriverTest, ReleasesItsMappingsAndTheDevice) {
    const int mapped = usb.mapped;
    testing::internal::CaptureStdout();
    { Drivers::UsbDriver another(usb.MakePort()); }
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(usb.mapped, mapped);
    EXPECT_EQ(usb.closed, 1);
}

TEST_F(UsbDriverTest, PeekOfExactlyEightBytesConsumesNothing) {
    const auto sent = Counting(8);
    usb.HostWrite(sent);
    uint8_t got[8] = {};
    EXPECT_EQ(driver->UsbPeek(got), 8U);
    EXPECT_EQ(std::memcmp(got, sent.data(), 8), 0);
    EXPECT_EQ(usb.Get(MemoryUsb::kReadOut), 0U);
}

TEST_F(UsbDriverTest, PeekOfSevenBytesReturnsZeroAndCopiesNothing) {
    usb.HostWrite(Counting(7));
    uint8_t got[8] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
    EXPECT_EQ(driver->UsbPeek(got), 0U);
    EXPECT_EQ(got[0], 0xAA);
}

TEST_F(UsbDriverTest, ReadConsumesWhatItCopies) {
    const auto sent = Counting(24);
    usb.HostWrite(sent);
    std::vector<uint8_t> got(24);
    EXPECT_EQ(driver->UsbRead(got.data(), 24), 24U);
    EXPECT_EQ(got, sent);
    EXPECT_EQ(usb.Get(MemoryUsb::kReadOut), 24U);
}

TEST_F(UsbDriverTest, ReadOfMoreThanTheRingHoldsMovesNothing) {
    usb.HostWrite(Counting(15));
    uint8_t got[16] = {};
    EXPECT_EQ(driver->UsbRead(got, 16), 0U);
    EXPECT_EQ(driver->UsbRead(got, -1), 0U);
    EXPECT_EQ(got[0], 0);
    EXPECT_EQ(usb.Get(MemoryUsb::kReadOut), 0U);
}

TEST_F(UsbDriverTest, ReadWrapsAtTheEndOfTheRing) {
    usb.Set(MemoryUsb::kReadIn, 0xFFFFC);
    usb.Set(MemoryUsb::kReadOut, 0xFFFFC);
    const auto sent = Counting(16);
    usb.HostWrite(sent);
    std::vector<uint8_t> got(16);
    EXPECT_EQ(driver->UsbRead(got.data(), 16), 16U);
    EXPECT_EQ(got, sent);
    EXPECT_EQ(usb.Get(MemoryUsb::kReadOut), 0x10000CU);
}

TEST_F(UsbDriverTest, ReadNoCopyMovesTheIndexWithoutLookingAtTheFillLevel) {
    usb.HostWrite(Counting(3));
    EXPECT_EQ(driver->UsbReadNoCopy(12), 12U);
    EXPECT_EQ(usb.Get(MemoryUsb::kReadOut), 12U);
    // Seen from there the ring looks very full, and a peek reads what nobody has written.
    uint8_t got[8] = {};
    EXPECT_EQ(driver->UsbPeek(got), 8U);
}

TEST_F(UsbDriverTest, FillLevelIsSixteenAcrossTheWrapOfTheIndices) {
    std::vector<uint8_t> got(17);
    usb.Set(MemoryUsb::kReadOut, 0xFFFFFFE0);
    usb.Set(MemoryUsb::kReadIn, 0xFFFFFFF0);
    EXPECT_EQ(driver->UsbRead(got.data(), 17), 0U);
    EXPECT_EQ(driver->UsbRead(got.data(), 16), 16U);
    usb.Set(MemoryUsb::kReadOut, 0xFFFFFFF8);
    usb.Set(MemoryUsb::kReadIn, 8);
    EXPECT_EQ(driver->UsbRead(got.data(), 17), 0U);
    EXPECT_EQ(driver->UsbRead(got.data(), 16), 16U);
    EXPECT_EQ(usb.Get(MemoryUsb::kReadOut), 8U);
}

TEST_F(UsbDriverTest, WriteQueuesBytesAndLengthAndRingsOnce) {
    const auto message = Counting(24);
    EXPECT_EQ(driver->UsbWrite(message.data(), 24), 24U);
    EXPECT_EQ(usb.doorbells, 1);
    EXPECT_EQ(usb.Get(MemoryUsb::kWriteIn), 24U);
    EXPECT_EQ(usb.Get(MemoryUsb::kLengthIn), 1U);
    EXPECT_EQ(usb.HostRead(), message);
}

TEST_F(UsbDriverTest, WriteOfNothingQueuesNothingAndRingsNoDoorbell) {
    EXPECT_EQ(driver->UsbWrite("", 0), 0U);
    EXPECT_EQ(usb.doorbells, 0);
    EXPECT_EQ(usb.Get(MemoryUsb::kWriteIn), 0U);
    EXPECT_EQ(usb.Get(MemoryUsb::kLengthIn), 0U);
}

TEST_F(UsbDriverTest, AMessageThatEndsAtTheEndOfTheRingLeavesItsStartAlone) {
    usb.Set(MemoryUsb::kWriteIn, kWriteSize - 16);
    usb.Set(MemoryUsb::kWriteOut, kWriteSize - 16);
    usb.WriteRing()[0] = 0xEE;
    const auto message = Counting(16);
    EXPECT_EQ(driver->UsbWrite(message.data(), 16), 16U);
    EXPECT_EQ(usb.Get(MemoryUsb::kWriteIn), kWriteSize);
    EXPECT_EQ(usb.WriteRing()[kWriteSize - 1], 16);
    EXPECT_EQ(usb.WriteRing()[0], 0xEE);
}

TEST_F(UsbDriverTest, AMessageThatWrapsIsSplitAndTheIndexRunsOn) {
    usb.Set(MemoryUsb::kWriteIn, kWriteSize - 4);
    usb.Set(MemoryUsb::kWriteOut, kWriteSize - 4);
    const auto message = Counting(16);
    EXPECT_EQ(driver->UsbWrite(message.data(), 16), 16U);
    EXPECT_EQ(usb.Get(MemoryUsb::kWriteIn), kWriteSize + 12);
    EXPECT_EQ(usb.WriteRing()[kWriteSize - 1], 4);
    EXPECT_EQ(usb.WriteRing()[0], 5);
    EXPECT_EQ(usb.HostRead(), message);
}

TEST_F(UsbDriverTest, TheLengthRingWrapsAtItsOwnCountOfEntries) {
    usb.Set(MemoryUsb::kLengthIn, 0x400000);
    usb.Set(MemoryUsb::kLengthOut, 0x400000);
    const auto message = Counting(20);
    driver->UsbWrite(message.data(), 20);
    uint32_t length = 0;
    std::memcpy(&length, usb.LengthRing(), sizeof(length));
    EXPECT_EQ(length, 20U);
    EXPECT_EQ(usb.Get(MemoryUsb::kLengthIn), 0x400001U);
}

TEST_F(UsbDriverTest, AFullLengthRingLosesTheLengthOfAMessageThatIsCopied) {
    usb.Set(MemoryUsb::kLengthIn, 0x1000000);
    testing::internal::CaptureStdout();
    EXPECT_EQ(driver->UsbWrite(Counting(16).data(), 16), 16U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " fuck the usb \n");
    EXPECT_EQ(usb.Get(MemoryUsb::kWriteIn), 16U);
    EXPECT_EQ(usb.Get(MemoryUsb::kLengthIn), 0x1000000U);
    EXPECT_EQ(usb.doorbells, 1);
}

TEST_F(UsbDriverTest, AMessageOfExactlyTheFreeSpaceIsAcceptedAndOneByteMoreIsNot) {
    usb.Set(MemoryUsb::kWriteIn, kWriteSize - 16);
    const auto message = Counting(17);
    EXPECT_EQ(driver->UsbWrite(message.data(), 17), 0U);
    EXPECT_EQ(usb.Get(MemoryUsb::kWriteIn), kWriteSize - 16);
    EXPECT_EQ(usb.doorbells, 0);
    EXPECT_EQ(driver->UsbWrite(message.data(), 16), 16U);
    EXPECT_EQ(usb.Get(MemoryUsb::kWriteIn), kWriteSize);
}

TEST_F(UsbDriverTest, OnlyTheTenThousandthLossPrints) {
    usb.Set(MemoryUsb::kWriteIn, kWriteSize);
    const auto message = Counting(16);
    testing::internal::CaptureStdout();
    for (int i = 0; i < 9999; ++i) {
        ASSERT_EQ(driver->UsbWrite(message.data(), 16), 0U);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    testing::internal::CaptureStdout();
    EXPECT_EQ(driver->UsbWrite(message.data(), 16), 0U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "No enough space for copy in, total lost 10000\n"
              "inptr[16777216], outptr[0]. \n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(driver->UsbWrite(message.data(), 16), 0U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(UsbDriverTest, AFailedDoorbellIsPrintedAndTheMessageStaysQueued) {
    usb.doorbell = [] { return -1; };
    const auto message = Counting(16);
    testing::internal::CaptureStdout();
    EXPECT_EQ(driver->UsbWrite(message.data(), 16), 16U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ioctl failed  : 7 ret:  -1\n");
    EXPECT_EQ(usb.HostRead(), message);
}

TEST_F(UsbDriverTest, SpoiltIndicesNeverCopyBeyondTheRings) {
    usb.Set(MemoryUsb::kWriteOut, 0x40000000); // ahead of our index: the room looks endless
    std::vector<uint8_t> large(size_t{kWriteSize} + 1);
    EXPECT_EQ(driver->UsbWrite(large.data(), kWriteSize + 1), 0U);
    usb.Set(MemoryUsb::kReadIn, 0x40000000); // more than a ring full
    EXPECT_EQ(driver->UsbRead(large.data(), 0x100001), 0U);
    EXPECT_EQ(usb.Get(MemoryUsb::kReadOut), 0U);
}

TEST_F(UsbDriverTest, PrintShowsSixteenBytesALine) {
    testing::internal::CaptureStdout();
    driver->UsbPrint(Counting(18).data(), 18, true);
    driver->UsbPrint("\xff", 1, false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "in: \n01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10\n11 12\nout: \nff\n");
}

TEST_F(UsbDriverTest, MessagesOfManyWritersStayWholeAndInTheOrderOfTheirLengths) {
    constexpr int kWriters = 4;
    constexpr int kMessages = 2000;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([this, writer] {
            // Each writer has a length of its own, and its number in every byte.
            const std::vector<uint8_t> message(16 + 4 * static_cast<size_t>(writer),
                                               static_cast<uint8_t>(writer));
            for (int i = 0; i < kMessages; ++i) {
                ASSERT_NE(driver->UsbWrite(message.data(), static_cast<uint32_t>(message.size())),
                          0U);
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }
    int counts[kWriters] = {};
    while (const auto message = usb.HostRead()) {
        const uint8_t writer = message->at(0);
        ASSERT_LT(writer, kWriters);
        ASSERT_EQ(*message, std::vector<uint8_t>(16 + 4 * size_t{writer}, writer));
        ++counts[writer];
    }
    for (const int count : counts) {
        EXPECT_EQ(count, kMessages);
    }
}

class UnmappedUsbDriverTest : public testing::Test {
  protected:
    UnmappedUsbDriverTest() { usb.Reset(); }
    ~UnmappedUsbDriverTest() override { usb.Reset(); }

    void ExpectEmptyAndFull(const std::string& error) {
        const int mapped = usb.mapped;
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
        {
            Drivers::UsbDriver driver(usb.MakePort());
            uint8_t bytes[16] = {};
            EXPECT_EQ(driver.UsbPeek(bytes), 0U);
            EXPECT_EQ(driver.UsbRead(bytes, 16), 0U);
            EXPECT_EQ(driver.UsbReadNoCopy(12), 12U);
            EXPECT_EQ(driver.UsbWrite(bytes, 16), 0U);
            EXPECT_EQ(driver.ReadIn(), 0U);
            EXPECT_EQ(driver.ReadOut(), 0U);
        }
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), error);
        EXPECT_EQ(usb.mapped, mapped);
    }

    MemoryUsb& usb = MemoryUsb::Instance();
};

TEST_F(UnmappedUsbDriverTest, WithoutADeviceNothingIsReadAndEverythingDropped) {
    usb.failOpen = true;
    ExpectEmptyAndFull("open failed: No such file or directory\n");
}

TEST_F(UnmappedUsbDriverTest, AFailedMappingOfAnyRegionDoesTheSame) {
    for (const off_t region : {0, 4096, 8192, 12288}) {
        usb.Reset();
        usb.failMapAt = region;
        ExpectEmptyAndFull("mmap: Cannot allocate memory\n");
        EXPECT_GE(usb.closed, 1);
    }
}

} // namespace
