// The host's end of the USB link: one opener, writing, reading, and what an
// application can do wrong.
#define _GNU_SOURCE
#include "check.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int host;

static void begin(int flags) {
    host = open_or_die("/dev/usb-zeph-host", O_RDWR | flags);
    app_open();
}

static void end(void) {
    app_close();
    close(host);
}

static void second_opener(void) {
    begin(0);
    CHECK(open("/dev/usb-zeph-host", O_RDWR) == -1 && errno == EBUSY);
    end();
    begin(0);
    end();
}

static void odd_writes(void) {
    begin(0);
    CHECK(write(host, "a", 1) == 1);
    CHECK(app.info->read_in == 1);
    CHECK(write(host, "bcd", 3) == 3);
    CHECK(write(host, "efghijk", 7) == 7);
    CHECK(app.info->read_in == 11);
    CHECK(memcmp(app.read, "abcdefghijk", 11) == 0);
    CHECK(write(host, "", 0) == 0);
    CHECK(app.info->read_in == 11);
    end();
}

static void full_ring(void) {
    uint8_t* bytes = calloc(1, READ_SIZE);
    begin(O_NONBLOCK);
    CHECK(write(host, bytes, READ_SIZE) == READ_SIZE);
    CHECK(write(host, "x", 1) == -1 && errno == EAGAIN);
    CHECK(poll_events(host, POLLOUT, 0) == 0);
    app.info->read_out = READ_SIZE / 2;
    CHECK(poll_events(host, POLLOUT, 1000) == POLLOUT);
    CHECK(write(host, bytes, READ_SIZE / 2 + 1) == -1 && errno == EAGAIN);
    CHECK(write(host, bytes, READ_SIZE / 2) == READ_SIZE / 2);
    end();
    free(bytes);
}

static void free_past_the_end(void) {
    uint8_t* bytes = calloc(1, READ_SIZE);
    begin(O_NONBLOCK);
    app.info->read_out = 12;
    CHECK(write(host, bytes, READ_SIZE) == READ_SIZE);
    end();
    free(bytes);
}

static void* write_later(void* unused) {
    (void)unused;
    return write(host, "late", 4) == 4 ? &host : NULL;
}

static void blocked_write(void) {
    uint8_t* bytes = calloc(1, READ_SIZE);
    pthread_t thread;
    void* result;
    begin(0);
    CHECK(write(host, bytes, READ_SIZE - 3) == READ_SIZE - 3);
    pthread_create(&thread, NULL, write_later, NULL);
    usleep(50000);
    CHECK(app.info->read_in == READ_SIZE - 3);
    app.info->read_out = 1;
    pthread_join(thread, &result);
    CHECK(result != NULL);
    CHECK(app.info->read_in == READ_SIZE + 1);
    end();
    free(bytes);
}

static void longer_than_the_ring(void) {
    uint8_t* bytes = calloc(2, READ_SIZE);
    begin(O_NONBLOCK);
    CHECK(write(host, bytes, 2 * READ_SIZE) == READ_SIZE);
    CHECK(app.info->read_in == READ_SIZE);
    end();
    free(bytes);
}

static void one_message_a_read(void) {
    uint8_t bytes[8192];
    static const uint32_t lengths[] = {16, 1, 5, 4097};
    begin(O_NONBLOCK);
    for (uint8_t i = 0; i < 4; i++) {
        app_queue((uint8_t)(i * 16), lengths[i]);
    }
    app_ring();
    for (uint8_t i = 0; i < 4; i++) {
        CHECK(poll_events(host, POLLIN, 0) == POLLIN);
        CHECK(read(host, bytes, sizeof bytes) == (ssize_t)lengths[i]);
        CHECK(bytes[0] == i * 16);
        CHECK(bytes[lengths[i] - 1] == (uint8_t)(i * 16U + lengths[i] - 1));
    }
    CHECK(app.info->write_out == 4119 && app.info->length_out == 4);
    CHECK(read(host, bytes, sizeof bytes) == -1 && errno == EAGAIN);
    CHECK(poll_events(host, POLLIN, 0) == 0);
    end();
}

static void not_before_the_doorbell(void) {
    uint8_t bytes[64];
    begin(O_NONBLOCK);
    app_queue(1, 16);
    CHECK(read(host, bytes, sizeof bytes) == -1 && errno == EAGAIN);
    app_queue(2, 20);
    app_ring();
    CHECK(read(host, bytes, sizeof bytes) == 16);
    CHECK(read(host, bytes, sizeof bytes) == 20);
    end();
}

static void small_buffer(void) {
    uint8_t bytes[64];
    begin(O_NONBLOCK);
    app_queue(7, 16);
    app_ring();
    CHECK(read(host, bytes, 15) == -1 && errno == EMSGSIZE);
    CHECK(read(host, bytes, 16) == 16 && bytes[0] == 7);
    end();
}

static void* ring_later(void* unused) {
    usleep(50000);
    app_queue(9, 16);
    app_ring();
    return unused;
}

static void blocked_read(void) {
    uint8_t bytes[64];
    pthread_t thread;
    begin(0);
    pthread_create(&thread, NULL, ring_later, NULL);
    CHECK(read(host, bytes, sizeof bytes) == 16 && bytes[0] == 9);
    pthread_join(thread, NULL);
    end();
}

