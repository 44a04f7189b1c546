#include "modules/LinSchedule/LinTable.h"

#include "modules/LinFixture.h"

namespace {

class LinTableTest : public LinTest {
  protected:
    static TableItem Item(uint8_t pid, uint32_t delay_vba = 5000) {
        TableItem item;
        item.pid = pid;
        item.dlc = 2;
        item.delay_us = delay_vba;
        item.delay_vba = delay_vba;
        item.msg = Header(pid);
        return item;
    }

    static const lin_tx_message& Sent(const LinTable& from, size_t index) {
        return from.items().at(index).sent->Read();
    }

    static Bytes Data(const lin_tx_message& message) {
        return {message.lin_frame.data, message.lin_frame.data + 8};
    }

    LinTable table{0};
};

TEST_F(LinTableTest, TellsItself) {
    EXPECT_EQ(Told([] { const LinTable another(1); }), "schedule table1 has created\n");
}

TEST_F(LinTableTest, ItemsStandInTheirOrderAndAPidMoreThanOnce) {
    EXPECT_EQ(Told([&] {
                  EXPECT_EQ(table.addItem(Item(0x80)), 0);
                  EXPECT_EQ(table.addItem(Item(0xC1)), 0);
              }),
              "");
    EXPECT_EQ(Told([&] { EXPECT_EQ(table.addItem(Item(0x80)), 0); }),
              "LinTable::addItem ID 128 has existed\n");
    ASSERT_EQ(table.items().size(), 3U);
    EXPECT_EQ(table.items()[0].pid, 0x80);
    EXPECT_EQ(table.items()[1].pid, 0xC1);
    EXPECT_EQ(table.items()[2].pid, 0x80);
}

TEST_F(LinTableTest, APidStands255TimesAtMost) {
    testing::internal::CaptureStdout();
    for (int i = 0; i < 255; ++i) {
        EXPECT_EQ(table.addItem(Item(7)), 0);
    }
    EXPECT_EQ(table.addItem(Item(7)), -1);
    EXPECT_EQ(table.addItem(Item(8)), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(table.items().size(), 256U);
}

TEST_F(LinTableTest, AClearedTableKnowsNoPid) {
    table.addItem(Item(0x80));
    EXPECT_TRUE(table.hasPID(0x80));
    table.clear();
    EXPECT_FALSE(table.hasPID(0x80));
    EXPECT_TRUE(table.items().empty());
    EXPECT_EQ(Told([&] { table.addItem(Item(0x80)); }), ""); // is new again
}

TEST_F(LinTableTest, NumbersThatAreNoPidsAreNotThere) {
    table.addItem(Item(0));
    table.addItem(Item(255));
    for (const int pid : {-1, 256, 511, -256, 1 << 30}) {
        EXPECT_FALSE(table.hasPID(pid)) << pid;
    }
    EXPECT_EQ(Told([&] { EXPECT_FALSE(table.modifyData(256, 0, nullptr)); }),
              "LinTable::modifyData no pid：256\n");
}

TEST_F(LinTableTest, AResponseReachesAllItemsOfItsPid) {
    for (const uint8_t pid : Bytes{0x80, 0xC1, 0x80}) {
        table.addItem(Item(pid));
    }
    const Bytes data{1, 2, 3};
    EXPECT_TRUE(table.modifyData(0x80, 3, data.data()));
    for (const size_t index : {0U, 2U}) {
        const lin_tx_message& message = Sent(table, index);
        EXPECT_EQ(message.flag.ctrl_type, WITH_RESPONSE);
        EXPECT_EQ(message.flag.is_active, 1);
        EXPECT_EQ(message.lin_frame.pid, 0x80);
        EXPECT_EQ(message.lin_frame.dlc, 3);
        EXPECT_EQ(message.lin_frame.sync, 0x55);
        EXPECT_EQ(Data(message), (Bytes{1, 2, 3, 0, 0, 0, 0, 0}));
    }
    EXPECT_EQ(Sent(table, 1).flag.ctrl_type, ONLY_COMMAND);
    EXPECT_EQ(Sent(table, 1).lin_frame.dlc, 2);
    EXPECT_EQ(table.items()[0].dlc, 2); // as downloaded
}

TEST_F(LinTableTest, AResponseThatIsTakenOutLeavesDataAndSlot) {
    SetBaudrate(0, 1000);
    table.addItem(Item(0x80));
    table.addItem(Item(0x80));
    const Bytes data{9, 8, 7, 6};
    table.modifyData(0x80, 4, data.data());
    const uint32_t slot = table.items()[0].delay_us;
    EXPECT_GT(slot, 5000U);
    EXPECT_EQ(Told([&] { EXPECT_TRUE(table.modifyData(0x80, -1, nullptr)); }),
              "LinTable::modifyData del pid :128\nLinTable::modifyData del pid :128\n");
    for (const size_t index : {0U, 1U}) {
        const lin_tx_message& message = Sent(table, index);
        EXPECT_EQ(message.flag.ctrl_type, ONLY_COMMAND);
        EXPECT_EQ(message.flag.is_active, 0);
        EXPECT_EQ(message.lin_frame.dlc, 4);
        EXPECT_EQ(Data(message), (Bytes{9, 8, 7, 6, 0, 0, 0, 0}));
        EXPECT_EQ(table.items()[index].delay_us, slot);
    }
}

TEST_F(LinTableTest, ALengthAboveEightStandsAndEightBytesAreTaken) {
    for (const int length : {9, 64, 255}) {
        table.clear();
        table.addItem(Item(1));
        Bytes data{1, 2, 3, 4, 5, 6, 7, 8};
        data.shrink_to_fit(); // a read behind it is seen
        EXPECT_TRUE(table.modifyData(1, length, data.data()));
        EXPECT_EQ(Sent(table, 0).lin_frame.dlc, length);
        EXPECT_EQ(Data(Sent(table, 0)), data);
        EXPECT_EQ(Sent(table, 0).time_detil.break_field_length, 0);
    }
}

TEST_F(LinTableTest, ASlotNeverFallsBelowTheHostsWishNorBelowItsFrame) {
    SetBaudrate(0, 19200);
    table.addItem(Item(1, 5000));
    const Bytes data(8);
    table.modifyData(1, 8, data.data());
    EXPECT_EQ(table.items()[0].delay_us, 7239U);
    table.modifyData(1, 2, data.data());
    EXPECT_EQ(table.items()[0].delay_us, 5000U);
}

TEST_F(LinTableTest, TheBitRateIsThatOfTheTablesChannel) {
    SetBaudrate(1, 19200);
    EXPECT_EQ(table.calcDelay(8, 1000), 1000U); // channel 0 has none
    EXPECT_EQ(LinTable(1).calcDelay(8, 1000), 7239U);
}

} // namespace
