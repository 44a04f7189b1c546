// What ncan0 to ncan5 tell of the frames on the wires: layout, times, who tells.
#define _GNU_SOURCE
#include "can.h"
#include "check.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

enum {
    FLOOD_FRAMES = 1500
};

static trace_line lines[256];
static can_packet packet;

static void begin(int channels) {
    can_begin(channels);
    for (int i = 0; i < channels; i++) {
        CHECK(can_set_port(i, true) == 0);
    }
}

// Whether the packet has exactly these bytes, written as hex with blanks between.
static bool packet_is(const char* hex) {
    size_t size = 0;
    for (const char* at = hex; *at; at += strspn(at, " ")) {
        char* end;
        const unsigned long value = strtoul(at, &end, 16);
        if (size >= packet.size || packet.bytes[size++] != value) {
            return false;
        }
        at = end;
    }
    return size == packet.size;
}

static bool next_is(int fd, int channel, int protocol, const char* hex) {
    return can_packet_of(fd, channel, &packet, 2000) && packet.protocol == protocol &&
           packet.type == PACKET_HOST && packet_is(hex);
}

static void layout(void) {
    const int fd = can_capture();
    int from;
    begin(2);
    from = can_raw_socket(0);

    CHECK(can_send(from, "123#DEADBEEF") == 0);
    CHECK(next_is(fd, 0, ETH_P_CAN, "00 00 00 00 00 00 23 01 00 00 04 00 00 00 de ad be ef"));
    CHECK(next_is(fd, 1, ETH_P_CAN, "00 00 00 00 00 00 23 01 00 00 04 00 01 01 de ad be ef"));

    CHECK(can_send(from, "7FF#R3") == 0);
    CHECK(next_is(fd, 0, ETH_P_CAN, "00 00 00 00 00 00 ff 07 00 40 03 00 00 00 00 00 00"));
    CHECK(next_is(fd, 1, ETH_P_CAN, "00 00 00 00 00 00 ff 07 00 40 03 00 01 01 00 00 00"));

    CHECK(can_send(from, "12345678##1AABB") == 0);
    CHECK(next_is(fd, 0, ETH_P_CANFD, "00 00 00 00 00 00 78 56 34 92 02 01 00 00 aa bb"));
    CHECK(next_is(fd, 1, ETH_P_CANFD, "00 00 00 00 00 00 78 56 34 92 02 01 01 01 aa bb"));

    CHECK(can_send(from, "001##2") == 0);
    CHECK(next_is(fd, 0, ETH_P_CANFD, "00 00 00 00 00 00 01 00 00 00 00 02 00 00"));
    CHECK(next_is(fd, 1, ETH_P_CANFD, "00 00 00 00 00 00 01 00 00 00 00 02 01 01"));

    CHECK(can_send(from, "002##0"
                         "000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F"
                         "202122232425262728292A2B2C2D2E2F303132333435363738393A3B3C3D3E3F") == 0);
    for (int channel = 0; channel < 2; channel++) {
        CHECK(can_packet_of(fd, channel, &packet, 2000));
        CHECK(packet.size == 14 + 64 && packet.bytes[10] == 64 && packet.bytes[77] == 0x3F);
    }
    CHECK(can_state_has(0, "captured=5") || can_state_value(0, "captured") > 5);
    close(from);
    close(fd);
    can_end();
}

static void passive_sender(void) {
    const int fd = can_capture();
    int from;
    begin(2);
    from = can_raw_socket(0);
    CHECK(control_write("can/errors", "0 130 0") == 0);
    CHECK(can_send(from, "123##0AA") == 0);
    CHECK(next_is(fd, 0, ETH_P_CANFD, "00 00 00 00 00 00 23 01 00 00 01 02 00 00 aa"));
    CHECK(next_is(fd, 1, ETH_P_CANFD, "00 00 00 00 00 00 23 01 00 00 01 02 01 01 aa"));
    close(from);
    close(fd);
    can_end();
}

// The stamps are the trace's ends of frame, whatever way the device time jumps meanwhile.
static void device_time(void) {
    const int fd = can_capture();
    unsigned long long ticks = 0;
    char counter[64];
    int from;
    begin(2);
    from = can_raw_socket(0);
    control_read("regs/counter", counter, sizeof counter);
    CHECK(sscanf(counter, "running 0x%llx", &ticks) == 1);
    snprintf(counter, sizeof counter, "run %llx", ticks);
    for (int i = 0; i < 4; i++) {
        if (i == 1) { // ten days on
            CHECK(control_write("regs/counter", "run 4e94914f0000") == 0);
        } else if (i == 2) {
            CHECK(control_write("regs/counter", counter) == 0);
        } else if (i == 3) { // no time at all would be the wall clock's place
            CHECK(control_write("regs/counter", "freeze 0") == 0);
        }
        CHECK(control_write("can/trace", "clear") == 0);
        CHECK(can_send(from, "123#00") == 0);
        CHECK(can_wait_trace(lines, 256, 1) == 1);
        for (int channel = 0; channel < 2; channel++) {
            CHECK(can_packet_of(fd, channel, &packet, 2000));
            CHECK(packet.stamp_ns == (i == 3 ? 1 : lines[0].end_ns));
        }
    }
    CHECK(control_write("regs/counter", counter) == 0);
    close(from);
    close(fd);
    can_end();
}

