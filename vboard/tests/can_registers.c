// The CAN channels' registers, timing and net devices.
#define _GNU_SOURCE
#include "can.h"
#include "check.h"

#include <errno.h>
#include <net/if.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

enum {
    CONTROL = 0x00,
    MODE = 0x04,
    NOMINAL_BRP = 0x08,
    NOMINAL_TIMING = 0x0C,
    ERRORS = 0x10,
    STATUS = 0x18,
    DATA_BRP = 0x88,
    DATA_TIMING = 0x8C,
    RECEIVE = 0x2100,
    RESET = 1,
    ENABLE = 2,
    LISTEN = 4,
    CONFIG = 1,
};

// Whether a register's masked value is as wanted within 200 ms.
static bool becomes(volatile uint32_t* reg, uint32_t mask, uint32_t value) {
    for (int i = 0; i < 200; i++) {
        if ((*reg & mask) == value) {
            return true;
        }
        usleep(1000);
    }
    return false;
}

// As the application resets a core; returns the tries, above 100 for a failure.
static int reset_core(int channel) {
    volatile uint32_t* control = can_register(channel, CONTROL);
    volatile uint32_t* status = can_register(channel, STATUS);
    int tries = 0;
    *control &= ~(uint32_t)ENABLE;
    *control |= RESET;
    while (!(*status & CONFIG) && tries <= 100) {
        usleep(100);
        tries++;
    }
    return tries;
}

static void reset_in_time(void) {
    int most = 0;
    can_begin(1);
    for (int i = 0; i < 200; i++) {
        int tries;
        *can_register(0, NOMINAL_TIMING) = 0x0F0F3E;
        *can_register(0, CONTROL) |= ENABLE;
        CHECK(becomes(can_register(0, STATUS), CONFIG, 0));
        tries = reset_core(0);
        most = tries > most ? tries : most;
    }
    printf("# reset: at most %d tries of 100 us\n", most);
    CHECK(most <= 100);
    can_end();
}

static void reset_wipes(void) {
    can_begin(1);
    *can_register(0, MODE) |= LISTEN;
    *can_register(0, 0x20) = 0x20F52;
    CHECK(control_write("can/errors", "0 40 7") == 0);
    CHECK(control_write("can/waiting", "0 12345678") == 0);
    CHECK(becomes(can_register(0, ERRORS), 0xFFFF, 0x0728));
    CHECK(reset_core(0) <= 100);
    CHECK(*can_register(0, CONTROL) == 0);
    CHECK(*can_register(0, MODE) == 0);
    CHECK(*can_register(0, 0x20) == 0);
    CHECK(*can_register(0, NOMINAL_TIMING) == 0 && *can_register(0, DATA_TIMING) == 0);
    CHECK(*can_register(0, RECEIVE) == 0);
    CHECK(becomes(can_register(0, ERRORS), 0xFFFF, 0));
    CHECK(can_state_gets(0, "bitrate=0") && can_state_has(0, "mode=config"));
    CHECK(can_state_has(0, "tec=0") && can_state_has(0, "rec=0"));
    can_end();
}

// The application writes at once behind such a reset: nothing of that may be lost.
static void reset_of_idle_core(void) {
    can_begin(0);
    CHECK(can_write_timing(0, &fast_timing, sizeof fast_timing) == 0);
    CHECK(control_write("can/waiting", "0 1") == 0);
    for (int i = 0; i < 100; i++) {
        CHECK(becomes(can_register(0, STATUS), CONFIG, CONFIG));
        *can_register(0, MODE) = 0;
        CHECK(reset_core(0) == 0);
        *can_register(0, NOMINAL_TIMING) = 0x0F0F3E;
        *can_register(0, MODE) |= LISTEN;
        CHECK(becomes(can_register(0, CONTROL), RESET, 0));
        usleep(500);
        CHECK(*can_register(0, NOMINAL_TIMING) == 0x0F0F3E && *can_register(0, MODE) == LISTEN);
    }
    CHECK(*can_register(0, RECEIVE) == 0);
    can_end();
}

