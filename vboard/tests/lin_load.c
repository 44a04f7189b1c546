// The LIN channels under load, and while everything about them changes.
#define _GNU_SOURCE
#include "check.h"
#include "lin.h"

#include <errno.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static lin_line lines[1024];
static atomic_bool stop;

static void* send_on(void* argument) {
    const int channel = *(const int*)argument;
    const int fd = lin_socket(channel);
    while (!stop) {
        lin_send_plain(fd, 0x92, "1122334455667788");
        lin_send_plain(fd, 0xD3, NULL);
        usleep(1000);
    }
    close(fd);
    return NULL;
}

static void* change(void* argument) {
    static const char* const controls[][2] = {
        {"lin/wiring", "0-1"},       {"lin/fault", "0 bit 2"}, {"lin/header", "1 0x12"},
        {"lin/wakeup", "0"},         {"lin/wiring", "0 1"},    {"lin/node", "1 0x13 AABB"},
        {"lin/fault", "1 parity 1"}, {"lin/reset", "1"},       {"lin/node", "1 0x13 none"},
    };
    (void)argument;
    for (unsigned int i = 0; !stop; i++) {
        const lin_config config = {.version = i % 5,
                                   .mode = i / 3 % 2,
                                   .bitrate = i % 7 ? 20000 : 0,
                                   .clear_response = i % 2,
                                   .open_rx = i % 11 != 0};
        const size_t which = i % (sizeof controls / sizeof controls[0]);
        control_write(controls[which][0], controls[which][1]);
        lin_configure((int)(i % LIN_CHANNELS), &config);
        lin_operate((int)(i % LIN_CHANNELS), 4, i % 2 ? "01 00 03" : "00");
        lin_operate((int)(i % LIN_CHANNELS), 3, "00 00 00 02 01 28 00 03");
    }
    return NULL;
}

// Nothing of it can be foretold, but the board is well afterwards.
static void everything_at_once(void) {
    int channels[LIN_CHANNELS] = {0, 1};
    pthread_t threads[LIN_CHANNELS + 1];
    const double begin = now_s();
    int changes = 0;
    int from;
    lin_begin(COMMANDER, COMMANDER);
    stop = false;
    for (int i = 0; i < LIN_CHANNELS; i++) {
        CHECK(pthread_create(&threads[i], NULL, send_on, &channels[i]) == 0);
    }
    CHECK(pthread_create(&threads[LIN_CHANNELS], NULL, change, NULL) == 0);
    for (; now_s() - begin < 2; changes++) {
        CHECK(lin_set_link(changes % LIN_CHANNELS, changes / LIN_CHANNELS % 2) == 0);
        usleep(3000);
    }
    stop = true;
    for (int i = 0; i <= LIN_CHANNELS; i++) {
        pthread_join(threads[i], NULL);
    }
    CHECK(changes > 10);
    lin_begin(COMMANDER, RESPONDER);
    from = lin_socket(0);
    CHECK(lin_send_plain(from, 0x92, "1122") == 0 && lin_wait_trace(lines, 1024, 1) == 1);
    CHECK(lin_line_is(&lines[0], "0 lin0 0x92 lin0 1122 0x3A ok"));
    close(from);
    lin_end();
}

// As fast as the wire goes: one frame behind the other, none lost, and all told.
static void full_wire(void) {
    enum {
        FRAMES = 400
    };
    const int taps = lin_capture();
    lin_packet packet;
    int told[LIN_CHANNELS] = {0};
    int from;
    lin_begin(COMMANDER, RESPONDER);
    CHECK(control_write("lin/wiring", "0-1") == 0);
    from = lin_socket(0);
    for (int i = 0; i < FRAMES;) {
        const int result = lin_send_plain(from, 0x92, "11");
        CHECK(result == 0 || result == ENOBUFS || result == EAGAIN);
        i += result == 0;
        usleep(result ? 2000 : 0);
    }
    CHECK(lin_wait_trace(lines, 1024, FRAMES) == FRAMES);
    for (int i = 0; i < FRAMES; i++) {
        CHECK(lin_took(&lines[i], 54, 19200));
        CHECK(i == 0 || lines[i].start_ns >= lines[i - 1].end_ns);
    }
    while (lin_next_packet(taps, &packet, 100)) {
        CHECK(packet.bytes[14] == told[packet.channel] % LIN_RECORDS);
        told[packet.channel]++;
    }
    CHECK(told[0] == FRAMES && told[1] == FRAMES);
    close(from);
    close(taps);
    lin_end();
}

void lin_load_tests(void) {
    run_test("lin_wire_carries_all_frames_in_order", full_wire);
    run_test("lin_survives_changes_of_everything_at_once", everything_at_once);
}
