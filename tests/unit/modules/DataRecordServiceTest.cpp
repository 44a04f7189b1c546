#include "modules/DataRecordService.h"

#include "base/ZephEventLoop.h"
#include "modules/CanErrorFiles.h"
#include "net/CapturedPacket.h"
#include "net/NetNamespace.h"
#include "support/BoardTest.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <thread>

#include <sys/stat.h>

namespace {

constexpr auto kDeadline = std::chrono::seconds(8);

class DataRecordServiceTest : public BoardTest {
  protected:
    DataRecordServiceTest() {
        board.SetCounter(1000);            // 10000 ns = 0x2710
        Drivers::CanManage::GetInstance(); // says now what it has to say
        for (auto& counter : CanFrameNum) {
            counter = 0;
        }
    }
    ~DataRecordServiceTest() override { signal(SIGINT, SIG_DFL); }

    // What Init() prints.
    std::string Init() {
        testing::internal::CaptureStdout();
        service->Init();
        return testing::internal::GetCapturedStdout();
    }

    Bytes Ask(const Bytes& request) {
        usb.HostWrite(Frame(request, 0x11223344));
        service->HandleReadEvent();
        return Answer();
    }

    static void ExpectPositive(const Bytes& answer) {
        ASSERT_EQ(answer.size(), 24U);
        EXPECT_EQ(Bytes(answer.begin(), answer.begin() + 15),
                  (Bytes{0, 10, 0, 0, 0, 9, 22, 0x10, 0x27, 0, 0, 0, 0, 0, 0}));
    }

    static void ExpectNegative(const Bytes& answer, uint8_t code, uint8_t sid = 22) {
        ASSERT_EQ(answer.size(), 16U);
        EXPECT_EQ(Bytes(answer.begin(), answer.begin() + 14),
                  (Bytes{0, 5, 0, 0, 0, 104, 2, code, 9, sid, 0x44, 0x33, 0x22, 0x11}));
    }

