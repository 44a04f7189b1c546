// Periodic frames: the board's CAN_BCM protocol.
#define _GNU_SOURCE
#include "can.h"
#include "check.h"

#include <errno.h>
#include <net/if.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

enum {
    CYCLE_US = 20,
    MESSAGE_FRAMES_MAX = 260
};

static trace_line lines[4096];

typedef struct {
    struct bcm_head head;
    struct canfd_frame frames[MESSAGE_FRAMES_MAX];
} message;

// A message with one frame; intervals in microseconds.
static message task(uint32_t opcode, uint32_t flags, long ival1, long ival2, const char* frame) {
    message result = {.head = {.opcode = opcode,
                               .flags = flags,
                               .ival1 = {ival1 / 1000000, ival1 % 1000000},
                               .ival2 = {ival2 / 1000000, ival2 % 1000000},
                               .nframes = opcode == TX_DELETE ? 0 : 1}};
    if (can_parse(frame, &result.frames[0])) {
        result.head.flags |= CAN_FD_FRAME;
    }
    result.head.can_id = result.frames[0].can_id;
    return result;
}

// Result: what write(2) returned, or the negated errno.
static ssize_t put_size(int fd, const message* what, size_t size) {
    const ssize_t got = write(fd, what, size);
    return got < 0 ? -errno : got;
}

static size_t frame_size(const message* what) {
    return what->head.flags & CAN_FD_FRAME ? CANFD_MTU : CAN_MTU;
}

static ssize_t put(int fd, message what) {
    return put_size(fd, &what, sizeof what.head + frame_size(&what));
}

// The mean distance of the frames' arrivals at the driver, from `first` on.
static double mean_period_us(size_t first, size_t count) {
    return (double)(lines[count - 1].queued_ns - lines[first].queued_ns) / 1e3 /
           (double)(count - 1 - first);
}

static unsigned long long clock_ns(void) {
    char text[64];
    control_read("regs/counter", text, sizeof text);
    return strtoull(text + strlen("running "), NULL, 16) * 10;
}

static void first_after_ival1(void) {
    unsigned long long begin;
    size_t count;
    int fd;
    can_begin(2);
    fd = can_bcm_socket(0);
    begin = clock_ns();
    CHECK(put(fd, task(TX_SETUP, SETTIMER | STARTTIMER, 150000, 20000 - CYCLE_US,
                       "123#1122334455667788")) == 72);
    count = can_wait_trace(lines, 4096, 21);
    CHECK(count >= 21);
    CHECK(lines[0].queued_ns >= begin + 150000000);
    printf("# first after %.3f ms, then each %.3f us\n",
           (double)(lines[0].queued_ns - begin) / 1e6, mean_period_us(0, 21));
    for (size_t i = 0; i < count; i++) {
        CHECK(strcmp(lines[i].frame, "123#1122334455667788") == 0);
        CHECK(strcmp(lines[i].origin, "bcm") == 0 && strcmp(lines[i].result, "ok") == 0);
    }
    close(fd);
    can_end();
}

static void first_at_once(void) {
    unsigned long long begin;
    int fd;
    can_begin(2);
    fd = can_bcm_socket(0);
    begin = clock_ns();
    CHECK(put(fd, task(TX_SETUP, SETTIMER | STARTTIMER, 0, 10000000, "123#")) == 72);
    CHECK(can_wait_trace(lines, 4096, 1) == 1);
    CHECK(lines[0].queued_ns - begin < 5000000000ULL); // not after ival2
    usleep(100000);
    CHECK(can_trace(lines, 4096) == 1);
    close(fd);
    can_end();
}

// The period that a task is given on the bus, beside what came of it, which is shown: how late the
// guest's timers are says nothing of the task.
static void check_period(const char* frame, long ival2_us, long period_us) {
    char text[4096], end[64];
    size_t count;
    int fd;
    control_write("can/trace", "clear");
    fd = can_bcm_socket(0);
    CHECK(put(fd, task(TX_SETUP, SETTIMER | STARTTIMER, 1000, ival2_us, frame)) > 0);
    control_read("can/tasks", text, sizeof text);
    snprintf(end, sizeof end, " running %ld\n", period_us);
    CHECK(strstr(text, end) != NULL);
    count = can_wait_trace(lines, 4096, period_us < 100000 ? 21 : 2);
    close(fd);
    CHECK(count >= 2);
    if (count >= 2)
        printf("# %.12s each %ld us: mean period %.3f us\n", frame, ival2_us,
               mean_period_us(0, count));
}

