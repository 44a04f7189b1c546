// /dev/LIN0_CHAR and /dev/LIN1_CHAR: the operations, and the mapping.
#define _GNU_SOURCE
#include "check.h"
#include "lin.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

static void configuration(void) {
    static const uint8_t nothing[LIN_OPERATION];
    lin_config config = {
        .version = 4, .mode = 1, .supply = 1, .bitrate = 20000, .wakeup_long = 400, .open_rx = 1};
    uint8_t record[LIN_OPERATION];
    lin_config other;
    int fd;
    lin_end();
    fd = lin_open(0);
    memset(record, 0xAA, sizeof record);
    CHECK(read(fd, record, sizeof record) == sizeof record);
    CHECK(memcmp(record, nothing, sizeof record) == 0);
    CHECK(lin_configure(0, &config) == 0);
    CHECK(read(fd, record, sizeof record) == sizeof record);
    CHECK(word_at(record) == 0 && word_at(record + 8) == 4 && word_at(record + 12) == 1);
    CHECK(word_at(record + 16) == 1 && word_at(record + 20) == 20000);
    CHECK(word_at(record + 24) == 400 && record[28] == 0 && record[29] == 1);
    CHECK(lin_state_has(0, "version=j2602") && lin_state_has(0, "power=external"));
    CHECK(lin_state_has(0, "mode=commander") && lin_state_has(0, "bitrate=20000"));
    CHECK(lin_state_has(0, "wakeup_long=400") && lin_state_has(0, "open_rx=1"));
    lin_read_config(1, &other);
    CHECK(other.bitrate == 0 && other.version == 0 && other.open_rx == 0);
    close(fd);
    lin_end();
}

static void refusals(void) {
    static const lin_config wrong[] = {
        {.version = 5},         {.mode = 2},           {.supply = 2},
        {.bitrate = 999},       {.bitrate = 20001},    {.bitrate = UINT32_MAX},
        {.wakeup_long = 65536}, {.clear_response = 2}, {.open_rx = 2},
    };
    static const struct {
        uint32_t type;
        const char* hex;
    } operations[] = {
        {5, ""}, // no such operation
        {UINT32_MAX, ""},
        {1, "02 00 00 00"},                         // a register between two
        {1, "00 01 00 00"},                         // the one behind the last
        {3, "00 00 00 00 02 01 00 01"},             // CONFIG_DISTURB: on_off 2
        {3, "00 00 02 00 00 00 00 00"},             // reset 2
        {3, "00 00 00 03 01 01 00 01"},             // type 3
        {3, "00 00 00 00 01 00 00 01"},             // no bits
        {3, "00 00 00 00 01 01 00 0c"},             // field 12
        {3, "40 01 00 00 01 01 00 01"},             // identifier 64
        {3, "00 02 00 00 01 01 00 01"},             // enable_id 2
        {3, "00 00 00 00 01 01 00 01 02 00 01 00"}, // enable_times 2
        {3, "00 00 00 00 01 01 00 01 01 00 00 00"}, // no times
        {4, "02"},                                  // SEND_WAKEUP: channel_status 2
        {4, "01 00 01 02"},                         // reset 2
        {4, "01 00 01 00 00 00 01 00"},             // pulses above 65535 us
        {4, "01 00 01 00 00 00 00 00 00 00 01 00"}, // pauses above 65535 ms
        {4, "00"},                                  // a responder does not order sleep
    };
    static const uint8_t record[LIN_OPERATION + 1];
    uint8_t to[LIN_OPERATION + 1];
    uint8_t ask[LIN_OPERATION] = {2};
    lin_config config;
    int fd;
    lin_begin(RESPONDER, RESPONDER);
    fd = lin_open(0);
    CHECK(lin_write_record(fd, record, LIN_OPERATION - 1) == EINVAL);
    CHECK(lin_write_record(fd, record, LIN_OPERATION + 1) == EINVAL);
    CHECK(read(fd, to, LIN_OPERATION - 1) < 0 && errno == EINVAL);
    CHECK(read(fd, to, LIN_OPERATION + 1) < 0 && errno == EINVAL);
    for (size_t i = 0; i < sizeof wrong / sizeof wrong[0]; i++) {
        CHECK(lin_configure(0, &wrong[i]) == EINVAL);
    }
    for (size_t i = 0; i < sizeof operations / sizeof operations[0]; i++) {
        CHECK(lin_operate(0, operations[i].type, operations[i].hex) == EINVAL);
    }
    put_word(ask + 8 + LIN_RECORD, LIN_RECORDS);
    CHECK(lin_write_record(fd, ask, sizeof ask) == EINVAL);
    // Nothing of that has changed anything.
    lin_read_config(0, &config);
    CHECK(config.version == 2 && config.bitrate == 19200 && config.open_rx == 1);
    CHECK(lin_state_has(0, "disturb=off"));

    CHECK(lin_set_link(0, false) == 0);
    CHECK(lin_operate(0, 4, "01 00 01") == ENETDOWN);
    close(fd);
    lin_end();
}