    CanErrorFiles files;
    ZephEventLoop loop;
    std::unique_ptr<DataRecordService> service =
        std::make_unique<DataRecordService>(&loop, files.Prefix());
};

TEST_F(DataRecordServiceTest, EachCanChannelIsSwitchedAndAnsweredWithTheTime) {
    Init();
    for (uint8_t channel = 8; channel <= 13; ++channel) {
        ExpectPositive(Ask({9, 22, channel, 1}));
        ExpectPositive(Ask({9, 22, channel, 0}));
    }
}

TEST_F(DataRecordServiceTest, AChannelThatIsNoCanChannelIsRefused) {
    ExpectNegative(Ask({9, 22, 7, 1}), 11);
    ExpectNegative(Ask({9, 22, 14, 1}), 11);
    ExpectNegative(Ask({9, 22, 0, 1}), 11);
    ExpectNegative(Ask({9, 22, 50, 1}), 11);
    ExpectNegative(Ask({9, 22, 255, 0}), 11);
}

TEST_F(DataRecordServiceTest, ASwitchAboveOneIsRefused) {
    ExpectNegative(Ask({9, 22, 8, 2}), 11);
    ExpectNegative(Ask({9, 22, 13, 255}), 11);
}

TEST_F(DataRecordServiceTest, ASwitchRequestOfAnyOtherLengthIsRefusedBeforeAnythingElse) {
    ExpectNegative(Ask({9, 22, 8}), 10);
    ExpectNegative(Ask({9, 22, 8, 1, 0}), 10);
    ExpectNegative(Ask({9, 22}), 10);
    ExpectNegative(Ask({9, 22, 7, 2, 0}), 10);
}

TEST_F(DataRecordServiceTest, AnUnknownServiceIsRefused) {
    for (const uint8_t sid : Bytes{0, 23, 25, 26, 27, 99}) {
        ExpectNegative(Ask({9, sid, 8, 1}), 14, sid);
    }
}

TEST_F(DataRecordServiceTest, AMissingCanDeviceIsToldAndRequestsAreAnsweredAllTheSame) {
    std::filesystem::remove(files.Path(3));
    EXPECT_EQ(Init(), "Open char device failed! errno:2\n");
    ExpectPositive(Ask({9, 22, 8, 1}));
    ExpectNegative(Ask({9, 22, 14, 1}), 11);
}

TEST_F(DataRecordServiceTest, ACanDeviceThatCannotBeMappedIsTold) {
    std::filesystem::remove(files.Path(0));
    ASSERT_EQ(mkfifo(files.Path(0).c_str(), 0600), 0); // opens, and has no pages to map
    EXPECT_EQ(Init(), "mmap is failed!\n");
    ExpectPositive(Ask({9, 22, 8, 1}));
}

TEST_F(DataRecordServiceTest, AWaitingPacketIsSentAsItStands) {
    auto bytes = std::make_shared<unsigned char[]>(5);
    for (unsigned char i = 0; i < 5; ++i) {
        bytes[i] = i;
    }
    service->WriteUsb(std::make_shared<Packet>(1, 0, bytes, 5));
    EXPECT_EQ(Answer(), (Bytes{0, 1, 2, 3, 4}));
}

using DataRecordServiceDeathTest = DataRecordServiceTest;

TEST_F(DataRecordServiceDeathTest, ASigintPrintsTheCountersAndTheNextOneEndsTheProcess) {
    EXPECT_EXIT(
        {
            Init();
            for (size_t channel = 0; channel < CanFrameNum.size(); ++channel) {
                CanFrameNum[channel] = channel * 10;
            }
            CanFrameNum[5] = UINT64_MAX;
            dup2(STDERR_FILENO, STDOUT_FILENO);
            raise(SIGINT);
            static_cast<void>(!write(STDERR_FILENO, "alive\n", 6));
            raise(SIGINT);
        },
        testing::KilledBySignal(SIGINT),
        "CAN Channel 0: 0\nCAN Channel 1: 10\nCAN Channel 2: 20\nCAN Channel 3: 30\n"
        "CAN Channel 4: 40\nCAN Channel 5: 18446744073709551615\nalive\n$");
}

// With an interface that bears the name of a channel.
class DataRecordServiceLiveTest : public DataRecordServiceTest {
  protected:
    // A service over a namespace in which the only interface is called so.
    void Start(const std::string& name) {
        service.reset(); // its capture sees another namespace
        alone.reset();   // home before the next one is entered
        alone = std::make_unique<NetNamespace>();
        ASSERT_TRUE(alone->Entered()) << "this test needs the right to make a network namespace";
        ASSERT_TRUE(alone->RenameLoopback(name));
        ASSERT_TRUE(alone->Raise(name));
        interface = name;
        index = if_nametoindex(name.c_str());
        service = std::make_unique<DataRecordService>(&loop, files.Prefix());
        console = Init();
    }

    // An error notice on the wire: it is recorded at any time of the machine's clock.
    void SendErrorNotice(uint8_t channel, uint8_t slot) const {
        const auto packet =
            MakeCanPacket({.id = 0x20000000, .channel = channel, .payload = {slot, 1}});
        ASSERT_TRUE(alone->Send(interface, kClassicProtocol,
                                Bytes(packet.bytes.begin() + 20, packet.bytes.end())));
    }

