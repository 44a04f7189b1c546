// The CAN channels under load: figures that are reported, and changes while it runs.
#define _GNU_SOURCE
#include "can.h"
#include "check.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

enum {
    LINES_MAX = 16384
};

static trace_line lines[LINES_MAX];
static atomic_bool stop;

static int compare(const void* a, const void* b) {
    const double difference = *(const double*)a - *(const double*)b;
    return difference < 0 ? -1 : difference > 0;
}

// Lateness against the grid of the earliest frame: what is asserted is that none is lost.
static void lateness(void) {
    enum {
        FRAMES = 3000,
        PERIOD_US = 1000,
        CYCLE_US = 20
    };
    static double late[FRAMES];
    struct {
        struct bcm_head head;
        struct can_frame frame;
    } start = {.head = {.opcode = TX_SETUP,
                        .flags = SETTIMER | STARTTIMER,
                        .ival1 = {0, 10000},
                        .ival2 = {0, PERIOD_US - CYCLE_US},
                        .can_id = 0x123,
                        .nframes = 1},
               .frame = {.can_id = 0x123, .len = 8}};
    double earliest = 1e18;
    size_t count;
    int fd;
    can_begin(2);
    fd = can_bcm_socket(0);
    CHECK(write(fd, &start, sizeof start) == sizeof start);
    usleep(FRAMES * PERIOD_US);
    count = can_wait_trace(lines, LINES_MAX, FRAMES);
    close(fd);
    CHECK(count >= FRAMES);
    for (size_t i = 0; i < FRAMES; i++) {
        late[i] = (double)(lines[i].queued_ns - lines[0].queued_ns) / 1e3 - (double)i * PERIOD_US;
        earliest = late[i] < earliest ? late[i] : earliest;
    }
    for (size_t i = 0; i < FRAMES; i++) {
        late[i] -= earliest;
    }
    qsort(late, FRAMES, sizeof late[0], compare);
    printf("# lateness of %d periodic frames: median %.0f us, 99 %% %.0f us, maximum %.0f us\n",
           FRAMES, late[FRAMES / 2], late[FRAMES * 99 / 100], late[FRAMES - 1]);
    can_end();
}

// Two channels send as fast as they can; all frames arrive, in order.
static void* flood(void* argument) {
    const int channel = *(const int*)argument;
    const int fd = can_raw_socket(channel);
    struct can_frame frame = {.can_id = (canid_t)(0x100 + channel), .len = 4};
    for (uint32_t i = 0; i < 5000;) {
        memcpy(frame.data, &i, sizeof i);
        if (write(fd, &frame, sizeof frame) == sizeof frame) {
            i++;
        } else {
            usleep(200);
        }
    }
    close(fd);
    return NULL;
}

static void throughput(void) {
    static const can_timing fastest = {{1, 8, 29, 10, 1, 4, 6, 3}}; // 1 Mbit/s
    const int room = 64 << 20;
    int senders[2] = {0, 1};
    pthread_t threads[2];
    struct can_frame frame;
    uint32_t expected[2] = {0, 0};
    double seconds;
    int sink;
    can_begin_at(3, &fastest);
    CHECK(control_write("can/wiring", "0-1-2") == 0);
    sink = can_raw_socket(2);
    CHECK(setsockopt(sink, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) == 0);
    seconds = now_s();
    for (int i = 0; i < 2; i++) {
        CHECK(pthread_create(&threads[i], NULL, flood, &senders[i]) == 0);
    }
    while (expected[0] + expected[1] < 10000 && poll_events(sink, POLLIN, 2000)) {
        uint32_t number;
        const size_t from = read(sink, &frame, sizeof frame) == sizeof frame ? frame.can_id & 1 : 0;
        memcpy(&number, frame.data, sizeof number);
        CHECK(number == expected[from]);
        expected[from] = number + 1;
    }
    seconds = now_s() - seconds;
    for (int i = 0; i < 2; i++) {
        pthread_join(threads[i], NULL);
    }
    CHECK(expected[0] == 5000 && expected[1] == 5000);
    printf("# one wire at 1 Mbit/s carried %.0f frames a second\n", 10000 / seconds);
    close(sink);
    can_end();
}