static void who_tells(void) {
    struct sockaddr_can name = {.can_family = AF_CAN};
    const int fd = can_capture();
    int from;
    int outsider;
    begin(3);
    from = can_raw_socket(0);
    outsider = can_raw_socket(1);
    name.can_ifindex = (int)if_nametoindex("ncan1");
    CHECK(bind(outsider, (struct sockaddr*)&name, sizeof name) == 0);
    CHECK(can_set_port(0, false) == 0);
    // A packet of 16 bytes is as long as a frame of a CAN socket, and is none.
    CHECK(can_send(from, "123#AABB") == 0);
    CHECK(next_is(fd, 1, ETH_P_CAN, "00 00 00 00 00 00 23 01 00 00 02 00 01 01 aa bb"));
    CHECK(!can_next_packet(fd, &packet, 50));
    CHECK(strcmp(can_receive(outsider, 50), "none") == 0);

    // A listening channel tells what it hears.
    CHECK(control_write("can/wiring", "0-1-2") == 0);
    *can_register(2, 0x04) = 4;
    CHECK(can_state_gets(2, "mode=listen"));
    CHECK(can_send(from, "124#") == 0);
    CHECK(next_is(fd, 1, ETH_P_CAN, "00 00 00 00 00 00 24 01 00 00 00 00 01 01"));
    CHECK(next_is(fd, 2, ETH_P_CAN, "00 00 00 00 00 00 24 01 00 00 00 00 01 02"));
    close(from);
    close(outsider);
    close(fd);
    can_end();
}

static void wrong_packets(void) {
    const int fd = can_capture();
    begin(1);
    CHECK(control_write("can/packet", "0 classic 00") == 0);
    CHECK(next_is(fd, 0, ETH_P_CAN, "00"));
    CHECK(control_write("can/packet", "0 fd 0000000000002301000041000009") == 0);
    CHECK(next_is(fd, 0, ETH_P_CANFD, "00 00 00 00 00 00 23 01 00 00 41 00 00 09"));
    CHECK(control_write("can/packet", "0 fd") != 0);
    CHECK(control_write("can/packet", "0 fd 0") != 0);
    CHECK(control_write("can/packet", "0 other 00") != 0);
    CHECK(control_write("can/packet", "6 fd 00") != 0);
    CHECK(control_write("can/packet", "1 fd 00") != 0); // ncan1 is down
    close(fd);
    can_end();
}

static void* flood(void* argument) {
    const int fd = can_raw_socket(*(const int*)argument);
    struct can_frame frame = {.can_id = 0x100, .len = 8};
    for (uint32_t i = 0; i < FLOOD_FRAMES;) {
        memcpy(frame.data, &i, sizeof i);
        if (write(fd, &frame, sizeof frame) == sizeof frame) {
            i++;
        } else {
            usleep(500);
        }
    }
    close(fd);
    return NULL;
}

// Each channel sends as fast as the wires go; each tells what it sends and what it receives.
static void full_channels(void) {
    static const can_timing fastest = {{1, 8, 29, 10, 1, 4, 6, 3}}; // 1 Mbit/s
    int channels[CAN_CHANNELS] = {0, 1, 2, 3, 4, 5};
    uint32_t expected[CAN_CHANNELS][2] = {0};
    pthread_t threads[CAN_CHANNELS];
    const int fd = can_capture();
    double seconds;
    int count = 0;
    can_begin_at(CAN_CHANNELS, &fastest);
    for (int i = 0; i < CAN_CHANNELS; i++) {
        CHECK(can_set_port(i, true) == 0);
    }
    seconds = now_s();
    for (int i = 0; i < CAN_CHANNELS; i++) {
        CHECK(pthread_create(&threads[i], NULL, flood, &channels[i]) == 0);
    }
    while (count < 2 * CAN_CHANNELS * FLOOD_FRAMES && can_next_packet(fd, &packet, 5000)) {
        uint32_t number;
        const int received = packet.bytes[12];
        memcpy(&number, packet.bytes + 14, sizeof number);
        CHECK(received <= 1 && number == expected[packet.channel][received]);
        expected[packet.channel][received & 1] = number + 1;
        count++;
    }
    seconds = now_s() - seconds;
    for (int i = 0; i < CAN_CHANNELS; i++) {
        pthread_join(threads[i], NULL);
        CHECK(expected[i][0] == FLOOD_FRAMES && expected[i][1] == FLOOD_FRAMES);
    }
    printf("# six channels at 1 Mbit/s told of %.0f frames a second\n", count / seconds);
    close(fd);
    can_end();
}

void can_capture_tests(void) {
    run_test("can_packet_tells_a_frame_in_its_layout_at_both_ends", layout);
    run_test("can_packet_tells_an_error_passive_sender", passive_sender);
    run_test("can_packet_has_the_device_time_of_the_end_of_frame", device_time);
    run_test("can_packet_goes_to_captures_of_open_ports_alone", who_tells);
    run_test("can_packet_of_any_form_can_be_made", wrong_packets);
    run_test("can_packets_of_six_full_channels_are_all_there_in_order", full_channels);
}
