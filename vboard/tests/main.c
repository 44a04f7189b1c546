// The board's stand-ins, tested from where the application and the tests stand.
// Wants the daemon to be down: it takes its place at the USB link.
#define _GNU_SOURCE
#include "can.h"
#include "check.h"
#include "lin.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

static bool test_is_good;
static int failed;
struct app app;

void check_at(bool good, const char* text, const char* file, int line) {
    if (!good) {
        const char* base = strrchr(file, '/');
        printf("# %s:%d: not so: %s\n", base ? base + 1 : file, line, text);
        test_is_good = false;
    }
}

void run_test(const char* name, void (*test)(void)) {
    test_is_good = true;
    test();
    printf("%s %s\n", test_is_good ? "ok" : "not ok", name);
    fflush(stdout);
    failed += test_is_good ? 0 : 1;
}

int failed_tests(void) {
    return failed;
}

static void die(const char* what) {
    printf("# %s: %s\nnot ok the board is usable\n", what, strerror(errno));
    exit(1);
}

static void control_path(char* path, size_t size, const char* name) {
    const char* root = getenv("VBOARD_CONTROL");
    snprintf(path, size, "%s/%s", root ? root : "/sys/kernel/debug/vboard", name);
}

int control_write(const char* path, const char* text) {
    char full[256];
    int fd;
    int result = 0;
    control_path(full, sizeof full, path);
    fd = open_or_die(full, O_WRONLY);
    if (write(fd, text, strlen(text)) < 0) {
        result = errno;
    }
    close(fd);
    return result;
}

void control_read(const char* path, char* text, size_t size) {
    char full[256];
    size_t got;
    FILE* file;
    control_path(full, sizeof full, path);
    file = fopen(full, "re");
    if (!file) {
        die(full);
    }
    got = fread(text, 1, size - 1, file);
    text[got] = '\0';
    fclose(file);
}

long long control_value(const char* path, const char* name) {
    char text[4096];
    const size_t length = strlen(name);
    control_read(path, text, sizeof text);
    for (const char* line = text; line && *line; line = strchr(line, '\n')) {
        line += *line == '\n' ? 1 : 0;
        if (strncmp(line, name, length) == 0 && line[length] == ' ') {
            return atoll(line + length + 1);
        }
    }
    printf("# no value %s in %s\n", name, path);
    exit(1);
}

int open_or_die(const char* path, int flags) {
    int fd = open(path, flags | O_CLOEXEC);
    if (fd < 0) {
        die(path);
    }
    return fd;
}

int epoll_on(int fd, uint32_t events) {
    struct epoll_event event = {.events = events};
    int epoll_fd = epoll_create1(EPOLL_CLOEXEC);
    if (epoll_fd < 0 || epoll_ctl(epoll_fd, EPOLL_CTL_ADD, fd, &event) != 0) {
        die("epoll");
    }
    return epoll_fd;
}

uint32_t epoll_events(int epoll_fd, int timeout_ms) {
    struct epoll_event event;
    int count = epoll_wait(epoll_fd, &event, 1, timeout_ms);
    if (count < 0) {
        die("epoll_wait");
    }
    return count == 1 ? event.events : 0;
}

uint32_t poll_events(int fd, short events, int timeout_ms) {
    struct pollfd entry = {.fd = fd, .events = events};
    if (poll(&entry, 1, timeout_ms) < 0) {
        die("poll");
    }
    return (uint32_t)(uint16_t)entry.revents;
}

double now_s(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

static void* map_region(size_t length, off_t offset) {
    void* memory = mmap(NULL, length, PROT_READ | PROT_WRITE, MAP_SHARED, app.fd, offset);
    if (memory == MAP_FAILED) {
        die("mmap of /dev/usb-zeph");
    }
    return memory;
}

void app_open(void) {
    app.fd = open_or_die("/dev/usb-zeph", O_RDWR);
    app.info = map_region(4096, 0);
    app.read = map_region(READ_SIZE, 4096);
    app.write = map_region(WRITE_SIZE, 8192);
    app.length = map_region(LENGTH_SIZE, 12288);
    control_write("usb/indices",
                  "read_in=0 read_out=0 write_in=0 write_out=0 length_in=0 length_out=0");
}

void app_close(void) {
    munmap(app.info, 4096);
    munmap(app.read, READ_SIZE);
    munmap(app.write, WRITE_SIZE);
    munmap(app.length, LENGTH_SIZE);
    close(app.fd);
}

void app_queue(uint8_t first, uint32_t len) {
    for (uint32_t i = 0; i < len; i++) {
        app.write[(app.info->write_in + i) % WRITE_SIZE] = (uint8_t)(first + i);
    }
    app.info->write_in += len;
    app.length[app.info->length_in % LENGTH_ENTRIES] = len;
    __atomic_thread_fence(__ATOMIC_RELEASE);
    app.info->length_in += 1;
}

void app_ring(void) {
    if (ioctl(app.fd, DOORBELL) != 0) {
        die("doorbell");
    }
}

int main(void) {
    usb_tests();
    usb_host_tests();
    register_tests();
    gpio_tests();
    sync_tests();
    io_tests();
    can_register_tests();
    can_bus_tests();
    can_fault_tests();
    can_capture_tests();
    can_error_tests();
    can_bcm_tests();
    can_load_tests();
    lin_char_tests();
    lin_bus_tests();
    lin_record_tests();
    lin_fault_tests();
    lin_load_tests();
    return failed_tests() == 0 ? 0 : 1;
}