static void* keep_sending(void* argument) {
    const int channel = *(const int*)argument;
    const int fd = can_raw_socket(channel);
    while (!stop) {
        if (can_send(fd, "123#0011223344556677") != 0) {
            usleep(100);
        }
    }
    close(fd);
    return NULL;
}

// Everything that can change does, while channels send: nothing hangs or is left behind.
static void changes_under_load(void) {
    static const char* const wirings[] = {"0-1-2 3-4", "0-1", "2-0 1-3", "0-1 2-3 4-5"};
    int channels[3] = {0, 1, 2};
    pthread_t threads[3];
    const double end = now_s() + 4;
    unsigned int round = 0;
    int fd;
    can_begin(4);
    fd = can_bcm_socket(0);
    stop = false;
    for (int i = 0; i < 3; i++) {
        CHECK(pthread_create(&threads[i], NULL, keep_sending, &channels[i]) == 0);
    }
    for (; now_s() < end; round++) {
        struct {
            struct bcm_head head;
            struct can_frame frame;
        } what = {.head = {.opcode = round % 3 ? TX_SETUP : TX_DELETE,
                           .flags = SETTIMER | STARTTIMER,
                           .ival2 = {0, 300},
                           .can_id = 0x55,
                           .nframes = 1},
                  .frame = {.can_id = 0x55}};
        CHECK(write(fd, &what, sizeof what) > 0 || errno == EINVAL);
        CHECK(can_set_link((int)(round % 3), round % 2) == 0);
        control_write("can/wiring", wirings[round % 4]);
        control_write("can/errors", round % 5 ? "1 130 0" : "1 256 0");
        *can_register(2, 0) = round % 7 ? 2 : 1;
        *can_register(1, 4) = round % 6 ? 0 : 4;
        if (round % 11 == 0) {
            close(fd);
            fd = can_bcm_socket((int)(round % 3));
        }
    }
    stop = true;
    for (int i = 0; i < 3; i++) {
        pthread_join(threads[i], NULL);
    }
    close(fd);
    printf("# %u rounds of changes\n", round);
    can_begin(2);
    fd = can_raw_socket(1);
    {
        const int from = can_raw_socket(0);
        CHECK(can_send(from, "123#77") == 0 && strcmp(can_receive(fd, 1000), "123#77") == 0);
        close(from);
    }
    close(fd);
    can_end();
}

// Rates and intervals that no bus has cost time, and take the board nowhere.
static void senseless_rates(void) {
    static const can_timing senseless = {{1, 1, 2, 1, 1, 1, 2, 1}}; // 10 Mbit/s
    struct {
        struct bcm_head head;
        struct can_frame frame;
    } start = {.head = {.opcode = TX_SETUP,
                        .flags = SETTIMER | STARTTIMER,
                        .ival2 = {0, 1},
                        .can_id = 0x123,
                        .nframes = 1},
               .frame = {.can_id = 0x123}};
    double begin;
    int fd;
    can_begin_at(1, &senseless);
    control_write("can/cycle", "off");
    fd = can_bcm_socket(0);
    CHECK(write(fd, &start, sizeof start) == sizeof start);
    begin = now_s();
    usleep(500000);
    CHECK(can_state_has(0, "waiting=32") && can_state_has(0, "tec=128"));
    close(fd);
    printf("# half a second at senseless rates took %.1f s\n", now_s() - begin);
    CHECK(now_s() - begin < 30);
    can_end();
}

void can_load_tests(void) {
    run_test("bcm_loses_no_frame_in_thousands", lateness);
    run_test("can_wire_carries_all_frames_in_order", throughput);
    run_test("can_and_bcm_survive_senseless_rates", senseless_rates);
    run_test("can_channels_survive_changes_under_load", changes_under_load);
}
