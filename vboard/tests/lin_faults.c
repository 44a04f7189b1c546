// The LIN clusters when something is wrong, asleep, or disturbed.
#define _GNU_SOURCE
#include "check.h"
#include "lin.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static lin_line lines[64];
static lin_packet packet;
static int taps;
static int from;

static void begin(void) {
    lin_begin(COMMANDER, RESPONDER);
    taps = lin_capture();
    from = lin_socket(0);
}

static void end(void) {
    close(taps);
    close(from);
    lin_end();
}

// The error code of the next record, and of the channel that tells it.
static uint32_t next_code(void) {
    return word_at(lin_next_record(taps, &packet) + 4);
}

static void ordered_faults(void) {
    static const struct {
        const char* fault;
        uint32_t code;
        const char* line;
    } cases[] = {
        {"0 response 1", 0x001, "0 lin0 0x92 - - - noresponse"},
        {"0 checksum 1", 0x008, "0 lin0 0x92 node 1122334455667788 0xF8 checksum"},
        {"0 parity 1", 0x005, "0 lin0 0x12 - - - parity,noresponse"},
        {"0 sync 1", 0x203, "0 lin0 0x92 - - - header,framing,noresponse"},
        {"0 framing 1", 0x002, "0 lin0 0x92 node 1122334455667788 0x07 framing,bit"},
        {"0 bit 1", 0x008, "0 lin0 0x92 node 1022334455667788 0x07 bit,checksum"},
    };
    size_t seen = 0;
    begin();
    CHECK(control_write("lin/node", "0 0x12 1122334455667788") == 0);
    for (size_t i = 0; i < sizeof cases / sizeof cases[0]; i++) {
        CHECK(control_write("lin/fault", cases[i].fault) == 0);
        CHECK(lin_send_plain(from, 0x92, NULL) == 0 && next_code() == cases[i].code);
        CHECK(lin_send_plain(from, 0x92, NULL) == 0 && next_code() == 0);
        seen += 2;
        CHECK(lin_wait_trace(lines, 64, seen) == seen);
        CHECK(lin_line_is(&lines[seen - 2], cases[i].line));
        CHECK(lin_line_is(&lines[seen - 1], "0 lin0 0x92 node 1122334455667788 0x07 ok"));
    }
    end();
}

// Who sends what comes out otherwise sees that too.
static void senders_own_fault(void) {
    begin();
    CHECK(control_write("lin/wiring", "0-1") == 0);
    CHECK(control_write("lin/fault", "1 bit 1") == 0);
    CHECK(lin_send_plain(from, 0x92, "1122") == 0);
    for (int i = 0; i < LIN_CHANNELS; i++) {
        const uint32_t code = next_code();
        CHECK(code == (packet.channel ? 0x008U : 0x10AU));
    }
    CHECK(control_write("lin/fault", "0 framing 1") == 0);
    CHECK(lin_send_plain(from, 0x92, "1122") == 0);
    for (int i = 0; i < LIN_CHANNELS; i++) {
        const uint32_t code = next_code();
        CHECK(code == (packet.channel ? 0x002U : 0x102U));
    }
    end();
}

static void faults_of_an_identifier(void) {
    char text[64];
    begin();
    CHECK(control_write("lin/fault", "0 checksum 2 0x13") == 0);
    CHECK(lin_send_plain(from, 0x92, "11") == 0 && next_code() == 0);
    CHECK(lin_send_plain(from, 0xD3, "11") == 0 && next_code() == 8);
    control_read("lin/fault", text, sizeof text);
    CHECK(strcmp(text, "lin0 checksum 1 0x13\n") == 0);
    CHECK(lin_send_plain(from, 0xD3, "11") == 0 && next_code() == 8);
    CHECK(lin_send_plain(from, 0xD3, "11") == 0 && next_code() == 0);
    CHECK(control_write("lin/fault", "0 bit 3") == 0);
    control_read("lin/fault", text, sizeof text);
    CHECK(strcmp(text, "lin0 bit 3 any\n") == 0);
    end();
}