static void message_across_the_ring_end(void) {
    uint8_t bytes[64];
    begin(O_NONBLOCK);
    CHECK(control_write("usb/indices",
                        "write_in=0xFFFFFFF8 write_out=0xFFFFFFF8 length_in=0xFFFFFFFF "
                        "length_out=0xFFFFFFFF") == 0);
    app_queue(3, 24);
    app_queue(5, 12);
    app_ring();
    CHECK(read(host, bytes, sizeof bytes) == 24 && bytes[0] == 3 && bytes[8] == 11 &&
          bytes[23] == 26);
    CHECK(read(host, bytes, sizeof bytes) == 12 && bytes[0] == 5);
    CHECK(app.info->write_out == 28 && app.info->length_out == 1);
    end();
}

static void message_of_the_whole_ring(void) {
    uint8_t* bytes = calloc(1, WRITE_SIZE);
    begin(O_NONBLOCK);
    app_queue(1, WRITE_SIZE);
    app_ring();
    CHECK(read(host, bytes, WRITE_SIZE) == WRITE_SIZE);
    CHECK(bytes[0] == 1 && bytes[WRITE_SIZE - 1] == 0);
    end();
    free(bytes);
}

static void bad_length(uint32_t length) {
    uint8_t bytes[64];
    long long before = control_value("usb/stats", "bad_lengths");
    begin(O_NONBLOCK);
    app.length[0] = length;
    app.info->length_in = 1;
    app_ring();
    CHECK(poll_events(host, POLLIN, 0) == 0);
    CHECK(read(host, bytes, sizeof bytes) == -1 && errno == EAGAIN);
    CHECK(control_value("usb/stats", "bad_lengths") == before + 1);
    app_queue(4, 16);
    app_ring();
    CHECK(read(host, bytes, sizeof bytes) == 16 && bytes[0] == 4);
    end();
}

static void too_long(void) {
    bad_length(17000000);
}
static void longer_than_queued(void) {
    bad_length(1);
}
static void empty_message(void) {
    bad_length(0);
}

static void impossible_indices(void) {
    uint8_t bytes[64];
    begin(O_NONBLOCK);
    app.info->length_in = 0xFFFFFFF0;
    app.info->write_in = 0x80000000;
    app_ring();
    CHECK(read(host, bytes, sizeof bytes) == -1 && errno == EAGAIN);
    app_queue(6, 16);
    app_ring();
    CHECK(read(host, bytes, sizeof bytes) == 16 && bytes[0] == 6);
    app.info->read_out = 0x7FFFFFFF;
    CHECK(write(host, "x", 1) == 1);
    app.info->read_out = app.info->read_in - 0x200000;
    CHECK(write(host, "x", 1) == 1);
    end();
}

static void counters(void) {
    long long writes = control_value("usb/stats", "writes_to_app");
    long long in = control_value("usb/stats", "bytes_to_app");
    long long messages = control_value("usb/stats", "messages_to_host");
    long long out = control_value("usb/stats", "bytes_to_host");
    long long doorbells = control_value("usb/stats", "doorbells");
    uint8_t bytes[64];
    begin(O_NONBLOCK);
    CHECK(write(host, "abc", 3) == 3);
    app_queue(1, 16);
    app_ring();
    app_ring();
    CHECK(read(host, bytes, sizeof bytes) == 16);
    CHECK(control_value("usb/stats", "writes_to_app") == writes + 1);
    CHECK(control_value("usb/stats", "bytes_to_app") == in + 3);
    CHECK(control_value("usb/stats", "messages_to_host") == messages + 1);
    CHECK(control_value("usb/stats", "bytes_to_host") == out + 16);
    CHECK(control_value("usb/stats", "doorbells") == doorbells + 2);
    end();
}

void usb_host_tests(void) {
    run_test("host_second_opener_is_busy_until_the_first_closes", second_opener);
    run_test("host_writes_of_odd_lengths_arrive_as_they_stand", odd_writes);
    run_test("host_write_needs_room", full_ring);
    run_test("host_finds_the_ring_free_while_the_reader_is_past_the_end", free_past_the_end);
    run_test("host_blocked_write_goes_on_when_bytes_are_taken", blocked_write);
    run_test("host_write_longer_than_the_ring_goes_in_pieces", longer_than_the_ring);
    run_test("host_reads_one_message_at_a_time", one_message_a_read);
    run_test("host_reads_nothing_before_the_doorbell", not_before_the_doorbell);
    run_test("host_message_stays_when_the_buffer_is_too_small", small_buffer);
    run_test("host_blocked_read_is_woken_by_the_doorbell", blocked_read);
    run_test("host_message_and_indices_wrap", message_across_the_ring_end);
    run_test("host_message_of_the_whole_ring", message_of_the_whole_ring);
    run_test("host_drops_and_counts_a_length_above_the_ring", too_long);
    run_test("host_drops_and_counts_a_length_above_what_is_queued", longer_than_queued);
    run_test("host_drops_and_counts_a_length_of_zero", empty_message);
    run_test("host_survives_impossible_indices", impossible_indices);
    run_test("host_and_application_are_counted", counters);
}
