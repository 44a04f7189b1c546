// Registers, GPIO chips and the sync line's watchman.
#define _GNU_SOURCE
#include "check.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/gpio.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

// --- registers

static volatile uint32_t* map_block(off_t address) {
    int fd = open_or_die("/dev/mem", O_RDWR | O_SYNC);
    void* block = mmap(NULL, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, address);
    close(fd);
    CHECK(block != MAP_FAILED);
    return block == MAP_FAILED ? NULL : block;
}

static uint64_t read_counter(const volatile uint32_t* block) {
    uint64_t low = block[0x24 / 4];
    uint64_t high = block[0x28 / 4];
    return high << 32 | low;
}

static void counter_rate(void) {
    const volatile uint32_t* block = map_block(0x81000000);
    uint64_t ticks;
    uint64_t last;
    uint64_t step = 0;
    double seconds = now_s();
    if (!block) {
        return;
    }
    ticks = last = read_counter(block);
    while (now_s() - seconds < 2.0) {
        uint64_t now = read_counter(block);
        CHECK(now >= last);
        step = now - last > step ? now - last : step;
        last = now;
    }
    seconds = now_s() - seconds;
    ticks = read_counter(block) - ticks;
    printf("# counter: %.0f ticks a second, largest step %.1f us\n", (double)ticks / seconds,
           (double)step / 100);
    CHECK((double)ticks / seconds > 99e6 && (double)ticks / seconds < 101e6);
    munmap((void*)(uintptr_t)block, 4096);
}

static void counter_frozen(void) {
    const volatile uint32_t* block = map_block(0x81000000);
    char text[64];
    if (!block) {
        return;
    }
    CHECK(control_write("regs/counter", "freeze ffffffff") == 0);
    CHECK(block[0x24 / 4] == 0xFFFFFFFF && block[0x28 / 4] == 0);
    usleep(20000);
    CHECK(read_counter(block) == 0xFFFFFFFF);
    control_read("regs/counter", text, sizeof text);
    CHECK(strcmp(text, "frozen 0x00000000ffffffff\n") == 0);
    CHECK(control_write("regs/counter", "run") == 0);
    usleep(20000);
    CHECK(read_counter(block) > 0x100000000 && read_counter(block) < 0x110000000);
    CHECK(control_write("regs/counter", "run 500000000") == 0);
    CHECK(read_counter(block) >= 0x500000000 && read_counter(block) < 0x510000000);
    CHECK(control_write("regs/counter", "walk") == EINVAL);
    CHECK(control_write("regs/counter", "freeze xyz") == EINVAL);
    munmap((void*)(uintptr_t)block, 4096);
}

static void registers_keep(off_t address) {
    volatile uint32_t* block = map_block(address);
    volatile uint32_t* again;
    if (!block) {
        return;
    }
    block[0xFFC / 4] = 0x12345678;
    again = map_block(address);
    CHECK(again && again[0xFFC / 4] == 0x12345678);
    block[0xFFC / 4] = 0;
    munmap((void*)(uintptr_t)block, 4096);
    munmap((void*)(uintptr_t)again, 4096);
}

static void registers(void) {
    registers_keep(0x80000000);
    registers_keep(0x81000000);
    registers_keep(0x82000000);
    registers_keep(0x88000000);
}

void register_tests(void) {
    run_test("counter_runs_at_100_mhz_and_never_back", counter_rate);
    run_test("counter_can_be_frozen_and_set", counter_frozen);
    run_test("registers_keep_what_is_written", registers);
}

// --- GPIO

// Requests one line of gpiochip1, as libgpiod does; the descriptor ends the request.
static int request_line(uint32_t line, uint32_t flags, uint8_t level) {
    struct gpiohandle_request request = {.flags = flags, .lines = 1};
    int chip = open_or_die("/dev/gpiochip1", O_RDWR);
    request.lineoffsets[0] = line;
    request.default_values[0] = level;
    snprintf(request.consumer_label, sizeof request.consumer_label, "selftest");
    CHECK(ioctl(chip, GPIO_GET_LINEHANDLE_IOCTL, &request) == 0);
    close(chip);
    return request.fd;
}

static void set_line(int fd, uint8_t level) {
    struct gpiohandle_data data = {.values = {level}};
    CHECK(ioctl(fd, GPIOHANDLE_SET_LINE_VALUES_IOCTL, &data) == 0);
}

static int get_line(uint32_t line) {
    struct gpiohandle_data data = {0};
    int fd = request_line(line, GPIOHANDLE_REQUEST_INPUT, 0);
    CHECK(ioctl(fd, GPIOHANDLE_GET_LINE_VALUES_IOCTL, &data) == 0);
    close(fd);
    return data.values[0];
}

static bool line_is(int line, const char* state) {
    char text[4096];
    char expected[64];
    control_read("gpio/chip1/lines", text, sizeof text);
    snprintf(expected, sizeof expected, "\n%d %s\n", line, state);
    return strstr(text, expected) != NULL;
}

static void chips(void) {
    struct gpiochip_info info;
    int chip = open_or_die("/dev/gpiochip1", O_RDWR);
    CHECK(ioctl(chip, GPIO_GET_CHIPINFO_IOCTL, &info) == 0);
    CHECK(strcmp(info.name, "gpiochip1") == 0 && strcmp(info.label, "vboard") == 0 &&
          info.lines == 64);
    CHECK(access("/dev/gpiochip0", F_OK) == 0 && access("/dev/gpiochip2", F_OK) == -1);
    close(chip);
}