// CONFIG_DISTURB: lin_id, enable_id, reset, type, on_off, time_length, offset, field,
// enable_times, reserved, times.
static void disturbance(void) {
    long long disturbed;
    begin();
    disturbed = lin_state_value(0, "disturbed");
    CHECK(control_write("lin/node", "0 0x14 AA") == 0);
    // All bits of the checksum inverted, in two frames.
    CHECK(lin_operate(0, 3, "00 00 00 02 01 08 01 0b 01 00 02 00") == 0);
    CHECK(lin_state_has(0, "disturb=on"));
    CHECK(lin_send_plain(from, 0xD3, NULL) == 0 && next_code() == 1); // has none
    CHECK(lin_send_plain(from, 0x92, "1122") == 0 && next_code() == 0x10A);
    CHECK(lin_send_plain(from, 0x92, "1122") == 0 && next_code() == 0x10A);
    CHECK(lin_send_plain(from, 0x92, "1122") == 0 && next_code() == 0);
    CHECK(lin_state_has(0, "disturb=off"));
    CHECK(lin_state_value(0, "disturbed") == disturbed + 2);
    CHECK(lin_wait_trace(lines, 64, 4) == 4);
    CHECK(lin_line_is(&lines[1], "0 lin0 0x92 lin0 1122 0xC5 bit,checksum"));

    // Of one identifier: a break that is recessive too soon. For ever, until it is ended.
    CHECK(lin_operate(0, 3, "14 01 00 01 01 01 0a 00") == 0);
    CHECK(lin_send_plain(from, 0x92, "1122") == 0 && next_code() == 0);
    for (int i = 0; i < 3; i++) {
        CHECK(lin_send_plain(from, 0x14, NULL) == 0 && next_code() == 0x303);
    }
    CHECK(lin_operate(0, 3, "14 01 00 01 00 01 0a 00") == 0);
    CHECK(lin_send_plain(from, 0x14, NULL) == 0 && next_code() == 0);

    // From the identifier's stop bit to the first bit of the data: dominant.
    CHECK(lin_operate(0, 3, "00 00 00 00 01 03 09 02") == 0);
    disturbed = lin_state_value(0, "disturbed");
    CHECK(lin_send_plain(from, 0x92, "11") == 0 && next_code() == 0x10A);
    CHECK(lin_state_value(0, "disturbed") == disturbed + 1);
    CHECK(lin_wait_trace(lines, 64, 10) == 10);
    CHECK(lin_line_is(&lines[9], "0 lin0 0x92 lin0 10 0x5C framing,bit,checksum"));
    CHECK(lin_operate(0, 3, "00 00 01 00 01 03 09 02") == 0);
    CHECK(lin_state_has(0, "disturb=off"));
    end();
}

// A sync byte that the host orders, and an identifier with wrong parity.
static void wrong_headers(void) {
    const lin_message sync = {.type = COMMAND_DETIL, .pid = 0x92, .dlc = 1, .sync = 0x54};
    const lin_message pause = {
        .type = COMMAND_DETIL, .pid = 0x92, .dlc = 1, .sync = 0x55, .break_length = 10};
    begin();
    CHECK(control_write("lin/node", "0 0x12 AA") == 0);
    CHECK(lin_send(from, &sync) == 0 && next_code() == 0x203);
    CHECK(lin_send(from, &pause) == 0 && next_code() == 0x203);
    CHECK(lin_send_plain(from, 0x12, NULL) == 0 && next_code() == 0x005);
    CHECK(lin_send_plain(from, 0x12, "11") == 0 && next_code() == 0x004);
    end();
}

static bool is_wakeup(int channel, bool received) {
    const uint8_t* record;
    do {
        record = lin_next_record(taps, &packet);
    } while (packet.channel != channel);
    return word_at(record) == 100 && word_at(record + 4) == 0 && packet.bytes[6] == 0 &&
           packet.bytes[15] == received && long_at(record + 24) == packet.stamp_ns;
}

// SEND_WAKEUP: channel_status, send_wakeup_signal, repeat_times, reset, length us, pause ms.
static void wakeup_pulses(void) {
    lin_config config;
    begin();
    CHECK(control_write("lin/wiring", "0-1") == 0);
    CHECK(lin_operate(1, 4, "01 00 03 00 f4 01 00 00 0a 00 00 00") == 0);
    CHECK(lin_wait_trace(lines, 64, 3) == 3);
    for (int i = 0; i < 3; i++) {
        CHECK(lin_line_is(&lines[i], "0-1 lin1 wakeup - - - ok"));
        CHECK(lin_took(&lines[i], 1, 2000));
        CHECK(i == 0 || lines[i].start_ns == lines[i - 1].end_ns + 10000000);
        CHECK(is_wakeup(0, true));
    }
    lin_read_config(1, &config);
    config.wakeup_long = 400;
    CHECK(lin_operate(1, 4, "01") == 0 && lin_wait_trace(lines, 64, 4) == 4);
    CHECK(lin_took(&lines[3], 1, 4000));
    CHECK(lin_configure(1, &config) == 0 && lin_operate(1, 4, "01") == 0);
    CHECK(lin_wait_trace(lines, 64, 5) == 5 && lin_took(&lines[4], 1, 2500));
    end();
}

