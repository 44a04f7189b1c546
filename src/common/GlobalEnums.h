#pragma once

#include <cstdint>

// The numbers that host and device agree on. A ground-floor header: every folder may use it.

// Groups of services: the first byte of a service section.
enum GroupId : uint8_t {
    DEV_CFG_SERVICE_GID = 1,
    LIN_MESSAGE_SERVICE_GID = 6,
    DATA_RECORD_SERVICE_GID = 9,
    DEVICE_SYNCHRONIZATION_SERVICE_GID = 16,
    CAN_REPLAY_SERVICE_GID = 18,
    IOADC_SERVICE_GID = 20,
    NET_CONFIG_SERVICE_GID = 21,
    SEND_NET_FRAME_SERVICE_GID = 22,
    DOIP_SERVICE_GID = 23,
    SOMEIP_SERVICE_GID = 24,
    SOMEIP_CLIENT_SERVICE_GID = 24, // a second name of 24
    SOMEIP_SERVER_SERVICE_GID = 25, // a name only: no request is routed by it
    FIRMWARE_UPDTAE_SERVICE_GID = 41,
    ERR_INFO_SERVICE_GID = 104, // device to host only
};

// Services of group 104.
enum ErrInfoGroup : uint8_t {
    BUS_TROUBLE_SID = 1,
    SERVICE_ERR_SID = 2,
    TCP_CONNECT_STATE = 4,
    ETH_CHANNEL_STATE = 5,
};

