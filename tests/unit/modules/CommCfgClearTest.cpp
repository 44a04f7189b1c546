#include "modules/CommCfgFixture.h"
#include "modules/IOADCService.h"

#include <algorithm>
#include <sstream>

namespace {

using Drivers::CanManage;
using Strings = std::vector<std::string>;

// The service of group 1 on a device that does all that a clear ends.
class CommCfgClearTest : public CommCfgServiceTest {
  protected:
    CommCfgClearTest() {
        CanManage::statusMask_ = 0;
        CanManage::ListenstatusMask_ = 0;
        canSend->OpenAllSocket();
    }
    ~CommCfgClearTest() override {
        canSend->CloseAllSocket();
        canSend->OpenAllSocket(); // as others find it
        CanManage::statusMask_ = 0;
        CanManage::ListenstatusMask_ = 0;
    }

    void Clear() {
        usb.HostWrite(Frame({1, 8}, kHandle));
        service->HandleReadEvent();
    }

    bool IsFlagged() const { return std::filesystem::exists(files / "clear.flag"); }

    static lin_operation Operation(const Bytes& bytes) {
        lin_operation operation{};
        if (bytes.size() == sizeof(operation)) {
            std::memcpy(&operation, bytes.data(), sizeof(operation));
        }
        return operation;
    }

