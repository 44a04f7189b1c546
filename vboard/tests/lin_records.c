// What the LIN channels tell: records, packets, and their order.
#define _GNU_SOURCE
#include "check.h"
#include "lin.h"

#include <errno.h>
#include <linux/if_ether.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static lin_line lines[256];
static lin_packet packet;

// Whether the words of the record from this offset on are these.
static bool words_are(const uint8_t* record, size_t offset, const uint32_t* words, size_t count) {
    for (size_t i = 0; i < count; i++) {
        if (word_at(record + offset + 4 * i) != words[i]) {
            printf("# word at %zu: %u\n", offset + 4 * i, word_at(record + offset + 4 * i));
            return false;
        }
    }
    return true;
}

static bool stamps_are(const uint8_t* record, const lin_line* line) {
    return long_at(record + 16) == line->start_ns && long_at(record + 24) == line->end_ns;
}

static void layout(void) {
    static const uint8_t sent[] = {0, 0, 0, 0, 0, 0, 0x92, 0, 0, 0, 2, 0, 0, 0, 0, 0};
    static const uint8_t received[] = {0, 0, 0, 0, 0, 0, 0x92, 0, 0, 0, 2, 0, 1, 1, 0, 1};
    static const uint8_t frame[] = {0x12, 0, 0, 0, 0, 0, 0, 0, 0x92, 8, 0x07, 0x07, 0, 0, 0, 0};
    static const uint8_t data[] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    static const uint32_t times[] = {34, 13, 1, 0, 10, 0,  0,     0,     0,
                                     0,  0,  0, 0, 0,  90, 19200, 19200, 0};
    const int taps = lin_capture();
    int from;
    lin_begin(COMMANDER, RESPONDER);
    CHECK(control_write("lin/wiring", "0-1") == 0);
    from = lin_socket(0);
    CHECK(lin_send_plain(from, 0x92, "1122334455667788") == 0);
    for (int i = 0; i < LIN_CHANNELS; i++) {
        const uint8_t* record = lin_next_record(taps, &packet);
        CHECK(packet.protocol == ETH_P_CAN && packet.size == sizeof sent);
        CHECK(memcmp(packet.bytes, packet.channel ? received : sent, sizeof sent) == 0);
        CHECK(lin_wait_trace(lines, 256, 1) == 1 && packet.stamp_ns == lines[0].end_ns);
        CHECK(memcmp(record, frame, sizeof frame) == 0 && stamps_are(record, &lines[0]));
        CHECK(memcmp(record + 32, data, sizeof data) == 0);
        CHECK(words_are(record, 40, times, sizeof times / sizeof times[0]));
    }
    CHECK(!lin_next_packet(taps, &packet, 50));
    close(from);
    close(taps);
    lin_end();
}

// Break 20, delimiter 4, sync, 3, identifier: 47 bits; 45 bits of spaces and 90 of bytes.
static void details(void) {
    static const uint32_t times[] = {47, 20, 4, 3, 10, 1,   2,     3,     4,
                                     5,  6,  7, 8, 9,  135, 19200, 20000, 0};
    static const uint32_t header[] = {36, 15, 1, 0, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 20000, 0, 0};
    const lin_message full = {.type = FULL_DETIL,
                              .active = 1,
                              .pid = 0x92,
                              .dlc = 8,
                              .sync = 0x55,
                              .data = "1122334455667788",
                              .break_length = 20,
                              .delimiter = 4,
                              .inter_byte = 3,
                              .before = {1, 2, 3, 4, 5, 6, 7, 8, 9},
                              .header_rate = 19200,
                              .response_rate = 20000};
    const lin_message only = {.type = COMMAND_DETIL,
                              .pid = 0xD3,
                              .dlc = 1,
                              .sync = 0x55,
                              .break_length = 15,
                              .before = {1, 2, 3, 4, 5, 6, 7, 8, 9},
                              .header_rate = 20000};
    const lin_message answer = {.type = FULL_DETIL,
                                .active = 1,
                                .pid = 0x92,
                                .dlc = 2,
                                .data = "1122",
                                .before = {7, 5},
                                .response_rate = 19000};
    const int taps = lin_capture();
    const uint8_t* record;
    unsigned long long wanted_ns;
    int from;
    int other;
    lin_begin(COMMANDER, RESPONDER);
    from = lin_socket(0);
    other = lin_socket(1);
    CHECK(lin_send(from, &full) == 0);
    record = lin_next_record(taps, &packet);
    CHECK(word_at(record + 4) == 0 && words_are(record, 40, times, 18));
    CHECK(lin_wait_trace(lines, 256, 1) == 1);
    wanted_ns = 47 * 1000000000ULL / 19200 + 135 * 1000000000ULL / 20000;
    CHECK(lines[0].end_ns - lines[0].start_ns - wanted_ns + 20 <= 40);

    CHECK(lin_send(from, &only) == 0);
    record = lin_next_record(taps, &packet);
    CHECK(word_at(record + 4) == 1 && words_are(record, 40, header, 18));
    CHECK(lin_wait_trace(lines, 256, 2) == 2 && lin_took(&lines[1], 36 + 20, 20000));

    // A responder's response can have details of its own.
    CHECK(control_write("lin/wiring", "0-1") == 0);
    CHECK(lin_send(other, &answer) == 0 && lin_send_plain(from, 0x92, NULL) == 0);
    record = lin_next_record(taps, &packet);
    CHECK(word_at(record + 4) == 0 && word_at(record + 60) == 7 && word_at(record + 64) == 5);
    CHECK(word_at(record + 96) == 30 + 12 && word_at(record + 104) == 19000);
    close(from);
    close(other);
    close(taps);
    lin_end();
}

