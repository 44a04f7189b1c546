// What the self test's files share: one line of output a test, and small helpers
// around the devices under test. A helper that fails ends the program: then the
// board is broken in a way that no test looks for.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

// Notes a failed condition of the test that runs, with its place; the test goes on.
#define CHECK(condition) check_at((condition), #condition, __FILE__, __LINE__)

void check_at(bool good, const char* text, const char* file, int line);

// Runs one test and prints "ok NAME" or "not ok NAME".
void run_test(const char* name, void (*test)(void));
// The number of failed tests so far.
int failed_tests(void);

// Each file's tests.
void usb_tests(void);
void usb_host_tests(void);
void register_tests(void);
void gpio_tests(void);
void sync_tests(void);
void io_tests(void);

// Control files, by their path in the control directory. Result: 0 or an errno.
int control_write(const char* path, const char* text);
void control_read(const char* path, char* text, size_t size);
// The value behind "NAME " in a control file of such lines.
long long control_value(const char* path, const char* name);

int open_or_die(const char* path, int flags);
// The events that an epoll of fd reports within the time; 0 for none.
uint32_t epoll_events(int epoll_fd, int timeout_ms);
int epoll_on(int fd, uint32_t events);
uint32_t poll_events(int fd, short events, int timeout_ms);
double now_s(void);

// --- the application's end of the USB link

enum {
    READ_SIZE = 0x100000,
    WRITE_SIZE = 0x1000000,
    LENGTH_SIZE = 0x1000000,
    LENGTH_ENTRIES = 0x400000,
    DOORBELL = 0x7605,
};

struct info {
    volatile uint32_t read_in, read_out, write_in, write_out, length_in, length_out;
};

extern struct app {
    int fd;
    struct info* info;
    uint8_t *read, *write;
    uint32_t* length;
} app;

// Opens and maps the link, with all indices 0.
void app_open(void);
void app_close(void);
// Queues one message of len bytes, the first of them `first` and each next one more.
void app_queue(uint8_t first, uint32_t len);
void app_ring(void);
