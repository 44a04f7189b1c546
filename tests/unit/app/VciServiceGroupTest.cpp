#include "app/VciServiceGroup.h"

#include "base/ZephEventLoop.h"
#include "base/ZephEventLoopThreadPool.h"
#include "support/BoardTest.h"
#include "utils/TempDir.h"

namespace {

// What the group object itself answers: gid, sid and handle are 0, whatever the frame said.
const Bytes kErrorLength{0, 5, 0, 0, 0, 104, 2, 10, 0, 0, 0, 0, 0, 0, 0, 0};
const Bytes kWrongGid{0, 5, 0, 0, 0, 104, 2, 15, 0, 0, 0, 0, 0, 0, 0, 0};
const Bytes kTime{0, 10, 0, 0, 0, 16, 1, 0x10, 0x27, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

class VciServiceGroupTest : public BoardTest {
  protected:
    VciServiceGroupTest() { board.SetCounter(1000); } // 10000 ns = 0x2710

    // One read event; what it sent.
    std::vector<Bytes> Event() {
        holder->HandleUsbEvent();
        return Answers();
    }

    // Events for as long as the device would report itself readable, as the loop gives them, up to
    // a bound that shows an endless loop.
    std::vector<Bytes> Settle() {
        std::vector<Bytes> all;
        for (int i = 0; i < 1000; ++i) {
            if (usb.Get(MemoryUsb::kReadIn) == usb.Get(MemoryUsb::kReadOut) ||
                (i > 0 && holder->WaitsForBytes())) {
                return all;
            }
            for (auto& answer : Event()) {
                all.push_back(std::move(answer));
            }
        }
        ADD_FAILURE() << "the ring does not settle";
        return all;
    }

    std::vector<Bytes> Send(const Bytes& bytes) {
        usb.HostWrite(bytes);
        return Settle();
    }

    uint32_t ReadOut() const { return usb.Get(MemoryUsb::kReadOut); }

    void ExpectTimeIsAnswered() { EXPECT_EQ(Send(Frame({16, 1})), std::vector<Bytes>{kTime}); }

    static Bytes Header(uint32_t n, uint8_t gid, uint8_t sid) {
        return {0,
                static_cast<uint8_t>(n),
                static_cast<uint8_t>(n >> 8),
                static_cast<uint8_t>(n >> 16),
                static_cast<uint8_t>(n >> 24),
                gid,
                sid,
                0};
    }

    TempDir files;
    ZephEventLoop loop;
    std::shared_ptr<ZephEventLoopThreadPool> pool =
        std::make_shared<ZephEventLoopThreadPool>(&loop, 3);
    // On the heap: services carry large buffers.
    std::unique_ptr<VciGroupService> holder =
        std::make_unique<VciGroupService>(&loop, pool, files / "clear.flag");
};

TEST_F(VciServiceGroupTest, RequestsAboutTheDeviceReachTheirService) {
    const auto unknown = Send(Frame({1, 99}, 0x11223344));
    EXPECT_EQ(unknown, (std::vector<Bytes>{
                           {0, 5, 0, 0, 0, 104, 2, 14, 1, 99, 0x44, 0x33, 0x22, 0x11, 0, 0}}));
    const auto version = Send(Frame({1, 6}));
    ASSERT_EQ(version.size(), 1U);
    EXPECT_EQ(Bytes(version[0].begin(), version[0].begin() + 15),
              (Bytes{0, 18, 0, 0, 0, 1, 6, 1, 2, 1, 2, 0, 1, 2, 0}));
}

TEST_F(VciServiceGroupTest, CanConfigurationAndSendRequestsReachTheirServices) {
    const auto set = Send(Frame({21, 43, 8, 0}));
    ASSERT_EQ(set.size(), 1U);
    EXPECT_EQ(Bytes(set[0].begin(), set[0].begin() + 7), (Bytes{0, 2, 0, 0, 0, 21, 43}));
    const auto sent = Send(Frame({22, 52, 8, 0}, 0x11223344)); // on a channel that is closed
    EXPECT_EQ(sent, (std::vector<Bytes>{
                        {0, 5, 0, 0, 0, 104, 2, 12, 22, 52, 0x44, 0x33, 0x22, 0x11, 0, 0}}));
}

TEST_F(VciServiceGroupTest, ReplayRequestsReachTheirService) {
    const auto paused = Send(Frame({18, 5}));
    ASSERT_EQ(paused.size(), 1U);
    EXPECT_EQ(Bytes(paused[0].begin(), paused[0].begin() + 7), (Bytes{0, 2, 0, 0, 0, 18, 5}));
}

TEST_F(VciServiceGroupTest, IoRequestsReachTheirService) {
    const auto set = Send(Frame({20, 3, 0x10, 0x27}));
    ASSERT_EQ(set.size(), 1U);
    EXPECT_EQ(Bytes(set[0].begin(), set[0].begin() + 7), (Bytes{0, 10, 0, 0, 0, 20, 3}));
    EXPECT_EQ(board.Registers(0x88000000).Word(16), 10000U);
}

TEST_F(VciServiceGroupTest, LinRequestsReachTheirService) {
    const auto closed = Send(Frame({6, 1, 0, 0}, 0x11223344)); // of a channel that is closed
    EXPECT_EQ(closed, (std::vector<Bytes>{
                          {0, 5, 0, 0, 0, 104, 2, 12, 6, 1, 0x44, 0x33, 0x22, 0x11, 0, 0}}));
    const auto unknown = Send(Frame({6, 99}, 0x11223344));
    EXPECT_EQ(unknown, (std::vector<Bytes>{
                           {0, 5, 0, 0, 0, 104, 2, 14, 6, 99, 0x44, 0x33, 0x22, 0x11, 0, 0}}));
}

TEST_F(VciServiceGroupTest, TheStartAnswersAClearOfTheConfigurationBeforeItReadsRequests) {
    files.Write("clear.flag", "");
    usb.HostWrite(Frame({16, 1}));
    holder->Init();
    Bytes cleared = kTime;
    cleared[5] = 1;
    cleared[6] = 8;
    EXPECT_EQ(Answers(), std::vector<Bytes>{cleared});
    EXPECT_EQ(Event(), std::vector<Bytes>{kTime});
}

TEST_F(VciServiceGroupTest, AnyOtherStartAnswersNothing) {
    holder->Init();
    EXPECT_TRUE(Answers().empty());
}

TEST_F(VciServiceGroupTest, InitStartsTheSyncService) {
    board.Gpio("gpiochip1").writes.clear();
    holder->Init();
    EXPECT_FALSE(board.Gpio("gpiochip1").writes.empty());
}

TEST_F(VciServiceGroupTest, RoutesAKnownGroup) {
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, OneEventTreatsOneFrame) {
    usb.HostWrite(Frame({16, 1}));
    usb.HostWrite(Frame({16, 1}));
    EXPECT_EQ(Event(), std::vector<Bytes>{kTime});
    EXPECT_EQ(ReadOut(), 16U);
    EXPECT_EQ(Event(), std::vector<Bytes>{kTime});
    EXPECT_EQ(ReadOut(), 32U);
}

TEST_F(VciServiceGroupTest, UnknownGroupsAreRefusedAsGroupZeroWithHandleZero) {
    for (const uint8_t gid : Bytes{0, 2, 17, 25, 104, 255}) {
        EXPECT_EQ(Send(Frame({gid, 99}, 0x11223344)), std::vector<Bytes>{kWrongGid})
            << "gid " << int{gid};
    }
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, AnUnknownGroupIsSkippedByItsLengthWhetherItHasArrivedOrNot) {
    usb.HostWrite(Header(1000, 25, 1));
    EXPECT_EQ(Event(), std::vector<Bytes>{kWrongGid});
    EXPECT_EQ(ReadOut(), 1012U);
    usb.HostWrite(Bytes(1004, 0x55)); // the rest of it
    EXPECT_EQ(Settle(), std::vector<Bytes>{});
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, AnUnknownServiceIsRefusedWithItsOwnNumbers) {
    EXPECT_EQ(
        Send(Frame({16, 99}, 0x11223344)),
        (std::vector<Bytes>{{0, 5, 0, 0, 0, 104, 2, 14, 16, 99, 0x44, 0x33, 0x22, 0x11, 0, 0}}));
}

TEST_F(VciServiceGroupTest, AServiceLengthOfTwoIsASixteenByteFrame) {
    EXPECT_EQ(
        Send({0, 2, 0, 0, 0, 16, 99, 0x44, 0x33, 0x22, 0x11, 1, 2, 3, 4, 5}),
        (std::vector<Bytes>{{0, 5, 0, 0, 0, 104, 2, 14, 16, 99, 0x44, 0x33, 0x22, 0x11, 0, 0}}));
    EXPECT_EQ(ReadOut(), 16U);
}

TEST_F(VciServiceGroupTest, AServiceLengthOfZeroIsATwelveByteFrame) {
    // Nothing but a header and a handle: the byte in the group's place decides.
    EXPECT_EQ(Send({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), std::vector<Bytes>{kWrongGid});
    EXPECT_EQ(ReadOut(), 12U);
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, ZeroToSevenBytesAreRefusedAndTheIndexMovesByTwelve) {
    for (uint32_t count = 0; count <= 7; ++count) {
        usb.Reset();
        holder = std::make_unique<VciGroupService>(&loop, pool, files / "clear.flag");
        usb.HostWrite(Bytes(count, 0xFF));
        holder->HandleUsbEvent();
        EXPECT_EQ(Answers(), std::vector<Bytes>{kErrorLength}) << count << " bytes";
        EXPECT_EQ(ReadOut(), 12U) << count << " bytes";
    }
}

TEST_F(VciServiceGroupTest, AWrappedLengthOfZeroIsRefusedAndTheIndexStays) {
    usb.HostWrite(Header(0xFFFFFFF5, 16, 1));
    EXPECT_EQ(Event(), std::vector<Bytes>{kErrorLength});
    EXPECT_EQ(ReadOut(), 0U);
}

TEST_F(VciServiceGroupTest, AFrameThatDoesNotMoveTheIndexIsRefusedOnceUntilBytesArrive) {
    EXPECT_EQ(Send(Frame({16, 1})), std::vector<Bytes>{kTime});
    usb.HostWrite(Header(0xFFFFFFF5, 16, 1));
    EXPECT_EQ(Settle(), std::vector<Bytes>{kErrorLength});
    EXPECT_EQ(Event(), std::vector<Bytes>{});
    EXPECT_EQ(ReadOut(), 16U);
    ExpectTimeIsAnswered();
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, AnIndexThatStaysBeforeAFullRingMakesRoomForTheHost) {
    Bytes bytes = Header(0xFFFFFFF5, 16, 1);
    bytes.resize(0x100000);
    EXPECT_EQ(Send(bytes), std::vector<Bytes>{kErrorLength});
    EXPECT_EQ(Event(), std::vector<Bytes>{});
    EXPECT_EQ(ReadOut(), 0x100000U);
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, AnIndexThatMovesBackByARingMakesRoomForTheHost) {
    usb.HostWrite(Header(0xFFEFFFF6, 16, 1)); // a frame length of -0x100000 + 4
    EXPECT_EQ(Event(), std::vector<Bytes>{kErrorLength});
    EXPECT_EQ(ReadOut(), 0xFFF00004U);
    EXPECT_EQ(Event(), std::vector<Bytes>{});
    EXPECT_EQ(ReadOut(), 8U);
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, AWrappedLengthOfFourIsRefusedAndTheIndexMovesByFour) {
    usb.HostWrite(Header(0xFFFFFFF6, 16, 1));
    EXPECT_EQ(Event(), std::vector<Bytes>{kErrorLength});
    EXPECT_EQ(ReadOut(), 4U);
}

TEST_F(VciServiceGroupTest, ANegativeLengthMovesTheIndexBackAndLaterFramesAreNotLost) {
    for (const uint32_t n : {0xFFFFFFF1U, 0xFFFFFFF4U, 0x7FFFFFF5U, 0x80000000U, 0xFFFF0000U}) {
        usb.HostWrite(Header(n, 16, 1));
        EXPECT_EQ(Settle().front(), kErrorLength) << "n " << n;
        ExpectTimeIsAnswered();
        ExpectTimeIsAnswered();
    }
}

TEST_F(VciServiceGroupTest, AFrameBeyondTheRequestBufferIsRefusedAndSkippedWhole) {
    Bytes frame = Header(66001, 16, 1);
    frame.resize(66012, 0x55); // 66001 + 11 is a multiple of 4
    const Bytes follower = Frame({16, 1});
    frame.insert(frame.end(), follower.begin(), follower.end());
    EXPECT_EQ(Send(frame), (std::vector<Bytes>{kErrorLength, kTime}));
}

TEST_F(VciServiceGroupTest, TheLongestFrameThatFitsReachesItsService) {
    Bytes fits = Header(65989, 16, 1);
    fits.resize(66000);
    EXPECT_EQ(Send(fits),
              (std::vector<Bytes>{{0, 5, 0, 0, 0, 104, 2, 10, 16, 1, 0, 0, 0, 0, 0, 0}}));
    Bytes tooLong = Header(65990, 16, 1);
    tooLong.resize(66004);
    EXPECT_EQ(Send(tooLong), std::vector<Bytes>{kErrorLength});
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, AnUnknownGroupBeyondTheRequestBufferIsStillAnUnknownGroup) {
    Bytes frame = Header(66001, 25, 1);
    frame.resize(66012);
    EXPECT_EQ(Send(frame), std::vector<Bytes>{kWrongGid});
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, AFrameLongerThanTheRingIsSkippedWhileItArrives) {
    const uint32_t n = 0x180000;
    EXPECT_EQ(Send(Header(n, 16, 1)), std::vector<Bytes>{kErrorLength});
    uint32_t rest = n + 12 - 8; // n + 11 rounded up to a multiple of 4
    while (rest > 0) {
        const uint32_t piece = std::min(rest, 0x10000U);
        EXPECT_EQ(Send(Bytes(piece, 0x55)), std::vector<Bytes>{});
        rest -= piece;
    }
    EXPECT_EQ(ReadOut(), usb.Get(MemoryUsb::kReadIn));
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, AfterAnOverlongHeaderAloneTheNextWholeFrameIsTreated) {
    EXPECT_EQ(Send(Header(0x180000, 16, 1)), std::vector<Bytes>{kErrorLength});
    ExpectTimeIsAnswered();
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, AfterTooFewBytesTheNextWholeFrameIsTreated) {
    for (uint32_t count = 1; count <= 7; ++count) {
        EXPECT_EQ(Send(Bytes(count, 0)), std::vector<Bytes>{kErrorLength}) << count << " bytes";
        ExpectTimeIsAnswered();
        ExpectTimeIsAnswered();
    }
}

TEST_F(VciServiceGroupTest, AfterTooFewBytesAFrameInTwoPiecesMayBeMisreadButTheNextIsNot) {
    EXPECT_EQ(Send({0, 0, 0}), std::vector<Bytes>{kErrorLength});
    const Bytes frame = Frame({16, 2, 1, 2, 3, 4, 5, 6, 7, 8});
    Send(Bytes(frame.begin(), frame.begin() + 20));
    Send(Bytes(frame.begin() + 20, frame.end()));
    ExpectTimeIsAnswered();
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, ASkippedRestThatLooksLikeAHeadHoldsUpNoLaterFrame) {
    EXPECT_EQ(Send(Header(1000, 25, 1)), std::vector<Bytes>{kWrongGid});
    Bytes rest(1004, 0x55);
    const Bytes head = Header(0x8000, 16, 1); // of a frame that would be long
    std::copy(head.begin(), head.end(), rest.begin());
    EXPECT_EQ(Send(rest), std::vector<Bytes>{});
    ExpectTimeIsAnswered();
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, BytesThatArriveWhileAFrameIsTreatedCountAsArrived) {
    const Bytes frame = Frame({16, 2, 1, 2, 3, 4, 5, 6, 7, 8});
    usb.HostWrite(Bytes(frame.begin(), frame.begin() + 8));
    // The service's reading of the time is the moment at which the rest comes in.
    board.Registers(0x81000000).afterRead = [&](uint32_t) {
        board.Registers(0x81000000).afterRead = nullptr;
        usb.HostWrite(Bytes(frame.begin() + 8, frame.end()));
    };
    EXPECT_EQ(Event().size(), 1U); // on the head alone
    EXPECT_EQ(Event().size(), 1U); // and on the whole
    EXPECT_EQ(ReadOut(), 24U);
    EXPECT_FALSE(holder->WaitsForBytes());
}

TEST_F(VciServiceGroupTest, AfterALengthThatMovesFarBackUnknownGroupsAreAnsweredToo) {
    EXPECT_EQ(Send(Header(0x80000000, 16, 1)), std::vector<Bytes>{kErrorLength});
    EXPECT_EQ(Send(Frame({25, 1})), std::vector<Bytes>{kWrongGid});
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, AnErrorConditionOnAnEmptyRingCostsNoLaterFrame) {
    EXPECT_EQ(Event(), std::vector<Bytes>{kErrorLength});
    EXPECT_EQ(ReadOut(), 12U);
    EXPECT_EQ(Event(), std::vector<Bytes>{}); // the next error, with nothing new
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, AnIncompleteFrameRunsItsServiceOnceForEachArrivalAndStays) {
    // The service sees the new head and, behind it, what its buffer held: here a handle of 0.
    const Bytes frame = Frame({16, 2, 1, 2, 3, 4, 5, 6, 7, 8}, 0x11223344);
    const Bytes followUp{0, 10, 0, 0, 0, 16, 2, 0x10, 0x27, 0, 0, 0,
                         0, 0,  0, 0, 0, 0,  0, 0,    0,    0, 0, 0};
    EXPECT_EQ(Send(Bytes(frame.begin(), frame.begin() + 8)), std::vector<Bytes>{followUp});
    EXPECT_EQ(ReadOut(), 0U);
    EXPECT_EQ(Event(), std::vector<Bytes>{});
    EXPECT_EQ(Send(Bytes(frame.begin() + 8, frame.begin() + 16)), std::vector<Bytes>{followUp});
    EXPECT_EQ(Send(Bytes(frame.begin() + 16, frame.end())), std::vector<Bytes>{followUp});
    EXPECT_EQ(ReadOut(), 24U);
    ExpectTimeIsAnswered();
}

TEST_F(VciServiceGroupTest, IndicesThatAnEarlierDaemonLeftBeyondSenseCostNoFrame) {
    for (const uint32_t out : {9U, 66000U, 0x8000000CU, 0xFFE00000U}) {
        usb.Reset();
        usb.Set(MemoryUsb::kReadOut, out);
        holder = std::make_unique<VciGroupService>(&loop, pool, files / "clear.flag");
        holder->StartReading();
        EXPECT_EQ(Event(), std::vector<Bytes>{});
        ExpectTimeIsAnswered();
        ExpectTimeIsAnswered();
    }
}

TEST_F(VciServiceGroupTest, FramesThatWaitAtTheStartAreTreated) {
    usb.HostWrite(Frame({16, 1}));
    holder->StartReading();
    EXPECT_EQ(Settle(), std::vector<Bytes>{kTime});
}

TEST_F(VciServiceGroupTest, AnIncompleteFrameThatWaitsAtTheStartIsTreatedWhenMoreArrives) {
    const Bytes frame = Frame({16, 1});
    usb.HostWrite({frame.begin(), frame.begin() + 8});
    holder->StartReading();
    EXPECT_TRUE(Settle().empty()); // the daemon before has answered it
    usb.HostWrite({frame.begin() + 8, frame.end()});
    EXPECT_EQ(Settle(), std::vector<Bytes>{kTime});
    EXPECT_EQ(ReadOut(), 16U);
}

TEST_F(VciServiceGroupTest, FramesAreTreatedAcrossTheWrapOfRingAndIndices) {
    usb.Set(MemoryUsb::kReadIn, 0xFFFFFFF8);
    usb.Set(MemoryUsb::kReadOut, 0xFFFFFFF8);
    ExpectTimeIsAnswered();
    EXPECT_EQ(ReadOut(), 8U);
    EXPECT_EQ(Send({0, 0, 0}), std::vector<Bytes>{kErrorLength});
    ExpectTimeIsAnswered();
}

} // namespace
