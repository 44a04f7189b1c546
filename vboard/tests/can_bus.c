// What the CAN wires carry: frames, their lengths, their order, who hears them.
#define _GNU_SOURCE
#include "can.h"
#include "check.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

static trace_line lines[256];

static void frames_cross_the_wire(void) {
    static const char* const frames[] = {
        "123#",
        "7FF#0011223344556677",
        "00000000#AA",
        "1FFFFFFF#0102030405060708",
        "123#R",
        "123#R8",
        "12345678#R3",
        "123##0",
        "123##1112233",
        "12345678##000112233445566778899AABB",
        "7FF##1"
        "000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F"
        "202122232425262728292A2B2C2D2E2F303132333435363738393A3B3C3D3E3F",
    };
    int from;
    int to;
    int stranger;
    size_t count = sizeof frames / sizeof frames[0];
    can_begin(4);
    from = can_raw_socket(0);
    to = can_raw_socket(1);
    stranger = can_raw_socket(2);
    for (size_t i = 0; i < count; i++) {
        CHECK(can_send(from, frames[i]) == 0);
        // A remote frame of length 0 has no digit behind its R.
        CHECK(strcmp(can_receive(to, 1000), strcmp(frames[i], "123#R") ? frames[i] : "123#R0") ==
              0);
    }
    CHECK(strcmp(can_receive(from, 50), "none") == 0);
    CHECK(strcmp(can_receive(stranger, 0), "none") == 0);
    CHECK(can_trace(lines, 256) == count);
    for (size_t i = 0; i < count; i++) {
        CHECK(strcmp(lines[i].frame, frames[i]) == 0 && lines[i].channel == 0);
        CHECK(strcmp(lines[i].origin, "raw") == 0 && strcmp(lines[i].result, "ok") == 0);
        CHECK(lines[i].start_ns >= lines[i].queued_ns);
    }
    close(from);
    close(to);
    close(stranger);
    can_end();
}

// A length that FD does not know is filled up with zeros, as on a real wire.
static void fd_lengths(void) {
    int from;
    int to;
    can_begin(2);
    from = can_raw_socket(0);
    to = can_raw_socket(1);
    CHECK(can_send(from, "123##0112233445566778899") == 0);
    CHECK(strcmp(can_receive(to, 1000), "123##0112233445566778899000000") == 0);
    close(from);
    close(to);
    can_end();
}

static void own_frames(void) {
    const int on = 1;
    int from;
    int beside;
    can_begin(2);
    from = can_raw_socket(0);
    beside = can_raw_socket(0);
    CHECK(can_send(from, "123#11") == 0);
    CHECK(strcmp(can_receive(beside, 100), "none") == 0);
    CHECK(setsockopt(from, SOL_CAN_RAW, CAN_RAW_LOOPBACK, &on, sizeof on) == 0);
    CHECK(can_send(from, "123#22") == 0);
    CHECK(strcmp(can_receive(beside, 1000), "123#22") == 0);
    CHECK(strcmp(can_receive(from, 50), "none") == 0);
    close(from);
    close(beside);
    can_end();
}

/*
 * Frame lengths from start of frame to end of frame, in bits.
 *
 * 000#: 19 bits 0 from the start to the length, whose CRC is 15 bits 0. Of 34
 *   equal bits a stuff bit follows each five, six in all; then the CRC delimiter,
 *   two bits of acknowledgement and 7 of the end: 34 + 6 + 10 = 50.
 * 555#5555555555555555: 1 + 11 + 3 + 4 + 64 + 15 = 98. The bits alternate but for
 *   0000 and the following 1 in the control field, and that has no five equal bits
 *   (RTR, IDE, r0, then length 1000: 000 1 000 behind a 1): one stuff bit is in the
 *   CRC. 98 + 1 + 10 = 109.
 * 7FF#FFFFFFFFFFFFFFFF: 98 bits with 15 stuff bits: 98 + 15 + 10 = 123.
 * 00000123#R4: 1 + 11 + 2 + 18 + 1 + 2 + 4 + 15 = 54, 4 stuff bits: 68.
 * 000##0: 14 bits 0 (two stuff bits), the FD bit 1, 7 bits 0 (one stuff bit), that is
 *   25; CRC field 4 + 17 and 6 fixed stuff bits; 10 as above: 25 + 27 + 10 = 62.
 * 000##1: up to the switching bit 14 + 2 + 3 = 19 bits and 9 at the end are nominal;
 *   5 bits 0, which get no stuff bit as the CRC field follows, that field and its
 *   delimiter are 33 at the data rate.
 * 123##1...64 bytes 00 to 3F: 17 and 9 nominal; 575 at the data rate.
 * 1FFFFFFF##1...64 bytes 00: 42 and 9 nominal; 652 at the data rate.
 */