static void wakeup_directions(void) {
    begin();
    CHECK(lin_operate(0, 4, "01") == 0);
    CHECK(is_wakeup(0, false));
    CHECK(control_write("lin/wakeup", "0 300") == 0);
    CHECK(is_wakeup(0, true));
    // Too short to be one.
    CHECK(control_write("lin/wakeup", "0 149") == 0);
    CHECK(lin_wait_trace(lines, 64, 3) == 3);
    CHECK(lin_line_is(&lines[2], "0 node wakeup - - - short"));
    CHECK(!lin_next_packet(taps, &packet, 50));
    end();
}

static void end_of_pulses(void) {
    begin();
    // 200 pulses, 300 ms apart: a header ends them, and so does reset.
    for (int i = 0; i < 2; i++) {
        const size_t seen = 2 * (size_t)i;
        CHECK(lin_operate(0, 4, "01 00 c8 00 fa 00 00 00 2c 01 00 00") == 0);
        CHECK(lin_wait_trace(lines, 64, seen + 1) == seen + 1);
        if (i == 0) {
            CHECK(lin_send_plain(from, 0x92, "11") == 0);
            CHECK(lin_wait_trace(lines, 64, 2) == 2);
        } else {
            CHECK(lin_operate(0, 4, "01 00 00 01") == 0);
        }
        usleep(500000);
        CHECK(lin_wait_trace(lines, 64, 0) == (i == 0 ? 2 : 3));
    }
    end();
}

static void sleep_command(void) {
    begin();
    CHECK(control_write("lin/node", "0 0x12 AA") == 0 && lin_state_has(0, "bus=awake"));
    for (int i = 0; i < 2; i++) {
        CHECK(lin_operate(0, 4, "00") == 0 && next_code() == 0);
        CHECK(lin_state_has(0, "bus=asleep") && lin_state_has(1, "bus=awake"));
        if (i == 0) {
            // The header that wakes other nodes gets no answer from them.
            CHECK(lin_send_plain(from, 0x92, NULL) == 0 && next_code() == 1);
        } else {
            CHECK(control_write("lin/wakeup", "0") == 0 && is_wakeup(0, true));
        }
        CHECK(lin_state_has(0, "bus=awake"));
        CHECK(lin_send_plain(from, 0x92, NULL) == 0 && next_code() == 0);
    }
    CHECK(lin_wait_trace(lines, 64, 6) == 6);
    CHECK(lin_line_is(&lines[0], "0 lin0 0x3C lin0 00FFFFFFFFFFFFFF 0x00 ok"));
    // Another one's command; and one that is no command.
    CHECK(lin_send_plain(from, 0x3C, "0011223344556677") == 0 && next_code() == 0);
    CHECK(lin_state_has(0, "bus=asleep"));
    CHECK(lin_send_plain(from, 0x3C, "01FFFFFFFFFFFFFF") == 0 && next_code() == 0);
    CHECK(lin_state_has(0, "bus=awake"));
    end();
}

void lin_fault_tests(void) {
    run_test("lin_faults_are_seen_once_each_in_record_and_trace", ordered_faults);
    run_test("lin_sender_sees_that_its_bits_come_out_otherwise", senders_own_fault);
    run_test("lin_faults_can_be_of_one_identifier", faults_of_an_identifier);
    run_test("lin_disturbance_changes_bits_of_a_field", disturbance);
    run_test("lin_damaged_header_is_not_answered", wrong_headers);
    run_test("lin_wakeup_pulses_have_their_length_and_pause", wakeup_pulses);
    run_test("lin_wakeup_is_told_with_its_direction", wakeup_directions);
    run_test("lin_pulses_end_with_a_header_or_when_told", end_of_pulses);
    run_test("lin_cluster_sleeps_until_it_is_waked", sleep_command);
}
