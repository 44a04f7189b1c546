// The error rings, their announcements, and the errors that a test can cause.
#define _GNU_SOURCE
#include "can.h"
#include "check.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

enum {
    RING_SIZE = 24576,
    RECORD_SIZE = 88,
    RECORDS = 256
};

static trace_line lines[256];
static can_packet packet;
static const uint8_t* rings[2];

static const uint8_t* map_ring(int channel) {
    char path[32];
    void* memory;
    int fd;
    snprintf(path, sizeof path, "/dev/norvane_can%d", channel);
    fd = open_or_die(path, O_RDWR);
    memory = mmap(NULL, RING_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    CHECK(memory != MAP_FAILED);
    return memory;
}

// Two channels with their ports up and their rings mapped.
static void begin(void) {
    can_begin(2);
    control_write("can/fault", "0 bit 0");
    for (int i = 0; i < 2; i++) {
        CHECK(can_set_port(i, true) == 0);
        rings[i] = map_ring(i);
    }
}

static void end(void) {
    for (int i = 0; i < 2; i++) {
        munmap((void*)(uintptr_t)rings[i], RING_SIZE);
    }
    control_write("can/fault", "0 bit 0");
    can_end();
}

// The next packet announces so many records; returns the first one's slot, or -1.
static int announced(int fd, int channel, int* count) {
    static const uint8_t head[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0x20, 2, 0, 1};
    if (!can_packet_of(fd, channel, &packet, 2000) || packet.size != 16 ||
        packet.protocol != ETH_P_CAN || memcmp(packet.bytes, head, sizeof head) != 0 ||
        packet.bytes[13] != channel) {
        return -1;
    }
    *count = packet.bytes[15];
    return packet.bytes[14];
}

static const uint8_t* record_at(int channel, int slot) {
    return rings[channel] + (unsigned int)slot % RECORDS * RECORD_SIZE;
}

static unsigned long long time_of(const uint8_t* record) {
    unsigned long long time_ns;
    memcpy(&time_ns, record, sizeof time_ns);
    return time_ns;
}

static bool has_text(const char* path, const char* text) {
    char content[256];
    control_read(path, content, sizeof content);
    return strcmp(content, text) == 0;
}

// 321#01 has 45 bits up to its acknowledge slot, as can_attempt_that_fails... counts.
static void no_acknowledgement(void) {
    static const uint8_t golden[] = {0, 5, 45, 0, 0x21, 3, 0, 0, 5, 0, 0, 0, 1, 0, 0, 1, 1};
    const int fd = can_capture();
    int count = 0;
    int slot;
    int from;
    begin();
    CHECK(can_set_link(1, false) == 0);
    from = can_raw_socket(0);
    CHECK(can_send(from, "321#01") == 0);
    slot = announced(fd, 0, &count);
    CHECK(slot >= 0 && count >= 1 && can_wait_trace(lines, 256, 1) >= 1);
    CHECK(time_of(record_at(0, slot)) == lines[0].end_ns);
    CHECK(memcmp(record_at(0, slot) + 8, golden, sizeof golden) == 0);
    for (size_t i = 8 + sizeof golden; i < RECORD_SIZE; i++) {
        CHECK(record_at(0, slot)[i] == 0);
    }
    // The retries are told one after the other.
    CHECK(announced(fd, 0, &count) == (slot + count) % RECORDS || count > 1);
    close(from);
    close(fd);
    end();
}

// 321#01 has 20 bits in front of its data.
static void faults(void) {
    static const struct {
        const char* kind;
        uint8_t sender, receiver, bit, receiver_bit, position, length;
        int attempt_bits; // up to the end of the error frame
    } kinds[] = {
        {"bit", 1, 2, 20, 20, 3, 0, 21 + 14},  {"stuff", 2, 2, 20, 20, 3, 0, 21 + 14},
        {"form", 4, 4, 44, 44, 4, 1, 45 + 14}, {"crc", 3, 3, 46, 46, 5, 1, 47 + 14},
        {"ack", 5, 4, 45, 46, 5, 1, 46 + 14},
    };
    const int fd = can_capture();
    int from;
    begin();
    from = can_raw_socket(0);
    for (size_t i = 0; i < sizeof kinds / sizeof kinds[0]; i++) {
        char text[64];
        int count[2] = {0, 0};
        int slot[2];
        snprintf(text, sizeof text, "0 %s 1", kinds[i].kind);
        CHECK(control_write("can/trace", "clear") == 0 && control_write("can/fault", text) == 0);
        snprintf(text, sizeof text, "can0 %s 1\n", kinds[i].kind);
        CHECK(has_text("can/fault", text));
        CHECK(can_send(from, "321#01") == 0);
        slot[0] = announced(fd, 0, &count[0]);
        slot[1] = announced(fd, 1, &count[1]);
        CHECK(slot[0] >= 0 && slot[1] >= 0 && count[0] == 1 && count[1] == 1);
        for (int channel = 0; channel < 2; channel++) {
            const uint8_t* record = record_at(channel, slot[channel]);
            CHECK(record[8] == channel && record[18] == channel);
            CHECK(record[9] == (channel ? kinds[i].receiver : kinds[i].sender));
            CHECK(record[10] == (channel ? kinds[i].receiver_bit : kinds[i].bit));
            CHECK(record[12] == 0x21 && record[13] == 3 && record[20] == 1);
            CHECK(record[16] == kinds[i].position && record[23] == kinds[i].length);
            CHECK(record[24] == kinds[i].length);
        }
        // The retry is well, and told behind the error.
        for (int channel = 0; channel < 2; channel++) {
            CHECK(can_packet_of(fd, channel, &packet, 2000));
            CHECK(packet.bytes[9] == 0 && packet.bytes[12] == channel);
        }
        CHECK(can_wait_trace(lines, 256, 2) == 2 && strcmp(lines[1].result, "ok") == 0);
        CHECK(strcmp(lines[0].result, strcmp(kinds[i].kind, "ack") ? kinds[i].kind : "noack") == 0);
        CHECK((int)(lines[0].end_ns - lines[0].start_ns) == kinds[i].attempt_bits * NOMINAL_BIT_NS);
        CHECK(has_text("can/fault", ""));
    }
    CHECK(control_write("can/fault", "0 none 1") != 0 &&
          control_write("can/fault", "6 bit 1") != 0);
    CHECK(control_write("can/fault", "0 bit") != 0);
    close(from);
    close(fd);
    end();
}

// An extended FD frame at the data rate of an error-passive sender, without data.
static void frame_in_an_error(void) {
    static const uint8_t golden[] = {0x78, 0x56, 0x34, 0x92, 4, 1, 0, 1, 0, 1, 0, 0};
    const int fd = can_capture();
    int count = 0;
    int slot;
    int from;
    begin();
    from = can_raw_socket(0);
    CHECK(control_write("can/errors", "0 130 0") == 0);
    CHECK(control_write("can/fault", "0 stuff 1") == 0);
    CHECK(can_send(from, "12345678##1") == 0);
    slot = announced(fd, 0, &count);
    CHECK(slot >= 0 && memcmp(record_at(0, slot) + 12, golden, sizeof golden) == 0);
    close(from);
    close(fd);
    end();
}

static void listener_and_other_rate(void) {
    const int fd = can_capture();
    int count = 0;
    int slot;
    int from;
    begin();
    from = can_raw_socket(0);
    *can_register(1, 0x04) = 4;
    CHECK(can_state_gets(1, "mode=listen"));
    CHECK(control_write("can/fault", "0 crc 1") == 0);
    CHECK(can_send(from, "321#01") == 0);
    CHECK(announced(fd, 0, &count) >= 0);
    slot = announced(fd, 1, &count);
    // No code, the place as ever.
    CHECK(slot >= 0 && record_at(1, slot)[9] == 0 && record_at(1, slot)[10] == 46);
    CHECK(record_at(1, slot)[18] == 1);
    close(from);
    close(fd);
    end();

    begin();
    CHECK(can_write_timing(1, &other_timing, sizeof other_timing) == 0);
    {
        static const uint8_t golden[] = {1, 2, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0};
        const int capture = can_capture();
        from = can_raw_socket(0);
        CHECK(can_send(from, "321#01") == 0);
        CHECK(announced(capture, 0, &count) >= 0);
        slot = announced(capture, 1, &count);
        CHECK(slot >= 0 && memcmp(record_at(1, slot) + 8, golden, sizeof golden) == 0);
        close(from);
        close(capture);
    }
    end();
}

static void bus_off(void) {
    const int fd = can_capture();
    int told = 0;
    int last = -1;
    int from;
    begin();
    from = can_raw_socket(0);
    CHECK(control_write("can/fault", "0 bit 100") == 0);
    CHECK(can_send(from, "321#01") == 0);
    CHECK(can_state_gets(0, "state=bus-off"));
    while (can_packet_of(fd, 0, &packet, 100)) {
        told += packet.bytes[15];
        last = (packet.bytes[14] + packet.bytes[15] - 1) % RECORDS;
    }
    // From 0 in steps of 8: 32 errors, and bus-off behind them.
    CHECK(told == 33 && last >= 0 && record_at(0, last)[9] == 6 && record_at(0, last)[12] == 0);
    CHECK(record_at(0, last + RECORDS - 1)[9] == 1);
    CHECK(can_state_has(0, "tec=256") && can_state_has(0, "waiting=1"));
    close(from);
    close(fd);
    end();
}

static void burst(void) {
    const int fd = can_capture();
    int count = 0;
    int first;
    begin();
    CHECK(control_write("can/error_burst", "1 300 9") == 0);
    first = announced(fd, 1, &count);
    CHECK(first >= 0 && count == 255);
    CHECK(announced(fd, 1, &count) == (first + 255) % RECORDS && count == 45);
    // The first 44 slots have been written twice.
    for (int i = 0; i < RECORDS; i++) {
        const int number = i < 44 ? i + RECORDS : i;
        const uint8_t* record = record_at(1, first + i);
        CHECK(record[9] == 9 && record[12] + (record[13] << 8) == number);
    }
    // The ring goes on where it was, another opener sees it too.
    CHECK(can_set_port(1, false) == 0 && control_write("can/error_burst", "1 1 9") != 0);
    CHECK(can_set_port(1, true) == 0 && control_write("can/error_burst", "1 1 8") == 0);
    CHECK(announced(fd, 1, &count) == (first + 300) % RECORDS && count == 1);
    {
        const uint8_t* again = map_ring(1);
        CHECK(again[(first + 300) % RECORDS * RECORD_SIZE + 9] == 8);
        munmap((void*)(uintptr_t)again, RING_SIZE);
    }
    CHECK(control_write("can/error_burst", "1 1001 0") != 0);
    CHECK(control_write("can/error_burst", "1 1 256") != 0);
    CHECK(control_write("can/error_burst", "6 1 0") != 0);
    close(fd);
    end();
}

static void mapping(void) {
    const int fd = open_or_die("/dev/norvane_can5", O_RDWR);
    CHECK(mmap(NULL, RING_SIZE, PROT_READ, MAP_SHARED, fd, 4096) == MAP_FAILED && errno == EINVAL);
    CHECK(mmap(NULL, 2 * RING_SIZE, PROT_READ, MAP_SHARED, fd, 0) == MAP_FAILED);
    {
        void* memory = mmap(NULL, 4096, PROT_READ, MAP_SHARED, fd, 0);
        CHECK(memory != MAP_FAILED && munmap(memory, 4096) == 0);
    }
    close(fd);
}

void can_error_tests(void) {
    run_test("can_error_ring_tells_a_missing_acknowledgement_in_its_layout", no_acknowledgement);
    run_test("can_fault_breaks_one_attempt_and_is_told_at_both_ends", faults);
    run_test("can_error_tells_the_frame_with_its_bits", frame_in_an_error);
    run_test("can_error_of_a_listener_has_no_code_and_of_another_rate_no_frame",
             listener_and_other_rate);
    run_test("can_errors_lead_to_bus_off_which_is_told", bus_off);
    run_test("can_error_ring_overflows_and_goes_on", burst);
    run_test("can_error_ring_is_mapped_at_its_start_alone", mapping);
}
