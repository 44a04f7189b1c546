// The LIN clusters: times, identifiers, checksums, and who answers whom.
#define _GNU_SOURCE
#include "check.h"
#include "lin.h"

#include <errno.h>
#include <linux/can.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static lin_line lines[256];

// A header has 13 + 1 + 10 + 10 bits, a response 10 for each byte and the checksum.
static void frame_times(void) {
    static const unsigned int rates[] = {19200, 9600};
    for (int i = 0; i < 2; i++) {
        int from;
        lin_config config;
        lin_begin(COMMANDER, RESPONDER);
        lin_read_config(0, &config);
        config.bitrate = rates[i];
        CHECK(lin_configure(0, &config) == 0);
        from = lin_socket(0);
        CHECK(lin_send_plain(from, 0x92, "1122334455667788") == 0);
        CHECK(lin_send_plain(from, 0x92, "11") == 0);
        CHECK(lin_wait_trace(lines, 256, 2) == 2);
        CHECK(lin_line_is(&lines[0], "0 lin0 0x92 lin0 1122334455667788 0x07 ok"));
        CHECK(lin_took(&lines[0], 34 + 90, rates[i]));
        CHECK(lin_took(&lines[1], 34 + 20, rates[i]));
        // The first starts when it comes, the second when the wire is free.
        CHECK(lines[0].start_ns == lines[0].queued_ns);
        CHECK(lines[1].start_ns ==
              (lines[1].queued_ns > lines[0].end_ns ? lines[1].queued_ns : lines[0].end_ns));
        close(from);
        lin_end();
    }
}

static void silence(void) {
    static const uint8_t lengths[] = {0, 1, 8, 255};
    static const unsigned int bits[] = {44, 54, 124, 124};
    int from;
    lin_begin(COMMANDER, RESPONDER);
    from = lin_socket(0);
    for (int i = 0; i < 4; i++) {
        const lin_message header = {.type = ONLY_COMMAND, .pid = 0xD3, .dlc = lengths[i]};
        CHECK(lin_send(from, &header) == 0);
    }
    CHECK(lin_wait_trace(lines, 256, 4) == 4);
    for (int i = 0; i < 4; i++) {
        CHECK(lin_line_is(&lines[i], "0 lin0 0xD3 - - - noresponse"));
        CHECK(lin_took(&lines[i], bits[i], 19200));
    }
    CHECK(lin_state_has(0, "mode=commander") && lin_state_value(0, "noresponse") >= 4);
    close(from);
    lin_end();
}

// The protected identifiers of the LIN standard's table.
static void parity(void) {
    static const uint8_t pids[64] = {
        0x80, 0xC1, 0x42, 0x03, 0xC4, 0x85, 0x06, 0x47, 0x08, 0x49, 0xCA, 0x8B, 0x4C,
        0x0D, 0x8E, 0xCF, 0x50, 0x11, 0x92, 0xD3, 0x14, 0x55, 0xD6, 0x97, 0xD8, 0x99,
        0x1A, 0x5B, 0x9C, 0xDD, 0x5E, 0x1F, 0x20, 0x61, 0xE2, 0xA3, 0x64, 0x25, 0xA6,
        0xE7, 0xA8, 0xE9, 0x6A, 0x2B, 0xEC, 0xAD, 0x2E, 0x6F, 0xF0, 0xB1, 0x32, 0x73,
        0xB4, 0xF5, 0x76, 0x37, 0x78, 0x39, 0xBA, 0xFB, 0x3C, 0x7D, 0xFE, 0xBF};
    char text[32];
    lin_begin(RESPONDER, RESPONDER);
    for (int id = 0; id < 64; id++) {
        int result;
        snprintf(text, sizeof text, "1 0x%02x 20000", id);
        do {
            result = control_write("lin/header", text);
            usleep(result == ENOBUFS ? 5000 : 0);
        } while (result == ENOBUFS);
        CHECK(result == 0);
    }
    CHECK(lin_wait_trace(lines, 256, 64) == 64);
    for (int id = 0; id < 64; id++) {
        snprintf(text, sizeof text, "1 node 0x%02X - - - noresponse", pids[id]);
        CHECK(lin_line_is(&lines[id], text));
    }
    lin_end();
}