// Reasons that a negative response can give, as X(name, value). The values in the gaps are not
// assigned; 36 is sent by the firmware reload, which has no name for it.
#define NEGTIVE_ERROR_CODES(X)                                                                     \
    X(NO_ERROR, 0)                                                                                 \
    X(ERROR_LENGTH, 10)                                                                            \
    X(VALUE_OUTOF_RANGE, 11)                                                                       \
    X(SERVICE_WRONG_SEQUENCE, 12)                                                                  \
    X(BUFFER_BUSY, 13)                                                                             \
    X(WRONG_SID, 14)                                                                               \
    X(WRONG_GID, 15)                                                                               \
    X(WRONG_VLAN_TAG, 16)                                                                          \
    X(DHCP_STATE_ERROR, 17)                                                                        \
    X(REACHED_MAXIMUM_LOAD, 18)                                                                    \
    X(ERROR_GET_CHANNEL_STATE, 19)                                                                 \
    X(TASK_ALREADY_EXIST, 20)                                                                      \
    X(SEND_FAIL, 21)                                                                               \
    X(FAILED_TO_WRITE_REGISTER, 22)                                                                \
    X(INVALID_IP, 23)                                                                              \
    X(INVALID_LOGICAL_ADDRESS, 24)                                                                 \
    X(CONFIG_DOIP_ENTITY_COMM_FAILED, 25)                                                          \
    X(INIT_COMMUNICATION_FAILED, 26)                                                               \
    X(GET_DEVICE_FAILED, 27)                                                                       \
    X(GET_RESOURCE_FAILED, 28)                                                                     \
    X(ERROR_SOCKET_CFG_ID, 29)                                                                     \
    X(SEND_DIAG_MSG_FAILED, 30)                                                                    \
    X(GET_SERVICE_RESULT_FAILED, 31)                                                               \
    X(CLEAR_COMM_FAILED, 32)                                                                       \
    X(ERROR_SUBNETMASK, 33)                                                                        \
    X(SET_COMM_PARAMS_FAILED, 34)                                                                  \
    X(ERROR_ETH_CHANNEL, 35)                                                                       \
    X(NO_SUCH_TASK, 37)                                                                            \
    X(DEVICE_CREATE_FAIL, 38)                                                                      \
    X(GETWAY_NOT_IN_SAME_SUBNET, 39)                                                               \
    X(NO_INIT, 40)                                                                                 \
    X(NO_FILE, 41)                                                                                 \
    X(OPEN_FILE_FAILED, 42)                                                                        \
    X(MMAP_FILE_FAILED, 43)                                                                        \
    X(SET_HARDWARE_SYNC_NODE_FAILED, 44)                                                           \
    X(SET_SYNC_STATE_FAILED, 45)                                                                   \
    X(SEQUENCE_WRITE_FAIL, 47)                                                                     \
    X(SEQUENCE_WRITE_LENGTH_ERROR, 48)                                                             \
    X(SET_GATEWAY_FAILED, 49)                                                                      \
    X(NO_SUCH_DEVICE, 50)                                                                          \
    X(TESTER_NOT_CONFIGURE, 51)                                                                    \
    X(ALREADY_INITED, 52)                                                                          \
    X(PARAMS_ARE_CHANGED, 53)                                                                      \
    X(UPDATE_CONFIG_ERROR, 54)                                                                     \
    X(NO_THIS_DEV, 55)                                                                             \
    X(UDS_DATA_IS_EMPTY, 56)                                                                       \
    X(FIRMWARE_UPDATE_INIT_FAILED, 57)                                                             \
    X(CHECK_INSTALLATION_PACKAGE_FAILED, 58)                                                       \
    X(EXTRACT_INSTALLATION_PACKAGE_FAILED, 59)                                                     \
    X(UNABLE_READ_MD5, 60)                                                                         \
    X(MD5_VALUE_ERROR, 61)                                                                         \
    X(UNABLE_READ_UPGRADE_INFO, 62)                                                                \
    X(UNABLE_CLEAR_PARTITION, 63)                                                                  \
    X(UNABLE_MOVE_FILE_TO_DEST, 64)                                                                \
    X(EXTRACT_ROOTFS_FAILED, 65)                                                                   \
    X(REPLACE_KERNEL_FAILED, 66)                                                                   \
    X(RECOVERED_KERNEL_FAILED, 67)                                                                 \
    X(UNABLE_UPDATE_LOADING_INFO, 68)                                                              \
    X(NO_SUCH_SERVER_SERVICE, 69)                                                                  \
    X(NO_SUCH_CONN, 70)                                                                            \
    X(INIT_FAILED, 71)                                                                             \
    X(CONNECT_FAILED, 72)                                                                          \
    X(NO_SUCH_SOCKET_ID, 73)                                                                       \
    X(GET_ETH_CHANNEL_FAILED, 74)                                                                  \
    X(LOGICAL_ADDRESS_NOT_CONNECT, 75)                                                             \
    X(SOMEIP_MAC_FIRST_BYTE_IS_ODD, 76)                                                            \
    X(SOMEIP_MULTICAST_IP_OUT_OF_RANGE, 77)                                                        \
    X(SOMEIP_INIT_MAC_FAILED, 78)                                                                  \
    X(SOMEIP_DIFFRENT_SUBNETWORK_HAVE_SAME_VLANID, 79)                                             \
    X(SOMEIP_VLANID_DIFFRENT_FOR_THE_SAME_SUBNETWORK, 80)                                          \
    X(SOMEIP_VLAN_PRIORITY_DIFFRENT_FOR_THE_SAME_VLANID, 81)                                       \
    X(SOMEIP_CREATE_VLAN_FAILED, 82)                                                               \
    X(SOMEIP_IP_NOT_EXIST, 83)                                                                     \
    X(SOMEIP_SD_NOT_CONFIGURE, 84)                                                                 \
    X(SOMEIP_SERVICE_ID_NOT_EXIST, 86)                                                             \
    X(SOMEIP_SERVICE_ALREADY_START, 87)                                                            \
    X(SOMEIP_SERVICE_IS_USED, 88)                                                                  \
    X(SOMEIP_METHOD_NOT_MATCH_SERVICE_IN_MODETYPE, 89)                                             \
    X(SOMEIP_EVENT_NOT_MATCH_SERVICE_IN_MODETYPE, 90)                                              \
    X(SOMEIP_EVENTGROUP_NOT_MATCH_SERVICE_IN_MODETYPE, 91)                                         \
    X(SOMEIP_EVENT_NOT_MATCH_EVENTGROUP_IN_MODETYPE, 92)                                           \
    X(SOMEIP_SERVICE_MODETYPE_IS_NOT_SERVER, 93)                                                   \
    X(SOMEIP_SERVICE_MODETYPE_IS_NOT_CLIENT, 94)                                                   \
    X(SOMEIP_INSTANCE_MODETYPE_IS_NOT_SERVER, 95)                                                  \
    X(SOMEIP_INSTANCE_MODETYPE_IS_NOT_CLIENT, 96)                                                  \
    X(SOMEIP_METHOD_NOT_MATCH_SERVICE_IN_PROTO, 97)                                                \
    X(SOMEIP_EVENT_NOT_MATCH_SERVICE_IN_PROTO, 98)                                                 \
    X(SOMEIP_EVENTGROUP_NOT_MATCH_SERVICE_IN_PROTO, 99)                                            \
    X(SOMEIP_EVENT_NOT_MATCH_EVENTGROUP_IN_PROTO, 100)                                             \
    X(SOMEIP_CLIENT_SERVICE_NOT_DEPLOY_THIS_INSTANCE, 101)                                         \
    X(SOMEIP_SERVER_SERVICE_NOT_DEPLOY_THIS_INSTANCE, 102)                                         \
    X(SOMEIP_SERVICE_NOT_DEPLOY_THIS_METHOD, 103)                                                  \
    X(SOMEIP_SERVICE_NOT_DEPLOY_THIS_EVENT, 104)                                                   \
    X(SOMEIP_SERVICE_NOT_DEPLOY_THIS_EVENTGROUP, 105)                                              \
    X(SOMEIP_INSTANCE_CLIENTSERVICE_IS_EMPTY, 106)                                                 \
    X(SOMEIP_METHOD_NOT_CLIENT_IN_MODETYPE, 107)                                                   \
    X(SOMEIP_METHOD_NOT_SERVER_IN_MODETYPE, 108)                                                   \
    X(SOMEIP_EVENT_NOT_SERVER_IN_MODETYPE, 109)                                                    \
    X(SOMEIP_METHOD_NOT_RR, 110)                                                                   \
    X(SOMEIP_METHOD_NOT_FF, 111)                                                                   \
    X(SOMEIP_EVENT_SEND_MODE_ERROR, 112)                                                           \
    X(SOMEIP_NOT_START, 113)                                                                       \
    X(SOMEIP_TCP_PORT_NOT_ZERO, 114)                                                               \
    X(SOMEIP_UDP_PORT_NOT_ZERO, 115)                                                               \
    X(SOMEIP_METHOD_RR_RESPONSE_ERROR, 116)                                                        \
    X(SOMEIP_MODETYPE_OUT_OF_RANGE, 117)                                                           \
    X(SOMEIP_PROTOCOL_OUT_OF_RANGE, 118)                                                           \
    X(SOMEIP_METHOD_IS_UDP_AND_PAYLOADLENGTH_MORE_THAN_1400, 119)                                  \
    X(SOMEIP_EVENT_IS_UDP_AND_PAYLOADLENGTH_MORE_THAN_1400, 120)                                   \
    X(SOMEIP_EVENT_PERIOD_OUT_OF_RANGE, 121)                                                       \
    X(SOMEIP_VLANID_OUT_OF_RANGE, 122)                                                             \
    X(SOMEIP_VLAN_PRIORITY_OUT_OF_RANGE, 123)                                                      \
    X(SOMEIP_MAC_NOT_EXIST, 124)                                                                   \
    X(SOMEIP_SWITCH_NETNS_FAILED, 125)                                                             \
    X(SOMEIP_ADD_STATIC_ARP_ENTRY_FAILED, 126)                                                     \
    X(SOMEIP_VLAN_ID_NOT_EXIST, 127)                                                               \
    X(NO_TRANSFER_REQUEST, 128)                                                                    \
    X(UPDATE_LENGTH_CHECK_FAILED, 129)                                                             \
    X(UPDATE_COUNT_CHECK_FAILED, 130)                                                              \
    X(FILE_CLOSE_FAILED, 131)                                                                      \
    X(SOMEIP_METHOD_FF_REQUEST_SEND_ERROR, 132)                                                    \
    X(SOMEIP_SERVER_INSTANCE_NOT_CONFIG_THIS_METHOD_PROS, 133)                                     \
    X(SOMEIP_SERVER_INSTANCE_NOT_CONFIG_THIS_EVENT_PROS, 134)                                      \
    X(SOMEIP_SERVER_INSTANCE_NOT_CONFIG_THIS_EVENTGROUP_PROS, 135)                                 \
    X(SOMEIP_CLIENT_INSTANCE_NOT_CONFIG_THIS_METHOD_PROS, 136)                                     \
    X(SOMEIP_CLIENT_INSTANCE_NOT_CONFIG_THIS_EVENTGROUP_PROS, 137)                                 \
    X(SOMEIP_EVENT_NOT_INCLUDE_IN_EVENGROUP, 138)                                                  \
    X(SOMEIP_INSTANCE_NOT_DEPLOY_THIS_EVENT, 139)                                                  \
    X(SOMEIP_SERVER_INSTANCE_NOT_ACTIVATE, 140)                                                    \
    X(SOMEIP_IP_IS_MYSELF, 141)                                                                    \
    X(SOMEIP_TCP_PORT_IS_ZERO, 142)                                                                \
    X(SOMEIP_UDP_PORT_IS_ZERO, 143)                                                                \
    X(SOMEIP_CLIENT_INSTANCE_NOT_ACTIVATE, 144)                                                    \
    X(SOMEIP_CLIENT_INSTANCE_NOT_DEPLOY_THIS_EVENTGROUP, 145)                                      \
    X(ERROR_GET_CHANNEL_WORKMODE, 146)                                                             \
    X(SOMEIP_ADD_ROUTE_ENTRY_FAILED, 147)                                                          \
    X(SOMEIP_ADD_RULE_ROUTE_FAILED, 148)                                                           \
    X(SOMEIP_SET_VLANPRI_FAILED, 149)                                                              \
    X(SOMEIP_SUBNETWORK_INVALID, 150)                                                              \
    X(SOMEIP_CIDR_INVALID, 151)                                                                    \
    X(CAN_SENDFRAME_WITH_ACKOFF_MODE, 160)

enum NegtiveErrorCode : uint8_t {
#define X(name, value) name = (value),
    NEGTIVE_ERROR_CODES(X)
#undef X
};

// Name of a NegtiveErrorCode, as the enumeration spells it; nullptr for a value that has none.
const char* NegtiveErrorCodeName(uint8_t code);