static void frame_lengths(void) {
    static const struct {
        const char* frame;
        unsigned int nominal, data;
    } known[] = {
        {"000#", 50, 0},
        {"555#5555555555555555", 109, 0},
        {"7FF#FFFFFFFFFFFFFFFF", 123, 0},
        {"123#DEADBEEF", 78, 0},
        {"123#R4", 44, 0},
        {"00000123#R4", 68, 0},
        {"1FFFFFFF#0000000000000000", 148, 0},
        {"15555555#", 65, 0},
        {"000##0", 62, 0},
        {"000##1", 28, 33},
        {"123##1112233", 26, 57},
        {"15555555##055555555555555555555555555555555", 206, 0},
        {"123##1000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F"
         "202122232425262728292A2B2C2D2E2F303132333435363738393A3B3C3D3E3F",
         26, 575},
        {"1FFFFFFF##10000000000000000000000000000000000000000000000000000000000000000"
         "0000000000000000000000000000000000000000000000000000000000000000",
         51, 652},
    };
    const size_t count = sizeof known / sizeof known[0];
    int from;
    can_begin(2);
    from = can_raw_socket(0);
    for (size_t i = 0; i < count; i++) {
        CHECK(can_send(from, known[i].frame) == 0);
        CHECK(can_wait_trace(lines, 256, i + 1) == i + 1);
    }
    for (size_t i = 0; i < count; i++) {
        const unsigned long long expected =
            known[i].nominal * NOMINAL_BIT_NS + known[i].data * DATA_BIT_NS;
        const unsigned long long length = lines[i].end_ns - lines[i].start_ns;
        // The device time counts steps of 10 ns.
        CHECK(length >= expected - 10 && length <= expected + 10);
        if (length < expected - 10 || length > expected + 10) {
            printf("# %s: %llu ns, not %llu\n", known[i].frame, length, expected);
        }
    }
    close(from);
    can_end();
}

static void arbitration(void) {
    static const char* const frames[] = {
        "7FF#",      // holds the wire for a tenth of a second while the others are queued
        "04000000#", // the same 11 bits in front as 100
        "100#R",     "100#11", "0FF#22", "100##0",
    };
    static const int order[] = {0, 4, 3, 5, 2, 1};
    int sockets[CAN_CHANNELS];
    can_begin_at(CAN_CHANNELS, &slowest_timing);
    CHECK(control_write("can/wiring", "0-1-2-3-4-5") == 0);
    for (int i = 0; i < CAN_CHANNELS; i++) {
        sockets[i] = can_raw_socket(i);
    }
    for (int i = 0; i < CAN_CHANNELS; i++) {
        CHECK(can_send(sockets[i], frames[i]) == 0);
    }
    CHECK(can_wait_trace(lines, 256, CAN_CHANNELS) == CAN_CHANNELS);
    CHECK(lines[CAN_CHANNELS - 1].queued_ns < lines[0].end_ns);
    for (int i = 0; i < CAN_CHANNELS; i++) {
        CHECK(lines[i].channel == order[i]);
        // No pause but the three bits of intermission, of 2464 us each.
        CHECK(i == 0 || lines[i].start_ns == lines[i - 1].end_ns + 3 * 2464000);
    }
    for (int i = 0; i < CAN_CHANNELS; i++) {
        for (int k = 0; k < CAN_CHANNELS; k++) {
            if (order[k] != i) {
                CHECK(strcmp(can_receive(sockets[i], 1000), "none") != 0);
            }
        }
        CHECK(strcmp(can_receive(sockets[i], 0), "none") == 0);
        close(sockets[i]);
    }
    can_end();
}