static void checksums(void) {
    const int taps = lin_capture();
    lin_packet packet;
    lin_config config;
    const uint8_t* record;
    int from;
    lin_begin(COMMANDER, RESPONDER);
    from = lin_socket(0);
    CHECK(control_write("lin/node", "0 0x12 4A5593E5") == 0);
    CHECK(control_write("lin/node", "0 0x13 4A5593E5 classic") == 0);
    CHECK(control_write("lin/node", "0 0x3D 4A5593E5") == 0);
    CHECK(lin_send_plain(from, 0x92, NULL) == 0);
    record = lin_next_record(taps, &packet);
    CHECK(word_at(record + 4) == 0 && record[10] == 0x54 && record[11] == 0x54);
    CHECK(lin_send_plain(from, 0xD3, NULL) == 0);
    record = lin_next_record(taps, &packet);
    CHECK(word_at(record + 4) == 8 && record[10] == 0x13 && record[11] == 0xE6);
    CHECK(lin_send_plain(from, 0x7D, NULL) == 0);
    record = lin_next_record(taps, &packet);
    CHECK(word_at(record + 4) == 0 && record[10] == 0xE6 && record[11] == 0xE6);

    // A channel of version 1.3 forms and expects the classic one.
    lin_read_config(0, &config);
    config.version = 0;
    CHECK(lin_configure(0, &config) == 0);
    CHECK(lin_send_plain(from, 0xD3, NULL) == 0);
    record = lin_next_record(taps, &packet);
    CHECK(word_at(record + 4) == 0 && record[10] == 0xE6 && record[11] == 0xE6);
    CHECK(lin_send_plain(from, 0x92, "4A5593E5") == 0);
    record = lin_next_record(taps, &packet);
    CHECK(word_at(record + 4) == 0 && record[10] == 0xE6 && record[11] == 0xE6);
    CHECK(lin_wait_trace(lines, 256, 5) == 5);
    CHECK(lin_line_is(&lines[4], "0 lin0 0x92 lin0 4A5593E5 0xE6 ok"));
    close(from);
    close(taps);
    lin_end();
}

static void responder(void) {
    const lin_message drop = {.type = WITH_RESPONSE, .pid = 0x92};
    lin_config config;
    char text[256];
    int commander;
    int other;
    lin_begin(COMMANDER, RESPONDER);
    commander = lin_socket(0);
    other = lin_socket(1);
    CHECK(control_write("lin/node", "0 0x12 AA") == 0);
    CHECK(lin_send_plain(other, 0x92, "1122") == 0);
    CHECK(lin_send_plain(commander, 0x92, NULL) == 0);
    CHECK(lin_wait_trace(lines, 256, 1) == 1);
    CHECK(lin_line_is(&lines[0], "0 lin0 0x92 node AA 0xC2 ok"));

    // The other channel is not there until the wires are joined, and then goes first.
    CHECK(control_write("lin/wiring", "01") == 0);
    CHECK(lin_send_plain(commander, 0x92, NULL) == 0);
    CHECK(lin_wait_trace(lines, 256, 2) == 2);
    CHECK(lin_line_is(&lines[1], "0-1 lin0 0x92 lin1 1122 0x3A ok"));
    CHECK(lin_send_plain(other, 0x92, "33445566778899AA") == 0);
    CHECK(lin_send_plain(other, 0xD3, "01") == 0);
    control_read("lin/responses", text, sizeof text);
    CHECK(strcmp(text, "lin0 node 0x12 AA enhanced\n"
                       "lin1 own 0x12 33445566778899AA\nlin1 own 0x13 01\n") == 0);
    CHECK(lin_send_plain(commander, 0x92, NULL) == 0);
    CHECK(lin_wait_trace(lines, 256, 3) == 3);
    CHECK(strcmp(lines[2].data, "33445566778899AA") == 0);

    CHECK(lin_send(other, &drop) == 0);
    CHECK(lin_send_plain(commander, 0x92, NULL) == 0);
    CHECK(lin_wait_trace(lines, 256, 4) == 4 && strcmp(lines[3].responder, "node") == 0);
    CHECK(lin_send_plain(commander, 0xD3, NULL) == 0);
    CHECK(lin_wait_trace(lines, 256, 5) == 5 && strcmp(lines[4].responder, "lin1") == 0);

    // All responses are dropped, once.
    lin_read_config(1, &config);
    config.clear_response = 1;
    CHECK(lin_configure(1, &config) == 0);
    CHECK(lin_send_plain(commander, 0xD3, NULL) == 0);
    CHECK(lin_wait_trace(lines, 256, 6) == 6);
    CHECK(lin_line_is(&lines[5], "0-1 lin0 0xD3 - - - noresponse"));
    lin_read_config(1, &config);
    CHECK(config.clear_response == 0);
    close(commander);
    close(other);
    lin_end();
}

static void two_commanders(void) {
    const lin_config slow = {.version = 2, .mode = COMMANDER, .bitrate = 1000};
    int from;
    lin_begin(COMMANDER, RESPONDER);
    CHECK(lin_configure(0, &slow) == 0);
    from = lin_socket(0);
    CHECK(control_write("lin/node", "0 0x12 AA") == 0);
    CHECK(lin_send_plain(from, 0x92, NULL) == 0);
    CHECK(control_write("lin/header", "0 0x12") == 0);
    CHECK(lin_wait_trace(lines, 256, 2) == 2);
    CHECK(lin_line_is(&lines[0], "0 lin0 0x92 node AA 0xC2 ok"));
    CHECK(lin_line_is(&lines[1], "0 node 0x92 node AA 0xC2 ok"));
    CHECK(lines[1].start_ns == lines[0].end_ns);
    close(from);
    lin_end();
}

