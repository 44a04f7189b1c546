#pragma once

#include <cstddef>
#include <cstdint>

// The records that the LIN driver shares with the program: its character device takes and gives
// `lin_operation`, its net device takes `lin_tx_message` as the payload of a frame, and its mapping
// is an array of `lin_rx_detil`. Integers are little-endian, as on the board and on every machine
// that this is built for. Reserved bytes are 0 in what the program makes.

enum lin_version : uint32_t {
    LIN_1_3 = 0,
    LIN_2_0 = 1,
    LIN_2_1 = 2,
    LIN_2_2 = 3,
    SAE_J_26262 = 4,
};

enum lin_mode : uint32_t {
    RESPONDER = 0,
    COMMANDER = 1,
};

enum power_supply : uint32_t {
    INTERNAL = 0,
    EXTERNAL = 1,
};

enum lin_tx_type : uint32_t {
    ONLY_COMMAND = 0,  // the header
    WITH_RESPONSE = 1, // header and response
    COMMAND_DETIL = 2, // the header, timed by `time_detil`
    FULL_DETIL = 3,    // header and response, timed by `time_detil`
};

// Which member of a lin_operation's data counts.
enum operation_type : uint32_t {
    LIN_CONFIG = 0,     // config
    RW_REGISTER = 1,    // reg_data
    RX_DETIL = 2,       // rx_data
    CONFIG_DISTURB = 3, // lin_dis
    SEND_WAKEUP = 4,    // wake_up
};

constexpr int kLinChannels = 2;
constexpr size_t kLinDataBytes = 8; // the most that a LIN frame carries, whatever a length says

struct lin_config_data {
    lin_version lversion;
    lin_mode lmode;
    power_supply psupply;
    uint32_t bitrate; // bit/s
    uint32_t wakeup_long;
    uint8_t clear_response; // 1: the driver forgets the responses that it was given
    uint8_t open_rx;        // 1: received frames are captured
    uint8_t reserved[2];
};
static_assert(sizeof(lin_config_data) == 24 && offsetof(lin_config_data, bitrate) == 12 &&
              offsetof(lin_config_data, clear_response) == 20 &&
              offsetof(lin_config_data, open_rx) == 21);

struct rw_register_data {
    uint32_t offset;
    uint32_t reg_value;
};
static_assert(sizeof(rw_register_data) == 8);

// A disturbance of the bus, as the driver understands it.
struct lin_disturb {
    uint8_t lin_id;
    uint8_t enable_id;
    uint8_t reset;
    uint8_t type;
    uint8_t on_off;
    uint8_t time_length;
    uint8_t offset;
    uint8_t field;
    uint8_t enable_times;
    uint8_t reserved;
    uint16_t times;
};
static_assert(sizeof(lin_disturb) == 12 && offsetof(lin_disturb, times) == 10);

// Asks the bus to sleep or to wake, as the driver understands it.
struct lin_wakeup {
    uint8_t channel_status; // 0: sleep, 1: wake-up
    uint8_t send_wakeup_signal;
    uint8_t repeat_times;
    uint8_t reset;
    uint32_t h_time_length;
    uint32_t l_time_length;
};
static_assert(sizeof(lin_wakeup) == 12 && offsetof(lin_wakeup, h_time_length) == 4 &&
              offsetof(lin_wakeup, l_time_length) == 8);

struct lin_rx_frame {
    uint8_t pid;
    uint8_t dlc;
    uint8_t calu_checksum; // what the receiver computed
    uint8_t checksum;      // what stood on the bus
    uint8_t reserved[4];
    uint64_t start_time_stamp; // ns of the device time
    uint64_t end_time_stamp;
    uint8_t data[kLinDataBytes];
};
static_assert(sizeof(lin_rx_frame) == 32 && offsetof(lin_rx_frame, start_time_stamp) == 8 &&
              offsetof(lin_rx_frame, end_time_stamp) == 16 && offsetof(lin_rx_frame, data) == 24);

// A received frame in detail, or a wake-up on the bus.
struct lin_rx_detil {
    uint32_t lin_id;
    uint32_t error_code;
    lin_rx_frame lf;
    uint32_t header_length; // from here on the timing, in the driver's units
    uint32_t break_field_length;
    uint32_t break_delimiter_length;
    uint32_t interbyte_length;
    uint32_t syncbyte_length;
    uint32_t interbyte_before1;
    uint32_t interbyte_before2;
    uint32_t interbyte_before3;
    uint32_t interbyte_before4;
    uint32_t interbyte_before5;
    uint32_t interbyte_before6;
    uint32_t interbyte_before7;
    uint32_t interbyte_before8;
    uint32_t interbyte_beforecs;
    uint32_t response_length;
    uint32_t header_baudrate;
    uint32_t response_baudrate;
    uint8_t reserved[4];
};
static_assert(sizeof(lin_rx_detil) == 112 && offsetof(lin_rx_detil, error_code) == 4 &&
              offsetof(lin_rx_detil, lf) == 8 && offsetof(lin_rx_detil, header_length) == 40 &&
              offsetof(lin_rx_detil, interbyte_before1) == 60 &&
              offsetof(lin_rx_detil, interbyte_beforecs) == 92 &&
              offsetof(lin_rx_detil, response_baudrate) == 104);

constexpr uint32_t kLinWakeupId = 100;    // `lin_id` of a wake-up, which is no frame
constexpr size_t kLinMappedRecords = 100; // that the driver writes in turn

struct lin_rx_data {
    lin_rx_detil value;
    int32_t data_index;
    uint8_t reserved[4];
};
static_assert(sizeof(lin_rx_data) == 120 && offsetof(lin_rx_data, data_index) == 112);

struct lin_operation {
    operation_type ot;
    uint32_t reserved;
    union {
        uint8_t bytes[120]; // first, so that {} clears them all
        lin_config_data config;
        rw_register_data reg_data;
        lin_disturb lin_dis;
        lin_wakeup wake_up;
        lin_rx_data rx_data;
    } data;
};
static_assert(sizeof(lin_operation) == 128 && offsetof(lin_operation, data) == 8);

struct lin_ctrl_flag {
    lin_tx_type ctrl_type;
    uint8_t is_active;
    uint8_t is_event_frame;
    uint8_t event_associated_id;
    uint8_t reserved;
};
static_assert(sizeof(lin_ctrl_flag) == 8);

struct lin_tx_frame {
    uint8_t pid;
    uint8_t dlc; // as the host gave it, which may be above the bytes that there are
    uint8_t sync;
    uint8_t checksum;
    uint8_t data[kLinDataBytes];
};
static_assert(sizeof(lin_tx_frame) == 12);

struct lin_tx_detil {
    uint8_t break_field_length;
    uint8_t break_Del_length;
    uint8_t inter_byte;
    uint8_t before_data0;
    uint8_t before_data1;
    uint8_t before_data2;
    uint8_t before_data3;
    uint8_t before_data4;
    uint8_t before_data5;
    uint8_t before_data6;
    uint8_t before_data7;
    uint8_t before_checksum;
    uint32_t header_baurate; // bit/s
    uint32_t response_baurate;
};
static_assert(sizeof(lin_tx_detil) == 20 && offsetof(lin_tx_detil, header_baurate) == 12);

struct lin_tx_message {
    lin_ctrl_flag flag;
    lin_tx_frame lin_frame;
    lin_tx_detil time_detil;
};
static_assert(sizeof(lin_tx_message) == 40 && offsetof(lin_tx_message, lin_frame) == 8 &&
              offsetof(lin_tx_message, time_detil) == 20);