static void timer_cycle(void) {
    can_begin(2);
    check_period("123#11", 2000 - 20, 2000);
    check_period("123##1", 2000 - 18, 2000);
    check_period("123##11122", 2000 - 19, 2000);
    check_period("123##1112233445566778899AABBCC", 2000 - 20, 2000);
    check_period("123##1"
                 "000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F"
                 "202122232425262728292A2B2C2D2E2F303132333435363738393A3B3C3D3E3F",
                 3000 - 30, 3000);
    CHECK(control_write("can/cycle", "off") == 0);
    check_period("123#11", 1980, 1980);
    CHECK(control_write("can/cycle", "maybe") == EINVAL);
    can_end();
}

// From one second on, the cycle is shorter, and from two seconds on there is none.
static void timer_cycle_of_long_periods(void) {
    can_begin(2);
    check_period("100#", 1100000 - 8, 1100000);
    check_period("100#", 2000000, 2000000);
    can_end();
}

static size_t count_of(const char* frame, size_t count) {
    size_t found = 0;
    for (size_t i = 0; i < count; i++) {
        found += strcmp(lines[i].frame, frame) == 0 ? 1 : 0;
    }
    return found;
}

static const char tasks_head[] =
    "# channel frame kind ival1_us ival2_us sent starts updates left_out skipped state period_us\n";

// The frame and the intervals are new, the running period is not cut.
static void update_without_restart(void) {
    char text[4096];
    size_t count;
    int fd;
    can_begin(2);
    fd = can_bcm_socket(0);
    CHECK(put(fd, task(TX_SETUP, SETTIMER | STARTTIMER, 0, 1000000 - CYCLE_US, "123#AA")) == 72);
    CHECK(can_wait_trace(lines, 4096, 1) == 1);
    usleep(300000);
    CHECK(put(fd, task(TX_SETUP, SETTIMER, 5000, 50000 - CYCLE_US, "123#BB")) == 72);
    usleep(300000);
    CHECK(can_trace(lines, 4096) == 1);
    count = can_wait_trace(lines, 4096, 5);
    CHECK(count >= 5 && count_of("123#AA", count) == 1);
    CHECK(lines[1].queued_ns - lines[0].queued_ns > 950000000);
    CHECK(lines[1].queued_ns - lines[0].queued_ns < 1200000000);
    CHECK(mean_period_us(1, 5) > 40000 && mean_period_us(1, 5) < 60000);
    control_read("can/tasks", text, sizeof text);
    CHECK(strncmp(text, tasks_head, strlen(tasks_head)) == 0);
    CHECK(strstr(text, "\ncan0 123#BB classic 5000 49980 ") != NULL);
    CHECK(strstr(text, " 1 1 0 0 running ") != NULL);
    // STARTTIMER begins anew, with ival1.
    CHECK(put(fd, task(TX_SETUP, SETTIMER | STARTTIMER, 2000000, 1000, "123#CC")) == 72);
    usleep(200000);
    CHECK(count_of("123#CC", can_trace(lines, 4096)) == 0);
    close(fd);
    can_end();
}

static void without_start(void) {
    int fd;
    can_begin(2);
    fd = can_bcm_socket(0);
    CHECK(put(fd, task(TX_SETUP, SETTIMER, 1000, 1000, "123#")) == 72);
    usleep(50000);
    CHECK(can_trace(lines, 4096) == 0);
    CHECK(put(fd, task(TX_SETUP, STARTTIMER, 0, 0, "123#")) == 72);
    CHECK(can_wait_trace(lines, 4096, 3) >= 3);
    // Both intervals 0 stop it.
    CHECK(put(fd, task(TX_SETUP, SETTIMER, 0, 0, "123#")) == 72);
    usleep(20000);
    CHECK(control_write("can/trace", "clear") == 0);
    usleep(50000);
    CHECK(can_trace(lines, 4096) == 0);
    close(fd);
    can_end();
}

