// The application's end of the USB link: mappings, readability, injected
// conditions, attaching.
#define _GNU_SOURCE
#include "check.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

static bool is_mapped(int fd, size_t length, off_t offset, int flags) {
    void* memory = mmap(NULL, length, PROT_READ | PROT_WRITE, flags, fd, offset);
    if (memory == MAP_FAILED) {
        return false;
    }
    munmap(memory, length);
    return true;
}

static void regions(void) {
    int fd = open_or_die("/dev/usb-zeph", O_RDWR);
    CHECK(is_mapped(fd, 4096, 0, MAP_SHARED));
    CHECK(is_mapped(fd, READ_SIZE, 4096, MAP_SHARED));
    CHECK(is_mapped(fd, WRITE_SIZE, 8192, MAP_SHARED));
    CHECK(is_mapped(fd, LENGTH_SIZE, 12288, MAP_SHARED));
    CHECK(!is_mapped(fd, 8192, 0, MAP_SHARED));
    CHECK(!is_mapped(fd, READ_SIZE - 4096, 4096, MAP_SHARED));
    CHECK(!is_mapped(fd, READ_SIZE, 8192, MAP_SHARED));
    CHECK(!is_mapped(fd, 4096, 16384, MAP_SHARED));
    CHECK(!is_mapped(fd, 4096, 0, MAP_PRIVATE));
    close(fd);
}

static void several_openers_share(void) {
    int other;
    struct info* info;
    app_open();
    other = open_or_die("/dev/usb-zeph", O_RDWR | O_NONBLOCK);
    info = mmap(NULL, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, other, 0);
    CHECK(info != MAP_FAILED);
    app.info->write_in = 77;
    CHECK(info->write_in == 77);
    munmap(info, 4096);
    close(other);
    app_close();
}

static void other_commands(void) {
    int fd = open_or_die("/dev/usb-zeph", O_RDWR);
    CHECK(ioctl(fd, 0x7606) == -1 && errno == ENOTTY);
    close(fd);
}

static void readable_while_not_empty(void) {
    int host = open_or_die("/dev/usb-zeph-host", O_RDWR);
    int epoll_fd;
    app_open();
    epoll_fd = epoll_on(app.fd, EPOLLIN);
    CHECK(epoll_events(epoll_fd, 0) == 0);
    CHECK(write(host, "abc", 3) == 3);
    for (int i = 0; i < 3; i++) {
        CHECK(epoll_events(epoll_fd, 1000) == EPOLLIN);
    }
    app.info->read_out = 2;
    CHECK(epoll_events(epoll_fd, 0) == EPOLLIN);
    app.info->read_out = 3;
    CHECK(epoll_events(epoll_fd, 0) == 0);
    close(epoll_fd);
    app_close();
    close(host);
}

static void readable_past_the_end(void) {
    int host = open_or_die("/dev/usb-zeph-host", O_RDWR);
    uint8_t bytes[16] = {0};
    app_open();
    CHECK(write(host, bytes, 3) == 3);
    app.info->read_out = 12;
    CHECK(poll_events(app.fd, POLLIN, 0) == POLLIN);
    CHECK(write(host, bytes, 9) == 9);
    CHECK(poll_events(app.fd, POLLIN, 0) == 0);
    CHECK(write(host, bytes, 1) == 1);
    CHECK(poll_events(app.fd, POLLIN, 0) == POLLIN);
    app_close();
    close(host);
}

static void fill_level_across_the_index_wrap(void) {
    int host = open_or_die("/dev/usb-zeph-host", O_RDWR);
    uint8_t bytes[32];
    for (uint8_t i = 0; i < sizeof bytes; i++) {
        bytes[i] = (uint8_t)(0x40 + i);
    }
    app_open();
    CHECK(control_write("usb/indices", "read_in=0xFFFFFFF0 read_out=0xFFFFFFF0") == 0);
    CHECK(poll_events(app.fd, POLLIN, 0) == 0);
    CHECK(write(host, bytes, sizeof bytes) == sizeof bytes);
    CHECK(app.info->read_in == 16);
    CHECK(poll_events(app.fd, POLLIN, 0) == POLLIN);
    CHECK(memcmp(app.read + READ_SIZE - 16, bytes, 16) == 0);
    CHECK(memcmp(app.read, bytes + 16, 16) == 0);
    app_close();
    close(host);
}

static void one_report(const char* control, uint32_t event) {
    int epoll_fd;
    app_open();
    epoll_fd = epoll_on(app.fd, EPOLLIN);
    CHECK(control_write(control, "1") == 0);
    CHECK(epoll_events(epoll_fd, 1000) == event);
    CHECK(epoll_events(epoll_fd, 50) == 0);
    CHECK(control_write(control, "2") == EINVAL);
    CHECK(epoll_events(epoll_fd, 0) == 0);
    close(epoll_fd);
    app_close();
}

static void hangup_once(void) {
    one_report("usb/hangup", EPOLLHUP);
}
static void error_once(void) {
    one_report("usb/error", EPOLLERR);
}

static void detach_and_attach(void) {
    int host = open_or_die("/dev/usb-zeph-host", O_RDWR);
    app_open();
    CHECK(write(host, "abcd", 4) == 4);
    CHECK(control_write("usb/attached", "0") == 0);
    CHECK(access("/dev/usb-zeph", F_OK) == -1);
    CHECK(control_write("usb/attached", "0") == 0);
    CHECK(memcmp(app.read, "abcd", 4) == 0);
    CHECK(poll_events(app.fd, POLLIN, 0) == POLLIN);
    app_close();
    CHECK(control_write("usb/attached", "1") == 0);
    CHECK(access("/dev/usb-zeph", F_OK) == 0);
    CHECK(control_value("usb/indices", "read_in") == 4);
    close(host);
}

static void controls_refuse_rubbish(void) {
    char overlong[300];
    memset(overlong, 'x', sizeof overlong);
    overlong[sizeof overlong - 1] = '\0';
    CHECK(control_write("usb/indices", "read_in") == EINVAL);
    CHECK(control_write("usb/indices", "nothing=1") == EINVAL);
    CHECK(control_write("usb/indices", "read_in=0x100000000") != 0);
    CHECK(control_write("usb/indices", overlong) == EMSGSIZE);
    CHECK(control_write("usb/attached", "maybe") == EINVAL);
}

void usb_tests(void) {
    run_test("usb_maps_each_region_at_its_length_and_nothing_else", regions);
    run_test("usb_openers_share_the_rings", several_openers_share);
    run_test("usb_knows_no_command_but_the_doorbell", other_commands);
    run_test("usb_is_readable_while_the_read_ring_is_not_empty", readable_while_not_empty);
    run_test("usb_is_readable_while_the_reader_is_past_the_end", readable_past_the_end);
    run_test("usb_bytes_and_indices_wrap", fill_level_across_the_index_wrap);
    run_test("usb_hangup_is_reported_once", hangup_once);
    run_test("usb_error_is_reported_once", error_once);
    run_test("usb_detach_hides_the_device_and_keeps_mappings", detach_and_attach);
    run_test("usb_controls_refuse_rubbish", controls_refuse_rubbish);
}