static void outputs_keep_their_level(void) {
    int fd = request_line(61, GPIOHANDLE_REQUEST_OUTPUT, 0);
    CHECK(line_is(61, "out 0"));
    set_line(fd, 1);
    CHECK(line_is(61, "out 1"));
    close(fd);
    CHECK(line_is(61, "out 1"));
}

static void settings_in_order(void) {
    char text[4096];
    int first;
    int second;
    CHECK(control_write("gpio/chip1/log", "clear") == 0);
    first = request_line(60, GPIOHANDLE_REQUEST_OUTPUT, 0);
    set_line(first, 1);
    second = request_line(59, GPIOHANDLE_REQUEST_OUTPUT, 1);
    set_line(second, 0);
    set_line(first, 0);
    close(first);
    close(second);
    control_read("gpio/chip1/log", text, sizeof text);
    CHECK(strcmp(text, "60 0\n60 1\n59 1\n59 0\n60 0\n") == 0);
    CHECK(control_write("gpio/chip1/log", "clear") == 0);
    control_read("gpio/chip1/log", text, sizeof text);
    CHECK(text[0] == '\0');
}

static void inputs_from_outside(void) {
    CHECK(get_line(58) == 0);
    CHECK(control_write("gpio/chip1/lines", "58 1") == 0);
    CHECK(get_line(58) == 1);
    CHECK(line_is(58, "in 1"));
    CHECK(control_write("gpio/chip1/lines", "58 0") == 0);
    CHECK(get_line(58) == 0);
    CHECK(control_write("gpio/chip1/lines", "64 0") == EINVAL);
    CHECK(control_write("gpio/chip1/lines", "1 2") == EINVAL);
    CHECK(control_write("gpio/chip1/lines", "1 1 1") == EINVAL);
}

void gpio_tests(void) {
    run_test("gpio_has_two_chips_of_64_lines", chips);
    run_test("gpio_output_keeps_its_level_after_release", outputs_keep_their_level);
    run_test("gpio_settings_are_logged_in_order", settings_in_order);
    run_test("gpio_input_shows_what_drives_it", inputs_from_outside);
}

// --- the sync line

static void drop_once_by_epoll(void) {
    int fd = open_or_die("/dev/time_sync_error", O_RDWR);
    int epoll_fd = epoll_on(fd, EPOLLIN);
    CHECK(epoll_events(epoll_fd, 0) == 0);
    for (int i = 0; i < 3; i++) {
        CHECK(control_write("sync/drop", "1") == 0);
        CHECK(epoll_events(epoll_fd, 1000) == EPOLLIN);
        CHECK(epoll_events(epoll_fd, 50) == 0);
    }
    close(epoll_fd);
    close(fd);
}

static void drop_before_registration(void) {
    int fd = open_or_die("/dev/time_sync_error", O_RDWR);
    int epoll_fd;
    CHECK(control_write("sync/drop", "1") == 0);
    epoll_fd = epoll_on(fd, EPOLLIN);
    CHECK(epoll_events(epoll_fd, 0) == EPOLLIN);
    CHECK(epoll_events(epoll_fd, 50) == 0);
    close(epoll_fd);
    close(fd);
}

static void drop_once_by_poll(void) {
    int fd = open_or_die("/dev/time_sync_error", O_RDWR);
    for (int i = 0; i < 3; i++) {
        CHECK(control_write("sync/drop", "1") == 0);
        CHECK(poll_events(fd, POLLIN, 1000) == POLLIN);
        CHECK(poll_events(fd, POLLIN, 50) == 0);
        CHECK(poll_events(fd, POLLIN, 0) == 0);
    }
    close(fd);
}

static void drop_for_each_opener(void) {
    int first = open_or_die("/dev/time_sync_error", O_RDWR);
    int second = open_or_die("/dev/time_sync_error", O_RDWR);
    int third;
    CHECK(control_write("sync/drop", "1") == 0);
    third = open_or_die("/dev/time_sync_error", O_RDWR);
    CHECK(poll_events(first, POLLIN, 0) == POLLIN);
    CHECK(poll_events(first, POLLIN, 0) == 0);
    CHECK(poll_events(second, POLLIN, 0) == POLLIN);
    CHECK(poll_events(third, POLLIN, 0) == 0);
    close(third);
    close(second);
    close(first);
}

static void drop_for_nobody(void) {
    int fd;
    CHECK(control_write("sync/drop", "1") == ENODEV);
    fd = open_or_die("/dev/time_sync_error", O_RDWR);
    CHECK(poll_events(fd, POLLIN, 0) == 0);
    CHECK(control_write("sync/drop", "0") == EINVAL);
    close(fd);
}

void sync_tests(void) {
    run_test("sync_drop_is_reported_once_by_epoll", drop_once_by_epoll);
    run_test("sync_drop_before_the_registration_is_reported_once", drop_before_registration);
    run_test("sync_drop_is_reported_once_by_poll", drop_once_by_poll);
    run_test("sync_drop_is_reported_to_each_open_file", drop_for_each_opener);
    run_test("sync_drop_is_lost_while_nobody_listens", drop_for_nobody);
}