// A task is known by its id with the flags, and by its kind.
static void deletion(void) {
    char text[4096];
    int fd;
    can_begin(2);
    fd = can_bcm_socket(0);
    CHECK(put(fd, task(TX_DELETE, 0, 0, 0, "123#")) == -EINVAL);
    CHECK(put(fd, task(TX_SETUP, SETTIMER | STARTTIMER, 0, 1000000, "123#")) == 72);
    CHECK(put(fd, task(TX_SETUP, SETTIMER | STARTTIMER, 0, 1000000, "123#R")) == 72);
    CHECK(put(fd, task(TX_SETUP, SETTIMER | STARTTIMER, 0, 1000000, "123##1")) == 128);
    CHECK(put(fd, task(TX_SETUP, SETTIMER | STARTTIMER, 0, 1000000, "00000123#")) == 72);
    CHECK(put(fd, task(TX_DELETE, 0, 0, 0, "124#")) == -EINVAL);
    CHECK(put(fd, task(TX_DELETE, 0, 0, 0, "123#")) == 56);
    CHECK(put(fd, task(TX_DELETE, 0, 0, 0, "123#")) == -EINVAL);
    control_read("can/tasks", text, sizeof text);
    CHECK(!strstr(text, " 123# ") && strstr(text, " 123#R ") && strstr(text, " 00000123# "));
    CHECK(put(fd, task(TX_DELETE, 0, 0, 0, "123##1")) == 56);
    control_read("can/tasks", text, sizeof text);
    CHECK(!strstr(text, "##"));
    close(fd);
    control_read("can/tasks", text, sizeof text);
    CHECK(!strstr(text, "can0"));
    CHECK(can_wait_trace(lines, 4096, 4) == 4);
    can_end();
}

static void closing(void) {
    int first;
    int second;
    can_begin(2);
    first = can_bcm_socket(0);
    second = can_bcm_socket(0);
    CHECK(put(first, task(TX_SETUP, SETTIMER | STARTTIMER, 0, 1000, "111#")) == 72);
    CHECK(put(second, task(TX_SETUP, SETTIMER | STARTTIMER, 0, 1000, "222#")) == 72);
    usleep(20000);
    close(first);
    // What the driver had by then goes out still.
    usleep(100000);
    CHECK(control_write("can/trace", "clear") == 0);
    CHECK(can_wait_trace(lines, 4096, 20) >= 20);
    CHECK(count_of("111#", can_trace(lines, 4096)) == 0);
    close(second);
    can_end();
}

static void several_frames(void) {
    message what = task(TX_SETUP, SETTIMER | STARTTIMER | TX_CP_CAN_ID, 5000, 0, "123#01");
    size_t count;
    int fd;
    can_begin(2);
    fd = can_bcm_socket(0);
    // Frames of 16 bytes each, one behind the other; with a count, the first goes at once.
    what.head.nframes = 3;
    what.head.count = 5;
    memcpy((char*)what.frames + CAN_MTU, what.frames, CAN_MTU);
    memcpy((char*)what.frames + 2 * CAN_MTU, what.frames, CAN_MTU);
    ((struct can_frame*)what.frames)[1].data[0] = 2;
    ((struct can_frame*)what.frames)[2].data[0] = 3;
    ((struct can_frame*)what.frames)[2].can_id = 0x7FF;
    CHECK(put_size(fd, &what, sizeof what.head + 3 * CAN_MTU) == 56 + 48);
    count = can_wait_trace(lines, 4096, 5);
    usleep(50000);
    CHECK(count == 5 && can_trace(lines, 4096) == 5);
    for (size_t i = 0; i < count; i++) {
        static const char* const expected[] = {"123#01", "123#02", "123#03"};
        CHECK(strcmp(lines[i].frame, expected[i % 3]) == 0);
    }
    what.head.nframes = 4;
    CHECK(put_size(fd, &what, sizeof what.head + 4 * CAN_MTU) == -E2BIG);
    close(fd);
    can_end();
}

static void single_frame(void) {
    int fd;
    can_begin(2);
    fd = can_bcm_socket(0);
    CHECK(put(fd, task(TX_SEND, 0, 0, 0, "123#01")) == 72);
    CHECK(put(fd, task(TX_SEND, 0, 0, 0, "123##102")) == 128);
    CHECK(can_wait_trace(lines, 4096, 2) == 2 && strcmp(lines[1].frame, "123##102") == 0);
    close(fd);
    can_end();
}