// A channel offers its oldest frame, not its best one.
static void first_in_first_out(void) {
    int from;
    int to;
    can_begin_at(2, &slow_timing);
    from = can_raw_socket(0);
    to = can_raw_socket(1);
    CHECK(can_send(from, "7FF#") == 0 && can_send(from, "300#") == 0);
    CHECK(can_send(from, "100#") == 0 && can_send(to, "200#") == 0);
    CHECK(can_wait_trace(lines, 256, 4) == 4);
    CHECK(strcmp(lines[1].frame, "200#") == 0);
    CHECK(strcmp(lines[2].frame, "300#") == 0);
    CHECK(strcmp(lines[3].frame, "100#") == 0);
    close(from);
    close(to);
    can_end();
}

static void wiring(void) {
    char text[64];
    int from;
    int to;
    can_begin(4);
    control_read("can/wiring", text, sizeof text);
    CHECK(strcmp(text, "0-1 2-3 4-5\n") == 0);
    CHECK(control_write("can/wiring", "3-0-2") == 0);
    control_read("can/wiring", text, sizeof text);
    CHECK(strcmp(text, "0-2-3 1 4 5\n") == 0);
    from = can_raw_socket(0);
    to = can_raw_socket(3);
    CHECK(can_send(from, "123#77") == 0 && strcmp(can_receive(to, 1000), "123#77") == 0);
    CHECK(control_write("can/wiring", "0-6") == EINVAL);
    CHECK(control_write("can/wiring", "0-0") == EINVAL);
    CHECK(control_write("can/wiring", "0-1 1-2") == EINVAL);
    CHECK(control_write("can/wiring", "x") == EINVAL);
    CHECK(control_write("can/wiring", "0-") == EINVAL);
    CHECK(control_write("can/trace", "empty") == EINVAL);
    close(from);
    close(to);
    can_end();
    control_write("can/wiring", "0-1 2-3 4-5");
}

static void trace_overflow(void) {
    enum {
        KEPT = 2000,
        MORE = 100
    };
    static const can_timing fastest = {{1, 8, 19, 20, 1, 4, 15, 4}}; // 1 Mbit/s
    char text[256];
    long long done;
    int from;
    can_begin_at(2, &fastest);
    CHECK(control_write("can/trace", "keep 2000") == 0);
    from = can_raw_socket(0);
    done = can_state_value(0, "sent") + KEPT + MORE;
    for (int sent = 0; sent < KEPT + MORE;) {
        if (can_send(from, "7FF#R") == 0) {
            sent++;
        } else {
            usleep(500);
        }
    }
    // The core may have sent all it holds while the net device's queue holds more.
    for (int tries = 0; tries < 500 && can_state_value(0, "sent") < done; tries++) {
        usleep(10000);
    }
    control_read("can/trace", text, sizeof text);
    CHECK(strstr(text, "\n# lost 100\n") != NULL);
    CHECK(control_write("can/trace", "clear") == 0);
    control_read("can/trace", text, sizeof text);
    CHECK(strcmp(text, "# queued_ns start_ns end_ns channel frame origin result\n") == 0);
    CHECK(control_write("can/trace", "keep 0") == EINVAL);
    CHECK(control_write("can/trace", "keep 262145") == EINVAL);
    CHECK(control_write("can/trace", "keep 262144") == 0);
    close(from);
    can_end();
}

void can_bus_tests(void) {
    run_test("can_frames_of_all_kinds_cross_the_wire", frames_cross_the_wire);
    run_test("can_fd_frames_are_filled_up_to_a_length_of_the_wire", fd_lengths);
    run_test("can_own_frames_come_back_if_asked_for", own_frames);
    run_test("can_frames_take_their_bits_with_stuffing", frame_lengths);
    run_test("can_lowest_arbitration_field_wins", arbitration);
    run_test("can_channel_offers_its_oldest_frame", first_in_first_out);
    run_test("can_wiring_can_be_changed", wiring);
    run_test("can_trace_tells_what_it_has_lost", trace_overflow);
}