static void configuration_mode(void) {
    can_begin(1);
    CHECK(*can_register(0, CONTROL) == ENABLE);
    CHECK(becomes(can_register(0, STATUS), CONFIG, 0));
    CHECK(can_state_has(0, "mode=normal"));
    *can_register(0, CONTROL) = 0;
    CHECK(becomes(can_register(0, STATUS), CONFIG, CONFIG));
    CHECK(can_state_gets(0, "mode=config"));
    *can_register(0, CONTROL) = ENABLE;
    CHECK(becomes(can_register(0, STATUS), CONFIG, 0));
    CHECK(can_set_link(0, false) == 0);
    CHECK(*can_register(0, CONTROL) == 0);
    can_end();
}

static void timing_in_registers(void) {
    static const can_timing timing = {{3, 20, 40, 10, 2, 3, 12, 5}};
    can_begin(0);
    *can_register(4, DATA_BRP) = 0x00011F00;
    CHECK(can_write_timing(4, &timing, sizeof timing) == 0);
    CHECK(*can_register(4, NOMINAL_BRP) == 2);
    CHECK(*can_register(4, NOMINAL_TIMING) == (39 | 9 << 8 | 19 << 16));
    // The secondary sample point in the same register stays.
    CHECK(*can_register(4, DATA_BRP) == (1 | 0x00011F00));
    CHECK(*can_register(4, DATA_TIMING) == (11 | 4 << 8 | 2 << 16));
    // 40 MHz / (3 * 51) and 40 MHz / (2 * 18), rounded down from whole nanoseconds a bit.
    CHECK(can_state_has(4, "bitrate=261437"));
    CHECK(can_state_has(4, "dbitrate=1111111"));
    *can_register(4, NOMINAL_BRP) = 0;
    CHECK(can_state_gets(4, "bitrate=784313"));
    can_end();
}

static int write_changed(size_t which, int32_t value) {
    can_timing timing = fast_timing;
    timing.value[which] = value;
    return can_write_timing(5, &timing, sizeof timing);
}

static void bad_timing(void) {
    static const char bytes[40];
    can_begin(0);
    CHECK(can_write_timing(5, bytes, 31) == EINVAL);
    CHECK(can_write_timing(5, bytes, 33) == EINVAL);
    CHECK(can_write_timing(5, bytes, 0) == EINVAL && can_write_timing(5, bytes, 32) == EINVAL);
    for (size_t which = 0; which < 4; which++) {
        CHECK(write_changed(which, 0) == EINVAL);
        CHECK(write_changed(which, -1) == EINVAL);
        CHECK(write_changed(which, INT32_MIN) == EINVAL);
        CHECK(write_changed(which, 257) == EINVAL);
    }
    CHECK(can_state_has(5, "bitrate=0"));
    // The data part of a classic channel is whatever its record held before.
    for (size_t which = 4; which < 8; which++) {
        CHECK(write_changed(which, -1234567) == 0);
        CHECK(can_state_has(5, "bitrate=500000") && can_state_has(5, "dbitrate=0"));
        CHECK(write_changed(which, 1) == 0 && !can_state_has(5, "dbitrate=0"));
    }
    can_end();
}

static void error_counters(void) {
    can_begin(1);
    CHECK(control_write("can/errors", "0 127 3") == 0);
    CHECK(becomes(can_register(0, ERRORS), 0xFFFF, 0x037F));
    CHECK(becomes(can_register(0, STATUS), 0x180, 0));
    CHECK(can_state_has(0, "state=error-warning"));
    CHECK(control_write("can/errors", "0 3 128") == 0);
    CHECK(becomes(can_register(0, STATUS), 0x180, 1 << 7));
    CHECK(can_state_has(0, "state=error-passive"));
    CHECK(control_write("can/errors", "0 256 0") == 0);
    CHECK(becomes(can_register(0, STATUS), 0x180, 2 << 7));
    CHECK(can_state_has(0, "state=bus-off"));
    CHECK(becomes(can_shared_register(0), 1, 0));
    CHECK(can_set_link(0, false) == 0 && can_set_link(0, true) == 0);
    CHECK(can_state_has(0, "state=error-active") && can_state_has(0, "tec=0"));
    CHECK(becomes(can_register(0, STATUS), 0x180, 0));
    CHECK(control_write("can/errors", "0 257 0") == EINVAL);
    CHECK(control_write("can/errors", "6 1 1") == EINVAL);
    CHECK(control_write("can/errors", "1 1 1") == ENETDOWN);
    can_end();
}