    // The next upload; empty, and a failure, when none comes in time.
    Bytes Upload() {
        const auto end = std::chrono::steady_clock::now() + kDeadline;
        while (std::chrono::steady_clock::now() < end) {
            if (auto message = usb.HostRead()) {
                return *message;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ADD_FAILURE() << "no upload came";
        return Bytes(64);
    }

    std::vector<Bytes> Callback(const CanFields& fields, uint32_t of) {
        const CapturedPacket packet = MakeCanPacket(fields);
        const pcap_pkthdr header = packet.Header();
        service->UsbUploadCallback(&header, packet.bytes.data(), static_cast<int>(of));
        return Answers();
    }

    std::unique_ptr<NetNamespace> alone;
    std::string interface;
    uint32_t index = 0;
    std::string console;
};

TEST_F(DataRecordServiceLiveTest, AnErrorOnTheWireReachesTheHostForEachChannel) {
    for (uint8_t channel = 0; channel < 6; ++channel) {
        Start("ncan" + std::to_string(channel));
        Bytes slot(CanErrorFiles::kSlotSize);
        slot[9] = static_cast<uint8_t>(channel + 1);
        files.Write(channel, 42, slot);
        ExpectPositive(Ask({9, 22, static_cast<uint8_t>(channel + 8), 1}));
        SendErrorNotice(channel, 42);
        const Bytes upload = Upload();
        EXPECT_EQ(upload.size(), 32U);
        EXPECT_EQ(upload[5], 104);
        EXPECT_EQ(upload[6], 6);
        EXPECT_EQ(upload[15], channel + 8);
        EXPECT_EQ(upload[16], channel + 1);
        service.reset();
        usb.Reset();
    }
}

TEST_F(DataRecordServiceLiveTest, NothingIsRecordedUntilItsChannelIsSwitchedOnNorAfterwards) {
    Start("ncan2");
    for (uint8_t slot = 0; slot < 4; ++slot) {
        Bytes info(CanErrorFiles::kSlotSize);
        info[9] = static_cast<uint8_t>(slot + 1);
        files.Write(2, slot, info);
    }
    SendErrorNotice(2, 0);
    ExpectPositive(Ask({9, 22, 9, 1})); // another channel, without an interface here
    SendErrorNotice(2, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // gone by, whatever it takes
    EXPECT_TRUE(Answers().empty());
    usb.HostWrite(Frame({9, 22, 10, 1}));
    service->HandleReadEvent();
    EXPECT_EQ(Upload()[5], 9); // the answer
    SendErrorNotice(2, 1);
    EXPECT_EQ(Upload()[16], 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    Answers(); // a loopback may show the same packet twice
    ExpectPositive(Ask({9, 22, 10, 0}));
    SendErrorNotice(2, 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(Answers().empty());
}

TEST_F(DataRecordServiceLiveTest, ACanInterfacesPacketsAreRecordedUnderTheChannelThatTheyName) {
    Start("ncan2");
    const auto records = Callback({.channel = 4}, index);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0][7], 12);
}

TEST_F(DataRecordServiceLiveTest, AnInterfaceOfNoChannelIsIgnored) {
    Start("eth7");
    EXPECT_TRUE(Callback({}, index).empty());
    EXPECT_TRUE(Callback({}, 0).empty()); // where interfaces stand that do not exist
    EXPECT_TRUE(Callback({}, 0xFFFFFFFF).empty());
}

TEST_F(DataRecordServiceLiveTest, TheLinChannelsAreToldWithTheirInterfaces) {
    Start("LIN1");
    EXPECT_EQ(console, "inti listen LIN channel:LIN0 ;index:0\n"
                       "inti listen LIN channel:LIN1 ;index:" +
                           std::to_string(index) + "\n");
    EXPECT_TRUE(Callback({}, index).empty());
}

TEST_F(DataRecordServiceLiveTest, ThePacketsReaderKnowsACanInterfaceByItsName) {
    Start("can4");
    const auto packet = MakeCanPacket({.index = index});
    EXPECT_EQ(CanPacket(packet.bytes).GetChannel(), 4);
    const auto unknown = MakeCanPacket({.index = index + 100});
    EXPECT_EQ(CanPacket(unknown.bytes).GetChannel(), 65535);
    Start("ncan4");
    EXPECT_EQ(CanPacket(packet.bytes).GetChannel(), 65535);
    Start("can");
    EXPECT_EQ(CanPacket(packet.bytes).GetChannel(), 65535);
}

} // namespace
