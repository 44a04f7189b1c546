// Digital inputs and outputs and the converter: /dev/norvane_dio and its registers.
#define _GNU_SOURCE
#include "check.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <unistd.h>

enum {
    ENABLE = 0x00 / 4,
    TRIGGER = 0x04 / 4,
    LEVEL = 0x08 / 4,
    OUTPUT = 0x0C / 4,
    UPLOAD = 0x10 / 4,
    REGISTERS = 5,
    RECORDS = 256,
};
#define UPLOAD_ON 0x80000000U

struct record {
    uint8_t trigger, inputs, outputs, reserved;
    uint16_t adc[2];
    uint64_t time;
};

static volatile uint32_t* block;
static int fd;

// The block as after power-up, nothing connected, and the device open.
static void begin(int flags) {
    int mem = open_or_die("/dev/mem", O_RDWR | O_SYNC);
    block = mmap(NULL, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, mem, 0x88000000);
    close(mem);
    for (int i = 0; i < REGISTERS; i++) {
        block[i] = 0;
    }
    for (int i = 1; i <= 4; i++) {
        char text[8];
        snprintf(text, sizeof text, "%d 0", i);
        CHECK(control_write("io/inputs", text) == 0);
    }
    fd = open_or_die("/dev/norvane_dio", O_RDWR | flags);
}

static void end(void) {
    for (int i = 0; i < REGISTERS; i++) {
        block[i] = 0;
    }
    close(fd);
    munmap((void*)(uintptr_t)block, 4096);
}

static struct record take(void) {
    struct record record = {0};
    CHECK(read(fd, &record, sizeof record) == sizeof record);
    return record;
}

static void periodic(void) {
    struct record record;
    uint64_t last = 0;
    double seconds;
    begin(0);
    block[UPLOAD] = UPLOAD_ON | 20;
    seconds = now_s();
    for (int i = 0; i < 30; i++) {
        record = take();
        CHECK(record.trigger == 0 && record.reserved == 0);
        CHECK(last == 0 || record.time - last == 20000000);
        last = record.time;
    }
    seconds = now_s() - seconds;
    printf("# 30 samples at 20 ms: %.0f ms\n", seconds * 1000);
    CHECK(seconds > 0.59);
    block[UPLOAD] = 20;
    usleep(100000);
    fcntl(fd, F_SETFL, O_NONBLOCK);
    while (read(fd, &record, sizeof record) == sizeof record) {
    }
    CHECK(errno == EAGAIN);
    CHECK(poll_events(fd, POLLIN, 200) == 0); // off is off
    block[UPLOAD] = UPLOAD_ON;
    CHECK(poll_events(fd, POLLIN, 200) == 0); // nor is there a sample without a period
    end();
}

static void outputs_read_back(void) {
    begin(O_NONBLOCK);
    block[TRIGGER] = 3;
    block[ENABLE] = 3;
    block[LEVEL] = 0xC;
    block[OUTPUT] = 3;
    CHECK(control_write("io/inputs", "1 1") == 0);
    CHECK(take().outputs == 2); // output 1 lacks its level
    block[LEVEL] = 0xF;
    block[ENABLE] = 1;
    CHECK(control_write("io/inputs", "1 0") == 0);
    CHECK(take().outputs == 1); // output 2 is not enabled
    block[OUTPUT] = 2;
    CHECK(control_write("io/inputs", "1 1") == 0);
    CHECK(take().outputs == 0);
    end();
}

static void triggers(void) {
    struct record record;
    begin(O_NONBLOCK);
    block[TRIGGER] = 0x3010; // input 4; 1 is not on
    CHECK(control_write("io/adc", "1 4660") == 0);
    CHECK(control_write("io/adc", "2 65535") == 0);
    CHECK(control_write("io/inputs", "2 1") == 0);
    CHECK(control_write("io/inputs", "1 1") == 0);
    CHECK(poll_events(fd, POLLIN, 50) == 0);
    CHECK(control_write("io/inputs", "4 1") == 0);
    CHECK(control_write("io/inputs", "4 1") == 0); // no change
    CHECK(poll_events(fd, POLLIN, 0) == POLLIN);
    record = take();
    CHECK(record.trigger == 8 && record.inputs == 0xB && record.outputs == 0);
    CHECK(record.adc[0] == 0x1234 && record.adc[1] == 0xFFFF);
    CHECK(poll_events(fd, POLLIN, 50) == 0);
    CHECK(control_write("io/inputs", "4 0") == 0);
    record = take();
    CHECK(record.trigger == 8 && record.inputs == 3);
    CHECK(control_write("io/inputs", "0 1") == EINVAL);
    CHECK(control_write("io/inputs", "5 1") == EINVAL);
    CHECK(control_write("io/inputs", "1 2") == EINVAL);
    CHECK(control_write("io/adc", "3 0") == EINVAL);
    CHECK(control_write("io/adc", "1 65536") == EINVAL);
    end();
}

