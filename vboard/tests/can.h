// What the files of the CAN channels' tests share. Unless a test says otherwise,
// the channels run at 500 kbit/s and 2 Mbit/s, so a bit takes 2000 ns or 500 ns.
#pragma once

#include <linux/can.h>
#include <linux/can/bcm.h>
#include <linux/can/raw.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

enum {
    CAN_CHANNELS = 6,
    NOMINAL_BIT_NS = 2000,
    DATA_BIT_NS = 500
};

// A message to a broadcast manager socket begins with this; struct bcm_msg_head
// has an array without bound at its end and so cannot be a part of anything.
struct bcm_head {
    uint32_t opcode, flags, count;
    struct bcm_timeval ival1, ival2;
    uint32_t can_id, nframes;
};
_Static_assert(sizeof(struct bcm_head) == sizeof(struct bcm_msg_head), "as the kernel reads it");

void can_bus_tests(void);
void can_fault_tests(void);
void can_capture_tests(void);
void can_error_tests(void);
void can_register_tests(void);
void can_bcm_tests(void);
void can_load_tests(void);

// The record that /dev/norvane_can<n> takes: brp, sjw, sg1, sg2, nominal and then data.
typedef struct {
    int32_t value[8];
} can_timing;

extern const can_timing fast_timing;    // 500 kbit/s, 2 Mbit/s
extern const can_timing other_timing;   // 250 kbit/s, 1 Mbit/s
extern const can_timing slow_timing;    // 10 kbit/s, 10 kbit/s
extern const can_timing slowest_timing; // 405 bit/s: a frame takes a tenth of a second or more

// Result: 0 or an errno.
int can_write_timing(int channel, const void* record, size_t size);
// Raises or lowers an interface by a route netlink message, as libsocketcan does.
int set_link(const char* name, bool up);
int can_set_link(int channel, bool up);

// Wiring by pairs, an empty trace, and the first `channels` channels up with fast_timing.
void can_begin(int channels);
// The same at a timing of the test's own.
void can_begin_at(int channels, const can_timing* timing);
// Raises or lowers ncan<n>, as the application does. Result: 0 or an errno.
int can_set_port(int channel, bool up);
// All down, with their settings cleared.
void can_end(void);

// A raw socket of the channel, without the frames it sends itself.
int can_raw_socket(int channel);
int can_bcm_socket(int channel);
// Sends a frame in the notation of cansend; result 0 or an errno.
int can_send(int fd, const char* frame);
// Reads one frame as text, or "none" after the time.
const char* can_receive(int fd, int timeout_ms);
// The frame in binary; true for an FD frame.
bool can_parse(const char* text, struct canfd_frame* frame);

// One line of the trace.
typedef struct {
    unsigned long long queued_ns, start_ns, end_ns;
    int channel;
    char frame[160], origin[8], result[32];
} trace_line;

// Reads the trace; returns the number of lines, comments left out.
size_t can_trace(trace_line* lines, size_t room);
// Waits until the trace has so many lines, at most some seconds; returns how many it has.
size_t can_wait_trace(trace_line* lines, size_t room, size_t wanted);
// Whether the channel's line of the state file has this word, such as "tec=8".
bool can_state_has(int channel, const char* word);
// The number behind "NAME=" there.
long long can_state_value(int channel, const char* name);
// Waits until it has the word, at most some seconds.
bool can_state_gets(int channel, const char* word);

// A packet that ncan<n> has received.
typedef struct {
    int channel;  // n
    int protocol; // ETH_P_CAN, ETH_P_CANFD
    int type;     // PACKET_HOST
    unsigned long long stamp_ns;
    size_t size;
    uint8_t bytes[160];
} can_packet;

// A packet socket that sees all interfaces, as a capture of "any" does.
int can_capture(void);
// The next packet of an ncan<n>; false when none comes in time.
bool can_next_packet(int fd, can_packet* packet, int timeout_ms);

// The same of one channel: packets of different ones come in no order.
bool can_packet_of(int fd, int channel, can_packet* packet, int timeout_ms);

// A register of the channel's protocol core.
volatile uint32_t* can_register(int channel, uint32_t offset);
volatile uint32_t* can_shared_register(uint32_t offset);