static void registers(void) {
    uint8_t record[LIN_OPERATION] = {1};
    char text[64];
    int fd;
    int other;
    lin_begin(RESPONDER, RESPONDER);
    fd = lin_open(0);
    other = lin_open(0);
    put_word(record + 8, 0xFC);
    put_word(record + 12, 0xCAFE0001);
    CHECK(lin_write_record(fd, record, sizeof record) == 0);
    control_read("lin/registers", text, sizeof text);
    CHECK(strcmp(text, "lin0 0xFC 0xCAFE0001\n") == 0);

    // Bit 31 asks only. The answer is for who has asked, and once.
    put_word(record + 8, 0x800000FC);
    put_word(record + 12, 0);
    CHECK(lin_write_record(other, record, sizeof record) == 0);
    CHECK(read(fd, record, sizeof record) == sizeof record && word_at(record) == 1);
    CHECK(read(fd, record, sizeof record) == sizeof record && word_at(record) == 0);
    CHECK(read(other, record, sizeof record) == sizeof record && word_at(record) == 1);
    CHECK(word_at(record + 8) == 0x800000FC && word_at(record + 12) == 0xCAFE0001);
    close(fd);
    close(other);
    lin_end();
}

static void asked_record(void) {
    uint8_t record[LIN_OPERATION] = {2};
    lin_line line;
    int fd;
    lin_begin(RESPONDER, RESPONDER);
    fd = lin_open(1);
    for (int i = 0; i < 3; i++) {
        CHECK(control_write("lin/wakeup", "1") == 0);
        CHECK(lin_wait_trace(&line, 1, (size_t)i + 1) == (size_t)i + 1);
    }
    put_word(record + 8 + LIN_RECORD, 2);
    CHECK(lin_write_record(fd, record, sizeof record) == 0);
    CHECK(read(fd, record, sizeof record) == sizeof record);
    CHECK(word_at(record) == 2 && word_at(record + 8 + LIN_RECORD) == 2);
    CHECK(memcmp(record + 8, lin_records(1) + 2 * LIN_RECORD, LIN_RECORD) == 0);
    CHECK(word_at(record + 8) == 100);
    close(fd);
    lin_end();
}

static void mapping(void) {
    const int fd = lin_open(0);
    void* memory = mmap(NULL, LIN_MAPPED, PROT_READ, MAP_SHARED, fd, 0);
    CHECK(memory != MAP_FAILED);
    CHECK(mprotect(memory, LIN_MAPPED, PROT_READ | PROT_WRITE) != 0 && errno == EACCES);
    // The application unmaps only the first page.
    CHECK(munmap(memory, LIN_RECORD) == 0);
    CHECK(((const volatile uint8_t*)memory)[LIN_MAPPED - 1] == 0);
    CHECK(munmap((char*)memory + 4096, LIN_MAPPED - 4096) == 0);

    memory = mmap(NULL, 4096, PROT_READ, MAP_SHARED, fd, 0);
    CHECK(memory != MAP_FAILED && munmap(memory, 4096) == 0);
    CHECK(mmap(NULL, LIN_MAPPED + 1, PROT_READ, MAP_SHARED, fd, 0) == MAP_FAILED &&
          errno == EINVAL);
    CHECK(mmap(NULL, 4096, PROT_READ, MAP_SHARED, fd, 4096) == MAP_FAILED && errno == EINVAL);
    CHECK(mmap(NULL, LIN_MAPPED, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) == MAP_FAILED &&
          errno == EACCES);
    close(fd);
}

static void control_refusals(void) {
    static const char* const wrong[][2] = {
        {"lin/wiring", "1 0"},         {"lin/wiring", " "},
        {"lin/node", "2 0x12 11"},     {"lin/node", "0 0x40 11"},
        {"lin/node", "0 0x12"},        {"lin/node", "0 0x12 1"},
        {"lin/node", "0 0x12 zz"},     {"lin/node", "0 0x12 112233445566778899"},
        {"lin/node", "0 0x12 11 new"}, {"lin/node", "0 0x12 11 classic x"},
        {"lin/header", "0"},           {"lin/header", "0 64"},
        {"lin/header", "0 0x12 999"},  {"lin/wakeup", " "},
        {"lin/wakeup", "0 0"},         {"lin/wakeup", "0 65536"},
        {"lin/wakeup", "0 x"},         {"lin/fault", "0 none 1"},
        {"lin/fault", "0 other 1"},    {"lin/fault", "0 bit"},
        {"lin/fault", "0 bit x"},      {"lin/fault", "0 bit 1 0x40"},
        {"lin/fault", "2 bit 1"},      {"lin/fault", "0 bit 1 1 1"},
        {"lin/trace", "more"},         {"lin/reset", "0"},
    };
    for (size_t i = 0; i < sizeof wrong / sizeof wrong[0]; i++) {
        CHECK(control_write(wrong[i][0], wrong[i][1]) == EINVAL);
    }
}

void lin_char_tests(void) {
    run_test("lin_configuration_is_read_and_written_whole", configuration);
    run_test("lin_operations_out_of_range_are_refused", refusals);
    run_test("lin_registers_keep_what_is_written", registers);
    run_test("lin_record_can_be_asked_for", asked_record);
    run_test("lin_records_are_mapped_read_only_and_no_longer", mapping);
    run_test("lin_control_files_refuse_what_makes_no_sense", control_refusals);
}