static void one_sample_a_read(void) {
    uint8_t bytes[64];
    int epoll_fd;
    begin(O_NONBLOCK);
    epoll_fd = epoll_on(fd, EPOLLIN);
    block[TRIGGER] = 3;
    CHECK(epoll_events(epoll_fd, 0) == 0);
    CHECK(read(fd, bytes, sizeof bytes) == -1 && errno == EAGAIN);
    CHECK(control_write("io/inputs", "1 1") == 0);
    CHECK(control_write("io/inputs", "1 0") == 0);
    CHECK(epoll_events(epoll_fd, 0) == EPOLLIN);
    CHECK(read(fd, bytes, 15) == -1 && errno == EINVAL);
    CHECK(read(fd, bytes, sizeof bytes) == 16 && bytes[1] == 1);
    CHECK(epoll_events(epoll_fd, 0) == EPOLLIN);
    CHECK(read(fd, bytes, sizeof bytes) == 16 && bytes[1] == 0);
    CHECK(epoll_events(epoll_fd, 0) == 0);
    CHECK(write(fd, bytes, 16) == -1 && errno == EINVAL);
    close(epoll_fd);
    end();
}

static void room_for_256(void) {
    long long lost;
    begin(O_NONBLOCK);
    block[TRIGGER] = 3;
    lost = control_value("io/state", "lost");
    for (int i = 0; i < RECORDS + 10; i++) {
        CHECK(control_write("io/inputs", i % 2 ? "1 0" : "1 1") == 0);
    }
    CHECK(control_value("io/state", "waiting") == RECORDS);
    CHECK(control_value("io/state", "lost") == lost + 10);
    for (int i = 0; i < RECORDS; i++) { // the oldest are kept
        CHECK(take().inputs == (i % 2 ? 0 : 1));
    }
    CHECK(poll_events(fd, POLLIN, 0) == 0);
    end();
}

static void nothing_kept_for_nobody(void) {
    begin(O_NONBLOCK);
    block[TRIGGER] = 3;
    CHECK(control_write("io/inputs", "1 1") == 0);
    close(fd);
    CHECK(control_write("io/inputs", "1 0") == 0);
    fd = open_or_die("/dev/norvane_dio", O_RDWR | O_NONBLOCK);
    CHECK(poll_events(fd, POLLIN, 0) == 0);
    end();
}

static void faults(void) {
    uint8_t bytes[16];
    begin(O_NONBLOCK);
    block[TRIGGER] = 3;
    CHECK(control_write("io/fault", "short 1") == 0);
    CHECK(control_write("io/inputs", "1 1") == 0);
    CHECK(read(fd, bytes, 16) == 8);
    CHECK(control_write("io/inputs", "1 0") == 0);
    CHECK(read(fd, bytes, 16) == 16);
    CHECK(control_write("io/fault", "empty 2") == 0);
    CHECK(poll_events(fd, POLLIN, 0) == POLLIN);
    CHECK(read(fd, bytes, 16) == -1 && errno == EAGAIN);
    CHECK(read(fd, bytes, 16) == -1 && errno == EAGAIN);
    CHECK(poll_events(fd, POLLIN, 0) == 0);
    CHECK(control_write("io/fault", "none 1") == EINVAL);
    CHECK(control_write("io/fault", "short") == EINVAL);
    end();
}

void io_tests(void) {
    run_test("io_samples_come_at_their_period", periodic);
    run_test("io_outputs_are_read_back", outputs_read_back);
    run_test("io_triggers_sample_on_a_change", triggers);
    run_test("io_read_gives_one_sample", one_sample_a_read);
    run_test("io_keeps_256_samples", room_for_256);
    run_test("io_keeps_nothing_for_nobody", nothing_kept_for_nobody);
    run_test("io_faults_can_be_ordered", faults);
}