static void shared_block(void) {
    can_begin(3);
    CHECK(becomes(can_shared_register(0), 0x3F, 0x07));
    *can_register(1, CONTROL) &= ~(uint32_t)ENABLE;
    CHECK(becomes(can_shared_register(0), 0x3F, 0x05));
    *can_shared_register(4) = 1 << 2 | 1 << (5 + 6);
    CHECK(can_state_has(2, "termination=1") && can_state_has(5, "termination=2"));
    CHECK(can_state_has(0, "termination=0"));
    *can_shared_register(4) = 0;
    can_end();
    CHECK(becomes(can_shared_register(0), 0x3F, 0));
}

static void waiting_word(void) {
    can_begin(0);
    CHECK(*can_register(3, RECEIVE) == 0);
    CHECK(control_write("can/waiting", "3 48C0FFEE") == 0);
    CHECK(*can_register(3, RECEIVE) == 0x48C0FFEE);
    CHECK(control_write("can/waiting", "3 0") == 0 && *can_register(3, RECEIVE) == 0);
    CHECK(control_write("can/waiting", "6 1") == EINVAL);
    CHECK(control_write("can/waiting", "1") == EINVAL);
    can_end();
}

static void up_without_timing(void) {
    const long long noack = can_state_value(0, "noack");
    int fd;
    can_begin(0);
    CHECK(can_set_link(0, true) == 0 && can_state_has(0, "link=up"));
    fd = can_raw_socket(0);
    CHECK(can_send(fd, "123#00") == 0);
    CHECK(can_state_gets(0, "waiting=1") && can_state_value(0, "noack") == noack);
    close(fd);
    can_end();
}

// The control socket of the application: an unbound CAN_BCM socket for ioctls alone.
static void port_devices(void) {
    int fd = socket(AF_CAN, SOCK_DGRAM | SOCK_CLOEXEC, CAN_BCM);
    int mode = 7;
    struct ifreq request = {0};
    can_begin(0);
    snprintf(request.ifr_name, IFNAMSIZ, "ncan2");
    CHECK(ioctl(fd, SIOCGIFINDEX, &request) == 0 &&
          request.ifr_ifindex == (int)if_nametoindex("ncan2"));
    request.ifr_flags = IFF_UP;
    CHECK(ioctl(fd, SIOCSIFFLAGS, &request) == 0 && can_state_has(2, "port=up"));
    request.ifr_data = (void*)&mode;
    CHECK(ioctl(fd, SIOCDEVPRIVATE, &request) == 0 && can_state_has(2, "selfack=7"));
    request.ifr_data = NULL;
    CHECK(ioctl(fd, SIOCDEVPRIVATE, &request) == -1 && errno == EFAULT);
    CHECK(ioctl(fd, SIOCDEVPRIVATE + 1, &request) == -1 && errno == EOPNOTSUPP);
    request.ifr_data = NULL;
    request.ifr_flags = 0;
    CHECK(ioctl(fd, SIOCSIFFLAGS, &request) == 0 && can_state_has(2, "port=down"));
    CHECK(can_state_has(2, "selfack=0"));
    snprintf(request.ifr_name, IFNAMSIZ, "ncan6");
    CHECK(ioctl(fd, SIOCGIFINDEX, &request) == -1 && errno == ENODEV);
    close(fd);
    can_end();
}

void can_register_tests(void) {
    run_test("can_reset_is_done_within_100_tries", reset_in_time);
    run_test("can_reset_wipes_the_core", reset_wipes);
    run_test("can_reset_in_configuration_mode_keeps_what_is_written_behind_it", reset_of_idle_core);
    run_test("can_configuration_mode_follows_the_enable_bit", configuration_mode);
    run_test("can_timing_write_fills_the_registers", timing_in_registers);
    run_test("can_bad_timing_is_refused", bad_timing);
    run_test("can_error_counters_show_in_the_registers", error_counters);
    run_test("can_shared_block_has_status_and_termination", shared_block);
    run_test("can_receive_buffer_word_can_be_set", waiting_word);
    run_test("can_channel_without_timing_is_up_on_no_bus", up_without_timing);
    run_test("can_port_devices_take_their_ioctls", port_devices);
}
