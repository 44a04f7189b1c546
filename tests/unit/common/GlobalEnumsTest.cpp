#include "common/GlobalEnums.h"

#include <string>

#include <gtest/gtest.h>

namespace {

TEST(GlobalEnums, NamesStandAsTheyAreSpelt) {
    EXPECT_STREQ(NegtiveErrorCodeName(0), "NO_ERROR");
    EXPECT_STREQ(NegtiveErrorCodeName(10), "ERROR_LENGTH");
    EXPECT_STREQ(NegtiveErrorCodeName(11), "VALUE_OUTOF_RANGE");
    EXPECT_STREQ(NegtiveErrorCodeName(14), "WRONG_SID");
    EXPECT_STREQ(NegtiveErrorCodeName(15), "WRONG_GID");
    EXPECT_STREQ(NegtiveErrorCodeName(45), "SET_SYNC_STATE_FAILED");
    EXPECT_STREQ(NegtiveErrorCodeName(151), "SOMEIP_CIDR_INVALID");
    EXPECT_STREQ(NegtiveErrorCodeName(160), "CAN_SENDFRAME_WITH_ACKOFF_MODE");
}

TEST(GlobalEnums, ExactlyTheUnassignedValuesHaveNoName) {
    for (int code = 0; code <= 255; ++code) {
        const bool unassigned = (code >= 1 && code <= 9) || code == 36 || code == 46 ||
                                code == 85 || (code >= 152 && code <= 159) || code > 160;
        EXPECT_EQ(NegtiveErrorCodeName(static_cast<uint8_t>(code)) == nullptr, unassigned)
            << "code " << code;
    }
}

TEST(GlobalEnums, GroupsHaveTheirNumbers) {
    EXPECT_EQ(DEV_CFG_SERVICE_GID, 1);
    EXPECT_EQ(LIN_MESSAGE_SERVICE_GID, 6);
    EXPECT_EQ(DATA_RECORD_SERVICE_GID, 9);
    EXPECT_EQ(DEVICE_SYNCHRONIZATION_SERVICE_GID, 16);
    EXPECT_EQ(CAN_REPLAY_SERVICE_GID, 18);
    EXPECT_EQ(IOADC_SERVICE_GID, 20);
    EXPECT_EQ(NET_CONFIG_SERVICE_GID, 21);
    EXPECT_EQ(SEND_NET_FRAME_SERVICE_GID, 22);
    EXPECT_EQ(DOIP_SERVICE_GID, 23);
    EXPECT_EQ(SOMEIP_SERVICE_GID, 24);
    EXPECT_EQ(SOMEIP_CLIENT_SERVICE_GID, 24);
    EXPECT_EQ(SOMEIP_SERVER_SERVICE_GID, 25);
    EXPECT_EQ(FIRMWARE_UPDTAE_SERVICE_GID, 41);
    EXPECT_EQ(ERR_INFO_SERVICE_GID, 104);
    EXPECT_EQ(BUS_TROUBLE_SID, 1);
    EXPECT_EQ(SERVICE_ERR_SID, 2);
    EXPECT_EQ(TCP_CONNECT_STATE, 4);
    EXPECT_EQ(ETH_CHANNEL_STATE, 5);
}

} // namespace