// The response of a commander takes the channel's rate when only the header has another.
static void other_rates(void) {
    static const uint8_t nothing[16];
    const lin_message apart = {.type = FULL_DETIL,
                               .active = 1,
                               .pid = 0x92,
                               .dlc = 1,
                               .sync = 0x55,
                               .data = "11",
                               .header_rate = 17000};
    const int taps = lin_capture();
    lin_config config;
    const uint8_t* record;
    int from;
    lin_begin(COMMANDER, RESPONDER);
    CHECK(control_write("lin/wiring", "0-1") == 0);
    from = lin_socket(0);
    CHECK(lin_send(from, &apart) == 0);
    for (int i = 0; i < LIN_CHANNELS; i++) {
        record = lin_next_record(taps, &packet);
        CHECK(word_at(record + 100) == 17000 && word_at(record + 104) == 19200);
        // The sender has its own response, the other cannot read it.
        CHECK(word_at(record + 4) == (packet.channel ? 2U : 0U));
        CHECK(record[9] == (packet.channel ? 0 : 1) && record[8] == 0x92);
    }

    // Half the rate: not even the header.
    lin_read_config(1, &config);
    config.bitrate = 9600;
    CHECK(lin_configure(1, &config) == 0 && lin_send_plain(from, 0x92, "22") == 0);
    for (int i = 0; i < LIN_CHANNELS; i++) {
        record = lin_next_record(taps, &packet);
        CHECK(word_at(record + 4) == (packet.channel ? 0x202U : 0U));
        if (packet.channel) {
            CHECK(word_at(record) == 0 && memcmp(record + 8, nothing, 8) == 0);
            CHECK(memcmp(record + 32, nothing, 8) == 0);
        }
    }

    // Without a rate there is nothing to tell.
    config.bitrate = 0;
    CHECK(lin_configure(1, &config) == 0 && lin_send_plain(from, 0x92, "33") == 0);
    lin_next_record(taps, &packet);
    CHECK(packet.channel == 0 && !lin_next_packet(taps, &packet, 50));
    close(from);
    close(taps);
    lin_end();
}

static void ring(void) {
    enum {
        FRAMES = LIN_RECORDS + 5
    };
    const int taps = lin_capture();
    int from;
    lin_begin(COMMANDER, RESPONDER);
    from = lin_socket(0);
    for (uint8_t i = 0; i < FRAMES; i++) {
        const lin_message message = {
            .type = WITH_RESPONSE,
            .active = 1,
            .pid = 0x92,
            .dlc = 1,
            .data = (char[]){(char)('0' + i / 64), (char)('0' + i / 8 % 8), 0}};
        int result;
        do {
            result = lin_send(from, &message);
            usleep(result ? 2000 : 0);
        } while (result == ENOBUFS || result == EAGAIN);
        CHECK(result == 0);
    }
    for (int i = 0; i < FRAMES; i++) {
        const uint8_t* record = lin_next_record(taps, &packet);
        CHECK(packet.bytes[14] == i % LIN_RECORDS);
        CHECK(long_at(record + 24) >= packet.stamp_ns);
    }
    CHECK(!lin_next_packet(taps, &packet, 50) && lin_state_has(0, "next_record=5"));
    CHECK(lin_wait_trace(lines, 256, FRAMES) == FRAMES);
    // The first five places have been written twice.
    for (size_t i = 0; i < LIN_RECORDS; i++) {
        CHECK(stamps_are(lin_records(0) + i * LIN_RECORD,
                         &lines[i < FRAMES - LIN_RECORDS ? LIN_RECORDS + i : i]));
    }
    close(from);
    close(taps);
    lin_end();
}

static void told_to_whom(void) {
    const int taps = lin_capture();
    lin_config config;
    int from;
    lin_begin(COMMANDER, RESPONDER);
    from = lin_socket(0);
    lin_read_config(0, &config);
    config.open_rx = 0;
    CHECK(lin_configure(0, &config) == 0 && lin_send_plain(from, 0x92, "11") == 0);
    CHECK(lin_wait_trace(lines, 256, 1) == 1);
    CHECK(!lin_next_packet(taps, &packet, 50));
    CHECK(lin_state_has(0, "next_record=1") && stamps_are(lin_records(0), &lines[0]));

    config.open_rx = 1;
    CHECK(lin_configure(0, &config) == 0 && lin_send_plain(from, 0x92, "22") == 0);
    CHECK(lin_next_record(taps, &packet)[32] == 0x22 && packet.bytes[14] == 1);
    // Nobody but a capture gets it.
    CHECK(poll_events(from, POLLIN, 50) == 0);
    close(from);
    close(taps);
    lin_end();
}

void lin_record_tests(void) {
    run_test("lin_record_and_packet_have_their_layout_at_both_ends", layout);
    run_test("lin_details_are_on_the_wire_and_in_the_record", details);
    run_test("lin_record_of_another_rate_has_what_can_be_read", other_rates);
    run_test("lin_records_are_used_round_and_round", ring);
    run_test("lin_records_are_told_to_captures_while_open_rx_is_set", told_to_whom);
}
