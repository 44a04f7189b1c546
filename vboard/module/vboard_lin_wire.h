/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The records that the LIN driver and the application exchange. All integers
 * are little-endian.
 */
#ifndef VBOARD_LIN_WIRE_H
#define VBOARD_LIN_WIRE_H

#include <linux/build_bug.h>
#include <linux/stddef.h>
#include <linux/types.h>

enum lin_version { LIN_1_3, LIN_2_0, LIN_2_1, LIN_2_2, SAE_J_26262 };
enum lin_mode { RESPONDER, COMMANDER };
enum power_supply { INTERNAL, EXTERNAL };
enum lin_tx_type { ONLY_COMMAND, WITH_RESPONSE, COMMAND_DETIL, FULL_DETIL };
enum operation_type { LIN_CONFIG, RW_REGISTER, RX_DETIL, CONFIG_DISTURB, SEND_WAKEUP };

#define LIN_DATA_MAX 8
#define LIN_RECORDS 100
#define LIN_WAKEUP_ID 100	/* lin_id of a wake-up's record */

/* error_code: what went wrong with a frame, as this channel saw it. */
#define LIN_ERROR_NO_RESPONSE 0x0001	/* nobody sent the data */
#define LIN_ERROR_FRAMING 0x0002	/* a field had not its form, or as 0x0100, 0x0200 say */
#define LIN_ERROR_PARITY 0x0004		/* of the identifier */
#define LIN_ERROR_CHECKSUM 0x0008
#define LIN_ERROR_BIT 0x0100		/* what this channel sent came out otherwise */
#define LIN_ERROR_HEADER 0x0200		/* break below 11 bits, no delimiter, sync not 0x55 */

/* ---- /dev/LIN<n>_CHAR ----------------------------------------------------- */

struct lin_config_data {
	__le32 lversion;
	__le32 lmode;
	__le32 psupply;
	__le32 bitrate;
	__le32 wakeup_long;
	u8 clear_response;
	u8 open_rx;
	__le16 reserved;
} __packed;
static_assert(sizeof(struct lin_config_data) == 24);

struct rw_register_data {
	__le32 offset;
	__le32 reg_value;
} __packed;

struct lin_disturb {
	u8 lin_id;
	u8 enable_id;
	u8 reset;
	u8 type;
	u8 on_off;
	u8 time_length;
	u8 offset;
	u8 field;
	u8 enable_times;
	u8 reserved;
	__le16 times;
} __packed;
static_assert(sizeof(struct lin_disturb) == 12);

struct lin_wakeup {
	u8 channel_status;
	u8 send_wakeup_signal;
	u8 repeat_times;
	u8 reset;
	__le32 h_time_length;
	__le32 l_time_length;
} __packed;
static_assert(sizeof(struct lin_wakeup) == 12);

struct lin_rx_frame {
	u8 pid;
	u8 dlc;
	u8 calu_checksum;
	u8 checksum;
	__le32 reserved;
	__le64 start_time_stamp;
	__le64 end_time_stamp;
	u8 data[LIN_DATA_MAX];
} __packed;
static_assert(sizeof(struct lin_rx_frame) == 32);

struct lin_rx_detil {
	__le32 lin_id;
	__le32 error_code;
	struct lin_rx_frame lf;
	__le32 header_length;
	__le32 break_field_length;
	__le32 break_delimiter_length;
	__le32 interbyte_length;
	__le32 syncbyte_length;
	__le32 interbyte_before[LIN_DATA_MAX];
	__le32 interbyte_beforecs;
	__le32 response_length;
	__le32 header_baudrate;
	__le32 response_baudrate;
	__le32 reserved;
} __packed;
static_assert(sizeof(struct lin_rx_detil) == 112);
static_assert(offsetof(struct lin_rx_detil, interbyte_before) == 60);

struct lin_rx_data {
	struct lin_rx_detil value;
	__le32 data_index;
	__le32 reserved;
} __packed;

struct lin_operation {
	__le32 ot;
	__le32 reserved;
	union {
		struct lin_config_data config;
		struct rw_register_data reg_data;
		struct lin_disturb lin_dis;
		struct lin_wakeup wake_up;
		struct lin_rx_data rx_data;
	} data;
} __packed;
static_assert(sizeof(struct lin_operation) == 128);

/* ---- frames sent through LIN<n> --------------------------------------------- */

struct lin_ctrl_flag {
	__le32 ctrl_type;
	u8 is_active;
	u8 is_event_frame;
	u8 event_associated_id;
	u8 reserved;
} __packed;

struct lin_tx_frame {
	u8 pid;
	u8 dlc;
	u8 sync;
	u8 checksum;
	u8 data[LIN_DATA_MAX];
} __packed;

struct lin_tx_detil {
	u8 break_field_length;
	u8 break_Del_length;
	u8 inter_byte;
	u8 before_data[LIN_DATA_MAX];
	u8 before_checksum;
	__le32 header_baurate;
	__le32 response_baurate;
} __packed;

struct lin_tx_message {
	struct lin_ctrl_flag flag;
	struct lin_tx_frame lin_frame;
	struct lin_tx_detil time_detil;
} __packed;
static_assert(sizeof(struct lin_tx_message) == 40);
static_assert(offsetof(struct lin_tx_message, time_detil) == 20);

#endif
