#include "common/VciService.h"

#include "common/UploadFrame.h"
#include "support/BoardTest.h"

#include <memory>

namespace {

// A service whose protected operations and buffers a test may use.
class OpenService : public VciService {
  public:
    using VciService::VciService;

    using VciService::gid_;
    using VciService::pReqSrv;
    using VciService::pRespSrv;
    using VciService::reqMsgData;
    using VciService::reqSrvLength;
    using VciService::respMsgData;
    using VciService::sid_;
    using VciService::srvHandle;
};

class VciServiceTest : public BoardTest {
  protected:
    // On the heap: the request buffer is large.
    std::unique_ptr<OpenService> service = std::make_unique<OpenService>(nullptr);
};

TEST_F(VciServiceTest, StartsWithEverythingAtZero) {
    EXPECT_EQ(service->gid_, 0);
    EXPECT_EQ(service->sid_, 0);
    EXPECT_EQ(service->srvHandle, 0U);
    EXPECT_EQ(service->usbDataNum, 0);
    EXPECT_EQ(service->pRespSrv, service->respMsgData + 5);
    EXPECT_EQ(service->pReqSrv, service->reqMsgData + 5);
    for (const uint8_t byte : service->respMsgData) {
        ASSERT_EQ(byte, 0);
    }
}

TEST_F(VciServiceTest, KeepsTheLoopItWasBuiltWith) {
    auto* loop = reinterpret_cast<ZephEventLoop*>(this); // an address; nothing looks behind it
    EXPECT_EQ(OpenService(loop).GetLoop(), loop);
    EXPECT_EQ(OpenService().GetLoop(), nullptr);
}

TEST_F(VciServiceTest, TakesAFrameWithItsHandle) {
    usb.HostWrite(Bytes{0xFF, 2, 0, 0, 0, 16, 1, 0x44, 0x33, 0x22, 0x11, 9, 9, 9, 9, 9});
    service->GetDataFromUsb();
    service->SetHandle();
    EXPECT_EQ(service->reqSrvLength, 2U);
    EXPECT_EQ(service->pReqSrv[0], 16);
    EXPECT_EQ(service->pReqSrv[1], 1);
    EXPECT_EQ(service->srvHandle, 0x11223344U);
    EXPECT_EQ(usb.Get(MemoryUsb::kReadOut), 16U);
}

TEST_F(VciServiceTest, AnIncompleteFrameShowsItsHeadAndStaysInTheRing) {
    usb.HostWrite(Bytes{0, 10, 0, 0, 0, 16, 2, 0xAB, 0xCD});
    service->GetDataFromUsb();
    EXPECT_EQ(service->reqSrvLength, 10U);
    EXPECT_EQ(service->pReqSrv[2], 0xAB);
    EXPECT_EQ(service->pReqSrv[3], 0); // what the buffer held
    EXPECT_EQ(usb.Get(MemoryUsb::kReadOut), 0U);
}

TEST_F(VciServiceTest, AFrameThatFillsTheBufferIsTakenWhole) {
    Bytes frame(66000);
    const uint32_t n = 65989;
    frame[1] = static_cast<uint8_t>(n);
    frame[2] = static_cast<uint8_t>(n >> 8);
    frame[3] = static_cast<uint8_t>(n >> 16);
    frame[5 + n] = 0x99;
    usb.HostWrite(frame);
    service->GetDataFromUsb();
    service->SetHandle();
    EXPECT_EQ(usb.Get(MemoryUsb::kReadOut), 66000U);
    EXPECT_EQ(service->srvHandle, 0x99U);
}

TEST_F(VciServiceTest, AFrameBeyondTheBufferIsNotCopiedAndHasNoHandle) {
    Bytes frame(70000, 0xEE);
    frame[1] = 0x60;
    frame[2] = 0xEA;
    frame[3] = 0x01; // 125536
    frame[4] = 0x00;
    usb.HostWrite(frame);
    service->GetDataFromUsb();
    service->SetHandle();
    EXPECT_EQ(service->srvHandle, 0U);
    EXPECT_EQ(usb.Get(MemoryUsb::kReadOut), 0U);
}

TEST_F(VciServiceTest, APositiveResponseCarriesNoHandle) {
    service->srvHandle = 0x11223344;
    service->pRespSrv[0] = 16;
    service->pRespSrv[1] = 4;
    service->UsbPositiveResponse(2);
    EXPECT_EQ(Answer(), (Bytes{0, 2, 0, 0, 0, 16, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(VciServiceTest, AShortResponseAfterALongOneShowsTheLongOnesBytesBehindIt) {
    for (uint8_t i = 0; i < 10; ++i) {
        service->pRespSrv[i] = static_cast<uint8_t>(0xA0 + i);
    }
    service->UsbPositiveResponse(10);
    service->UsbPositiveResponse(2);
    const auto answers = Answers();
    ASSERT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers[0], (Bytes{0,    10,   0,    0, 0, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6,
                                 0xA7, 0xA8, 0xA9, 0, 0, 0,    0,    0,    0,    0,    0,    0}));
    EXPECT_EQ(answers[1], (Bytes{0, 2, 0, 0, 0, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7,
                                 0xA8, 0xA9, 0}));
}

TEST_F(VciServiceTest, ANegativeResponseNamesTheRequest) {
    service->gid_ = 1;
    service->sid_ = 99;
    service->srvHandle = 0x11223344;
    service->UsbNegtiveResponse(WRONG_SID);
    EXPECT_EQ(Answer(), (Bytes{0, 5, 0, 0, 0, 104, 2, 14, 1, 99, 0x44, 0x33, 0x22, 0x11, 0, 0}));
}

TEST_F(VciServiceTest, ANegativeResponseLeavesItsLastTwoBytesAsTheyWere) {
    service->respMsgData[14] = 0x5A;
    service->respMsgData[15] = 0xA5;
    service->UsbNegtiveResponse(ERROR_LENGTH);
    EXPECT_EQ(Answer(), (Bytes{0, 5, 0, 0, 0, 104, 2, 10, 0, 0, 0, 0, 0, 0, 0x5A, 0xA5}));
}

TEST_F(VciServiceTest, TheTimeResponseIsTenBytesWithTheDeviceTime) {
    board.SetCounter(0x100000000); // 42949672960 ns
    service->gid_ = 16;
    service->sid_ = 1;
    service->UsbTimeResponse();
    EXPECT_EQ(Answer(),
              (Bytes{0, 10, 0, 0, 0, 16, 1, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(VciServiceTest, AResponseIntoAFullRingIsDropped) {
    usb.Set(MemoryUsb::kWriteIn, 0x1000000);
    service->UsbPositiveResponse(2);
    service->UsbNegtiveResponse(WRONG_SID);
    EXPECT_EQ(usb.Get(MemoryUsb::kWriteIn), 0x1000000U);
    EXPECT_EQ(usb.Get(MemoryUsb::kLengthIn), 0U);
    EXPECT_EQ(usb.doorbells, 0);
}

TEST_F(VciServiceTest, AResponseLongerThanTheBufferEndsWithTheBuffer) {
    service->UsbPositiveResponse(4000);
    EXPECT_EQ(Answer().size(), 2048U);
}

TEST_F(VciServiceTest, AnUploadIsAFrameOfItsOwn) {
    UploadFrame<3> upload;
    upload.Service().U8(104).U8(5).U8(7);
    EXPECT_TRUE(upload.Send());
    EXPECT_EQ(Answer(), (Bytes{0, 3, 0, 0, 0, 104, 5, 7, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(VciServiceTest, AnUploadIntoAFullRingIsDropped) {
    usb.Set(MemoryUsb::kWriteIn, 0x1000000);
    EXPECT_FALSE(UploadFrame<3>().Send());
}

} // namespace
