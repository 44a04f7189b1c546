// What the files of the LIN channels' tests share. Records are bytes at the offsets
// of their contract. Unless a test says otherwise, the channels run at 19200 bit/s,
// version 2.1, and tell of their records.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

enum {
    LIN_CHANNELS = 2,
    LIN_OPERATION = 128,
    LIN_RECORD = 112,
    LIN_RECORDS = 100,
    LIN_MAPPED = 12288
};

enum {
    RESPONDER,
    COMMANDER
};

enum {
    ONLY_COMMAND,
    WITH_RESPONSE,
    COMMAND_DETIL,
    FULL_DETIL
};

void lin_bus_tests(void);
void lin_char_tests(void);
void lin_fault_tests(void);
void lin_load_tests(void);
void lin_record_tests(void);

// Little-endian fields of a record.
void put_word(uint8_t* at, uint32_t value);
uint32_t word_at(const uint8_t* at);
uint64_t long_at(const uint8_t* at);

// --- /dev/LIN<n>_CHAR; results are 0 or an errno

typedef struct {
    uint32_t version, mode, supply, bitrate, wakeup_long;
    uint8_t clear_response, open_rx;
} lin_config;

int lin_open(int channel);
int lin_write_record(int fd, const void* record, size_t size);
// The record of an operation: its type, and the bytes behind that as hex.
int lin_operate(int channel, uint32_t type, const char* hex);
int lin_configure(int channel, const lin_config* config);
void lin_read_config(int channel, lin_config* config);
// The channel's records; ends the program when they cannot be mapped.
const uint8_t* lin_records(int channel);

// All as at module load, both channels up with a role each, and an empty trace.
void lin_begin(uint32_t mode0, uint32_t mode1);
void lin_end(void);
int lin_set_link(int channel, bool up);

// --- frames

typedef struct {
    uint32_t type;
    uint8_t active, pid, dlc, sync;
    const char* data; // hex, or NULL
    uint8_t break_length, delimiter, inter_byte, before[9];
    uint32_t header_rate, response_rate;
} lin_message;

int lin_socket(int channel);
int lin_send(int fd, const lin_message* message);
// A frame with these 8 bytes of data at most, or without data a header for 8.
int lin_send_plain(int fd, uint8_t pid, const char* data);

// --- what the wires saw

typedef struct {
    unsigned long long queued_ns, start_ns, end_ns;
    char bus[8], sender[8], pid[8], responder[8], data[24], checksum[8], result[64];
} lin_line;

// Waits until the trace has so many lines, at most some seconds, and reads the first
// ones; returns how many it has.
size_t lin_wait_trace(lin_line* lines, size_t room, size_t wanted);
// Whether all behind the times is this text, the words as in the trace.
bool lin_line_is(const lin_line* line, const char* text);
// How long it was on the wire, and whether that is so many bits of that rate.
bool lin_took(const lin_line* line, unsigned int bits, unsigned int rate);
bool lin_state_has(int channel, const char* word);
long long lin_state_value(int channel, const char* name);

// A packet that LIN<n> has received.
typedef struct {
    int channel, protocol;
    unsigned long long stamp_ns;
    size_t size;
    uint8_t bytes[128];
} lin_packet;

int lin_capture(void);
// The next packet of a LIN<n>; false when none comes in time.
bool lin_next_packet(int fd, lin_packet* packet, int timeout_ms);
// The same, and the record that it tells of.
const uint8_t* lin_next_record(int fd, lin_packet* packet);