static void refusals(void) {
    struct sockaddr_can name = {.can_family = AF_CAN};
    message good = task(TX_SETUP, SETTIMER | STARTTIMER, 0, 1000000, "123#");
    message bad;
    int fd;
    int loose = socket(AF_CAN, SOCK_DGRAM | SOCK_CLOEXEC, CAN_BCM);
    can_begin(2);
    fd = can_bcm_socket(0);
    CHECK(put(loose, good) == -ENOTCONN);
    name.can_ifindex = (int)if_nametoindex("lo");
    CHECK(connect(loose, (struct sockaddr*)&name, sizeof name) == -1 && errno == ENODEV);
    CHECK(connect(loose, (struct sockaddr*)&name, 4) == -1 && errno == EINVAL);
    name.can_ifindex = 0;
    CHECK(connect(loose, (struct sockaddr*)&name, sizeof name) == 0);
    CHECK(put(loose, good) == -ENODEV);
    CHECK(connect(loose, (struct sockaddr*)&name, sizeof name) == -1 && errno == EISCONN);
    close(loose);

    for (size_t size = 0; size < sizeof good.head; size++) {
        CHECK(put_size(fd, &good, size) == -EINVAL);
    }
    CHECK(put_size(fd, &good, 71) == -EINVAL && put_size(fd, &good, 73) == -EINVAL);
    CHECK(put_size(fd, &good, 56) < 0);
    bad = task(TX_SETUP, SETTIMER | STARTTIMER, 0, 1000000, "123#");
    bad.frames[0].len = 9;
    CHECK(put(fd, bad) == -EINVAL);
    bad = task(TX_SETUP, SETTIMER | STARTTIMER, 0, 1000000, "123##1");
    bad.frames[0].len = 65;
    CHECK(put(fd, bad) == -EINVAL);
    bad = good;
    bad.head.nframes = 0;
    CHECK(put(fd, bad) == -EINVAL);
    bad.head.nframes = 257;
    CHECK(put_size(fd, &bad, 56 + 257 * CAN_MTU) == -EINVAL);
    bad = good;
    bad.head.ival2.tv_usec = 1000000;
    CHECK(put(fd, bad) == -EINVAL);
    bad.head.ival2.tv_usec = -1;
    CHECK(put(fd, bad) == -EINVAL);
    for (uint32_t opcode = 0; opcode < 20; opcode++) {
        bad = good;
        bad.head.opcode = opcode;
        CHECK(opcode == TX_SETUP || opcode == TX_SEND || put(fd, bad) == -EINVAL);
    }
    usleep(20000);
    CHECK(can_trace(lines, 4096) == 0);

    CHECK(control_write("can/bcm_refuse", "105") == 0);
    CHECK(put(fd, good) == -ENOBUFS && put(fd, task(TX_DELETE, 0, 0, 0, "123#")) == -ENOBUFS);
    CHECK(control_write("can/bcm_refuse", "0") == EINVAL);
    CHECK(control_write("can/bcm_refuse", "off") == 0 && put(fd, good) == 72);
    close(fd);
    can_end();
}

// The application sets these on both of its sockets and does not look at the result.
static void options_of_raw_sockets(void) {
    int fd = can_bcm_socket(0);
    int value = 1;
    CHECK(setsockopt(fd, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &value, sizeof value) == -1);
    CHECK(setsockopt(fd, SOL_CAN_RAW, CAN_RAW_LOOPBACK, &value, sizeof value) == -1);
    CHECK(setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &value, sizeof value) == 0);
    CHECK(read(fd, &value, sizeof value) == -1);
    close(fd);
}

static void interface_down_and_up(void) {
    int error = 0;
    socklen_t size = sizeof error;
    char text[4096];
    int fd;
    can_begin(2);
    fd = can_bcm_socket(0);
    CHECK(put(fd, task(TX_SETUP, SETTIMER | STARTTIMER, 0, 2000, "123#")) == 72);
    CHECK(can_wait_trace(lines, 4096, 3) >= 3);
    CHECK(can_set_link(0, false) == 0);
    CHECK(getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == ENETDOWN);
    CHECK(control_write("can/trace", "clear") == 0);
    usleep(50000);
    CHECK(can_trace(lines, 4096) == 0);
    control_read("can/tasks", text, sizeof text);
    CHECK(strstr(text, "can0 123# classic 0 2000 ") && strstr(text, " running "));
    CHECK(can_set_link(0, true) == 0);
    CHECK(can_wait_trace(lines, 4096, 3) >= 3);
    close(fd);
    can_end();
}

void can_bcm_tests(void) {
    run_test("bcm_first_frame_goes_after_ival1_and_then_one_each_ival2", first_after_ival1);
    run_test("bcm_first_frame_goes_at_once_for_an_ival1_of_0", first_at_once);
    run_test("bcm_periods_come_out_with_the_timer_cycle", timer_cycle);
    run_test("bcm_long_periods_come_out_with_the_timer_cycle", timer_cycle_of_long_periods);
    run_test("bcm_update_does_not_restart_the_timer", update_without_restart);
    run_test("bcm_task_without_start_waits", without_start);
    run_test("bcm_tasks_are_deleted_by_id_and_kind", deletion);
    run_test("bcm_tasks_end_with_their_socket", closing);
    run_test("bcm_frames_of_a_task_take_turns", several_frames);
    run_test("bcm_sends_a_single_frame", single_frame);
    run_test("bcm_refuses_what_is_wrong", refusals);
    run_test("bcm_has_no_options_and_nothing_to_read", options_of_raw_sockets);
    run_test("bcm_task_goes_on_when_the_interface_was_down", interface_down_and_up);
}