    net::CanSend* canSend = net::CanSend::GetInstance(nullptr);
};

TEST_F(CommCfgClearTest, AClearEndsTheProcessAndLeavesTheAnswerToTheNextOne) {
    Clear();
    EXPECT_TRUE(Answers().empty());
    EXPECT_TRUE(IsFlagged());
    EXPECT_EQ(board.Machine().calls, Strings{"raise 15"});
    EXPECT_EQ(Logged(), Strings{"INFO clear all config!"});
}

TEST_F(CommCfgClearTest, AWrongLengthIsRefusedAndEverythingIsClearedAllTheSame) {
    board.Registers(0x88000000).SetWord(12, 3);
    ExpectRefused({1, 8, 0}, kLength);
    EXPECT_TRUE(IsFlagged());
    EXPECT_EQ(board.Machine().calls, Strings{"raise 15"});
    EXPECT_EQ(board.Registers(0x88000000).Word(12), 0U);
    EXPECT_EQ(Logged(), (Strings{"INFO clear all config!", "INFO NegtiveErrorCode::ERROR_LENGTH"}));
}

TEST_F(CommCfgClearTest, TheProcessEndsBehindEverythingElse) {
    board.Registers(0x88000000).SetWord(12, 3);
    bool done = false;
    board.Machine().onCall = [&] {
        done = IsFlagged() && board.Registers(0x88000000).Word(12) == 0 &&
               net::ZephCanComM::GetInstance().GetComNetStatus(5) == 0;
    };
    Clear();
    EXPECT_TRUE(done);
}

// Who hears of a later step finds the earlier ones done.
TEST_F(CommCfgClearTest, LinEndsFirstThenCanByStepsThenTheOutputsThenTheProcess) {
    auto& io = board.Registers(0x88000000);
    auto& terminators = board.Registers(0x82000000);
    auto& com = net::ZephCanComM::GetInstance();
    io.SetWord(12, 3);
    terminators.SetWord(4, 0xFFF);
    CanManage::statusMask_ = 1 << 1 | 1 << 4;
    Strings seen;
    const auto look = [&](const char* at) {
        std::ostringstream line;
        line << at << ": lin closed " << lin.sockets[1]->closeModes.size() << ", can open "
             << com.GetComNetStatus(5) << ", status " << std::hex << CanManage::statusMask_
             << ", terminators " << terminators.Word(4) << ", io " << io.Word(12) << ", flag "
             << IsFlagged();
        seen.push_back(line.str());
    };
    channels[0]->beforeClose = [&] { look("sockets"); };
    for (const uint32_t ch : {1U, 4U}) {
        board.Registers(0x80000000U + (ch << 16)).afterRead = [&look, ch](uint32_t) {
            look(ch == 1 ? "can1" : "can4");
        };
    }
    io.beforeWrite = [&](uint32_t offset) {
        if (offset == 12) {
            look("io");
        }
    };
    board.Machine().onCall = [&] { look("end"); };
    Clear();
    channels[0]->beforeClose = nullptr;
    board.Reset();
    seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
    EXPECT_EQ(seen,
              (Strings{
                  "sockets: lin closed 1, can open 1, status 12, terminators fff, io 3, flag 0",
                  "can1: lin closed 1, can open 0, status 12, terminators fbe, io 3, flag 0",
                  "can4: lin closed 1, can open 0, status 12, terminators c30, io 3, flag 0",
                  "io: lin closed 1, can open 0, status 0, terminators 0, io 3, flag 0",
                  "end: lin closed 1, can open 0, status 0, terminators 0, io 0, flag 1",
              }));
}

// The device files take what is written behind what is read: for each channel the responses are
// dropped, the reception is switched off, and the disturbance is reset.
TEST_F(CommCfgClearTest, LinIsClearedBeforeItIsClosed) {
    for (int ch = 0; ch < 2; ++ch) {
        Rewind(ch);
        Bytes openRx(128);
        openRx[8 + 21] = 1;
        lin.files.Write(ch, 256, openRx);
    }
    Clear();
    for (int ch = 0; ch < 2; ++ch) {
        const lin_operation dropped = Operation(lin.files.Read(ch, 128, 128));
        EXPECT_EQ(dropped.ot, LIN_CONFIG);
        EXPECT_EQ(dropped.data.config.clear_response, 1);
        const lin_operation off = Operation(lin.files.Read(ch, 384, 128));
        EXPECT_EQ(off.ot, LIN_CONFIG);
        EXPECT_EQ(off.data.config.open_rx, 0);
        Bytes reset(128);
        reset[0] = 3;
        reset[10] = 1;
        EXPECT_EQ(lin.files.Read(ch, 512, 128), reset);
        EXPECT_EQ(lin.sockets.at(static_cast<size_t>(ch))->closeModes, std::vector<int>{0});
        EXPECT_EQ(ZephLinComM::GetInstance().GetComNetStatus(static_cast<uint8_t>(ch)), 0);
    }
}

TEST_F(CommCfgClearTest, BothLinChannelsAreClearedWhateverFailsOnTheWay) {
    CloseDevice(0);
    lin.sockets[1]->failClose = true;
    EXPECT_EQ(Told([&] { Clear(); }), "LinScheduleManager::clearResMsg current table is null:\n"
                                      "Drivers::LinManage::ParmCfg device don't open1\n"
                                      "Drivers::LinManage::ParmCfg device don't open0\n"
                                      "Drivers::LinManage::OperationCfg failed! dev off!\n"
                                      "ZephLinComM::LinComMClose： device do not open\n"
                                      "lin dev already close!\n"
                                      "LinScheduleManager::clearResMsg current table is null:\n"
                                      "ZephLinComM::LinComMClose： socket close fail\n"
                                      "LinManage::CloseMemmp channel1 mmap is null\n"
                                      "drivers::LinManage::OpenDevice - close memmp fail: 1\n");
    EXPECT_EQ(board.Machine().calls, Strings{"raise 15"});
}

TEST_F(CommCfgClearTest, ARunningScheduleEndsAndIsForgotten) {
    lin.schedules.setStatus(0, true);
    Download(0, {0x50, 0x11});
    const uint8_t data[8]{1, 2};
    lin.schedules.setResMsg(0, 0x50, 2, data);
    lin.schedules.startExecutor(0);
    WaitForFrames(4);
    const std::string told = Told([&] { Clear(); });
    // Of both channels: the responses go behind the table.
    const std::string noTable = "LinScheduleManager::clearResMsg current table is null:\n";
    EXPECT_NE(told.find(noTable, told.find(noTable) + 1), std::string::npos) << told;
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
    EXPECT_FALSE(lin.schedules.getStatus(0));
    lin_tx_message kept = Header(0x50);
    lin.schedules.setResMsg(0, 0x50, &kept);
    EXPECT_EQ(kept.flag.is_active, 0); // no response is kept
    lin.schedules.setStatus(0, true);
    EXPECT_EQ(Told([&] { lin.schedules.startExecutor(0); }),
              "LinScheduleManager::startExecutor : start failed\n"); // nor a table
}

TEST_F(CommCfgClearTest, AllCanSocketsCloseAndPeriodicTasksAreForgotten) {
    const Bytes request{22, 51, 8, 1, 0x23, 1, 0, 0, 10, 0, 0};
    auto& com = net::ZephCanComM::GetInstance();
    canSend->SetPeriodicSendTask(request);
    const auto started = channels[0]->Periodic();
    ASSERT_EQ(started.size(), 1U);
    for (uint8_t ch = 0; ch < 6; ++ch) {
        EXPECT_EQ(com.GetComNetStatus(ch), 1);
    }
    Clear();
    for (uint8_t ch = 0; ch < 6; ++ch) {
        EXPECT_EQ(com.GetComNetStatus(ch), 0);
        EXPECT_LT(com.GetFd2(ch), 0);
    }
    canSend->OpenAllSocket();
    canSend->SetPeriodicSendTask(request);
    const auto again = channels[0]->Periodic();
    ASSERT_EQ(again.size(), 1U);
    // The flags of a start, not of an update.
    EXPECT_EQ(Bytes(again[0].begin() + 4, again[0].begin() + 8),
              Bytes(started[0].begin() + 4, started[0].begin() + 8));
}

TEST_F(CommCfgClearTest, OpenCanChannelsAreClosedAndAllLoseTheirTermination) {
    board.Registers(0x82000000).SetWord(4, 0xFFFFFFFF);
    for (uint32_t ch = 0; ch < 6; ++ch) {
        board.Registers(0x80000000U + (ch << 16)).writes.clear();
    }
    CanManage::statusMask_ = 1 << 1 | 1 << 4;
    CanManage::ListenstatusMask_ = 0x3F;
    Clear();
    EXPECT_EQ(CanManage::statusMask_, 0); // also where the channel could not be closed
    EXPECT_EQ(CanManage::ListenstatusMask_, 0);
    EXPECT_EQ(board.Registers(0x82000000).Word(4), 0xFFFFFFFF & ~0xFFFU);
    for (uint32_t ch = 0; ch < 6; ++ch) {
        EXPECT_EQ(board.Registers(0x80000000U + (ch << 16)).writes.empty(), ch != 1 && ch != 4)
            << ch;
    }
}

TEST_F(CommCfgClearTest, DigitalOutputsAndConverterAreCleanedUp) {
    IOADCService* const io = IOADCService::GetInstance(&loop, -1);
    auto& registers = board.Registers(0x88000000);
    for (const uint32_t offset : {0U, 4U, 8U, 12U, 16U}) {
        registers.SetWord(offset, 0xFFFFFFFF);
    }
    Clear();
    for (const uint32_t offset : {0U, 4U, 8U, 12U, 16U}) {
        EXPECT_EQ(registers.Word(offset), 0U) << offset;
    }
    IOADCService* const next = IOADCService::GetInstance(&loop, -1);
    EXPECT_NE(next, io);
    next->IoAdcCleanup();
}

} // namespace