// What the channel counts as sent, and what came to it and made no sense.
static void refused_frames(void) {
    const lin_message wrong[] = {
        {.type = 4, .pid = 0x92},
        {.type = WITH_RESPONSE, .active = 1, .pid = 0x92, .dlc = 0},
        {.type = FULL_DETIL, .active = 1, .pid = 0x92, .dlc = 9},
        {.type = COMMAND_DETIL, .pid = 0x92, .dlc = 1, .header_rate = 20001},
        {.type = FULL_DETIL, .active = 1, .pid = 0x92, .dlc = 1, .response_rate = 999},
    };
    struct canfd_frame frame = {.can_id = 0x92, .len = 39};
    lin_config config;
    long long refused;
    int from;
    lin_begin(COMMANDER, RESPONDER);
    from = lin_socket(0);
    refused = lin_state_value(0, "refused");
    for (size_t i = 0; i < sizeof wrong / sizeof wrong[0]; i++) {
        CHECK(lin_send(from, &wrong[i]) == 0);
    }
    CHECK(write(from, &frame, sizeof frame) == sizeof frame);
    frame.len = 40;
    frame.can_id = 0x192;
    CHECK(write(from, &frame, sizeof frame) == sizeof frame);
    frame.can_id = 0x92;
    frame.len = 8;
    CHECK(write(from, &frame, CAN_MTU) == CAN_MTU); // a classic frame
    usleep(20000);
    CHECK(lin_wait_trace(lines, 256, 0) == 0);
    CHECK(lin_state_value(0, "refused") == refused + 8);

    // A responder sends no header, and nobody anything without a rate.
    lin_read_config(0, &config);
    config.mode = RESPONDER;
    CHECK(lin_configure(0, &config) == 0 && lin_send_plain(from, 0x92, NULL) == 0);
    CHECK(lin_state_value(0, "refused") == refused + 9);
    config.mode = COMMANDER;
    config.bitrate = 0;
    CHECK(lin_configure(0, &config) == 0 && lin_send_plain(from, 0x92, NULL) == 0);
    CHECK(lin_state_value(0, "refused") == refused + 10);
    CHECK(lin_wait_trace(lines, 256, 0) == 0);
    close(from);
    lin_end();
}

static void broken_off(void) {
    int from;
    int other;
    lin_config config = {.version = 2, .mode = COMMANDER, .bitrate = 1000, .open_rx = 1};
    lin_begin(COMMANDER, RESPONDER);
    CHECK(control_write("lin/wiring", "0-1") == 0);
    CHECK(lin_configure(0, &config) == 0);
    config.mode = RESPONDER;
    CHECK(lin_configure(1, &config) == 0);
    from = lin_socket(0);
    other = lin_socket(1);
    CHECK(lin_send_plain(from, 0x92, "1122334455667788") == 0);
    CHECK(lin_send_plain(from, 0x92, "22") == 0);
    usleep(5000);
    CHECK(lin_state_has(0, "waiting=1"));
    CHECK(lin_set_link(0, false) == 0);
    CHECK(lin_wait_trace(lines, 256, 1) == 1 && strcmp(lines[0].result, "aborted") == 0);
    CHECK(lin_state_has(0, "waiting=0") && lin_state_has(0, "bitrate=1000"));
    CHECK(lin_state_has(1, "next_record=0"));

    // Its responses stay, like its configuration.
    CHECK(lin_send_plain(other, 0x92, "33") == 0);
    CHECK(lin_set_link(1, false) == 0 && lin_set_link(1, true) == 0);
    CHECK(lin_set_link(0, true) == 0 && lin_send_plain(from, 0x92, NULL) == ENETDOWN);
    CHECK(lin_send_plain(from, 0x92, NULL) == 0); // a socket tells once that it was down
    CHECK(lin_wait_trace(lines, 256, 2) == 2);
    CHECK(lin_line_is(&lines[1], "0-1 lin0 0x92 lin1 33 0x3A ok"));
    close(from);
    close(other);
    lin_end();
}

void lin_bus_tests(void) {
    run_test("lin_frame_takes_its_bits_at_the_rate", frame_times);
    run_test("lin_header_without_response_takes_the_time_of_one", silence);
    run_test("lin_identifiers_have_their_parity", parity);
    run_test("lin_checksum_goes_by_version_and_identifier", checksums);
    run_test("lin_responses_are_set_changed_and_dropped", responder);
    run_test("lin_commanders_take_turns", two_commanders);
    run_test("lin_frames_that_make_no_sense_are_refused", refused_frames);
    run_test("lin_frame_ends_with_its_sender", broken_off);
}
