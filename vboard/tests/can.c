// What the tests of the CAN channels are made of.
#define _GNU_SOURCE
#include "can.h"

#include "check.h"

#include <arpa/inet.h>
#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum {
    TRACE_TEXT_MAX = 4 << 20,
    HELD_MAX = 256,
    PATIENCE_MS = 5000
};

// 40 MHz / (brp * (1 + sg1 + sg2)).
const can_timing fast_timing = {{1, 16, 63, 16, 1, 4, 15, 4}};
const can_timing other_timing = {{2, 16, 63, 16, 2, 4, 15, 4}};
const can_timing slow_timing = {{50, 16, 63, 16, 200, 4, 15, 4}};
const can_timing slowest_timing = {{256, 16, 256, 128, 256, 4, 15, 4}};

static void give_up(const char* what) {
    printf("# %s: %s\nnot ok the CAN channels are usable\n", what, strerror(errno));
    exit(1);
}

int can_write_timing(int channel, const void* record, size_t size) {
    char path[32];
    ssize_t got;
    int fd;
    snprintf(path, sizeof path, "/dev/norvane_can%d", channel);
    fd = open_or_die(path, O_RDWR);
    got = write(fd, record, size);
    close(fd);
    return got == (ssize_t)size ? 0 : errno;
}

static unsigned int index_of(int channel) {
    char name[IFNAMSIZ];
    snprintf(name, sizeof name, "can%d", channel);
    return if_nametoindex(name);
}

int set_link(const char* name, bool up) {
    struct {
        struct nlmsghdr head;
        struct ifinfomsg info;
    } request = {
        .head = {.nlmsg_len = sizeof request,
                 .nlmsg_type = RTM_NEWLINK,
                 .nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK},
        .info = {.ifi_family = AF_UNSPEC,
                 .ifi_index = (int)if_nametoindex(name),
                 .ifi_change = IFF_UP,
                 .ifi_flags = up ? IFF_UP : 0},
    };
    struct {
        struct nlmsghdr head;
        struct nlmsgerr error;
        char more[256];
    } answer = {0};
    int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (fd < 0 || send(fd, &request, sizeof request, 0) != sizeof request ||
        recv(fd, &answer, sizeof answer, 0) < (ssize_t)NLMSG_LENGTH(sizeof answer.error)) {
        give_up("netlink");
    }
    close(fd);
    return -answer.error.error;
}

int can_set_link(int channel, bool up) {
    char name[IFNAMSIZ];
    snprintf(name, sizeof name, "can%d", channel);
    return set_link(name, up);
}

int can_set_port(int channel, bool up) {
    struct ifreq request = {.ifr_flags = up ? IFF_UP : 0};
    const int fd = socket(AF_CAN, SOCK_DGRAM | SOCK_CLOEXEC, CAN_BCM);
    int result;
    snprintf(request.ifr_name, IFNAMSIZ, "ncan%d", channel);
    result = ioctl(fd, SIOCSIFFLAGS, &request) == 0 ? 0 : errno;
    close(fd);
    return result;
}

void can_begin_at(int channels, const can_timing* timing) {
    can_end();
    control_write("can/wiring", "0-1 2-3 4-5");
    control_write("can/cycle", "on");
    control_write("can/bcm_refuse", "off");
    for (int i = 0; i < channels; i++) {
        CHECK(can_write_timing(i, timing, sizeof *timing) == 0);
        CHECK(can_set_link(i, true) == 0);
    }
    control_write("can/trace", "clear");
}

void can_begin(int channels) {
    can_begin_at(channels, &fast_timing);
}

void can_end(void) {
    static const uint32_t settings[] = {0x00, 0x04, 0x08, 0x0C, 0x20, 0x88, 0x8C, 0xE0};
    for (int i = 0; i < CAN_CHANNELS; i++) {
        can_set_link(i, false);
        can_set_port(i, false);
        for (size_t k = 0; k < sizeof settings / sizeof settings[0]; k++) {
            *can_register(i, settings[k]) = 0;
        }
    }
    for (int i = 0; i < CAN_CHANNELS; i++) {
        CHECK(can_state_gets(i, "mode=config") && can_state_gets(i, "bitrate=0"));
    }
}

int can_raw_socket(int channel) {
    struct sockaddr_can name = {.can_family = AF_CAN, .can_ifindex = (int)index_of(channel)};
    int fd = socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, CAN_RAW);
    int on = 1;
    int off = 0;
    if (fd < 0 || setsockopt(fd, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &on, sizeof on) != 0 ||
        setsockopt(fd, SOL_CAN_RAW, CAN_RAW_LOOPBACK, &off, sizeof off) != 0 ||
        bind(fd, (struct sockaddr*)&name, sizeof name) != 0) {
        give_up("raw socket");
    }
    return fd;
}

int can_bcm_socket(int channel) {
    struct sockaddr_can name = {.can_family = AF_CAN, .can_ifindex = (int)index_of(channel)};
    int fd = socket(AF_CAN, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, CAN_BCM);
    if (fd < 0 || connect(fd, (struct sockaddr*)&name, sizeof name) != 0) {
        give_up("broadcast manager socket");
    }
    return fd;
}

static uint8_t hex_digit(char digit) {
    return (uint8_t)(isdigit((unsigned char)digit) ? digit - '0' : toupper(digit) - 'A' + 10);
}

bool can_parse(const char* text, struct canfd_frame* frame) {
    const char* mark = strchr(text, '#');
    bool fd = mark[1] == '#';
    const char* data = mark + (fd ? 3 : 1);
    memset(frame, 0, sizeof *frame);
    frame->can_id = (canid_t)strtoul(text, NULL, 16);
    if (mark - text == 8) {
        frame->can_id |= CAN_EFF_FLAG;
    }
    if (fd) {
        frame->flags = hex_digit(mark[2]);
    }
    if (!fd && *data == 'R') {
        frame->can_id |= CAN_RTR_FLAG;
        frame->len = (uint8_t)atoi(data + 1);
        return false;
    }
    for (; data[0] && data[1]; data += 2) {
        frame->data[frame->len++] = (uint8_t)(hex_digit(data[0]) << 4 | hex_digit(data[1]));
    }
    return fd;
}

// A socket remembers that its interface was down, and fails once with it.
static void forget_error(int fd) {
    int error;
    socklen_t size = sizeof error;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
}

int can_send(int fd, const char* text) {
    struct canfd_frame frame;
    const size_t size = can_parse(text, &frame) ? CANFD_MTU : CAN_MTU;
    forget_error(fd);
    return write(fd, &frame, size) == (ssize_t)size ? 0 : errno;
}

const char* can_receive(int fd, int timeout_ms) {
    static char text[160];
    struct canfd_frame frame;
    size_t used;
    ssize_t got;
    forget_error(fd);
    if (poll_events(fd, POLLIN, timeout_ms) == 0) {
        return "none";
    }
    got = read(fd, &frame, sizeof frame);
    if (got != CAN_MTU && got != CANFD_MTU) {
        return "no frame";
    }
    used = (size_t)snprintf(text, sizeof text, frame.can_id & CAN_EFF_FLAG ? "%08X#" : "%03X#",
                            frame.can_id & CAN_EFF_MASK);
    if (got == CANFD_MTU) {
        used += (size_t)snprintf(text + used, sizeof text - used, "#%X",
                                 frame.flags & (CANFD_BRS | CANFD_ESI));
    } else if (frame.can_id & CAN_RTR_FLAG) {
        snprintf(text + used, sizeof text - used, "R%d", frame.len);
        return text;
    }
    for (int i = 0; i < frame.len; i++) {
        used += (size_t)snprintf(text + used, sizeof text - used, "%02X", frame.data[i]);
    }
    return text;
}

size_t can_trace(trace_line* lines, size_t room) {
    static char text[TRACE_TEXT_MAX];
    size_t count = 0;
    control_read("can/trace", text, sizeof text);
    for (char* line = strtok(text, "\n"); line && count < room; line = strtok(NULL, "\n")) {
        trace_line* to = &lines[count];
        if (sscanf(line, "%llu %llu %llu can%d %159s %7s %31s", &to->queued_ns, &to->start_ns,
                   &to->end_ns, &to->channel, to->frame, to->origin, to->result) == 7) {
            count++;
        }
    }
    return count;
}

size_t can_wait_trace(trace_line* lines, size_t room, size_t wanted) {
    size_t count = can_trace(lines, room);
    for (int waited = 0; count < wanted && waited < PATIENCE_MS; waited += 20) {
        usleep(20000);
        count = can_trace(lines, room);
    }
    return count;
}

static int port_indices[CAN_CHANNELS];
static can_packet held[HELD_MAX]; // passed over by can_packet_of()
static size_t held_count;

int can_capture(void) {
    const int on = 1;
    const int room = 64 << 20;
    const int fd = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_ALL));
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0) {
        give_up("packet socket");
    }
    for (int i = 0; i < CAN_CHANNELS; i++) {
        char name[IF_NAMESIZE];
        snprintf(name, sizeof name, "ncan%d", i);
        port_indices[i] = (int)if_nametoindex(name);
    }
    held_count = 0;
    return fd;
}

static int port_of(int index) {
    for (int i = 0; i < CAN_CHANNELS; i++) {
        if (port_indices[i] == index) {
            return i;
        }
    }
    return -1;
}

static unsigned long long stamp_of(struct msghdr* message) {
    const struct cmsghdr* part = CMSG_FIRSTHDR(message);
    struct timespec stamp;
    if (!part || part->cmsg_type != SCM_TIMESTAMPNS) {
        return 0;
    }
    memcpy(&stamp, CMSG_DATA(part), sizeof stamp);
    return (unsigned long long)stamp.tv_sec * 1000000000ULL + (unsigned long long)stamp.tv_nsec;
}

bool can_next_packet(int fd, can_packet* packet, int timeout_ms) {
    while (poll_events(fd, POLLIN, timeout_ms)) {
        _Alignas(struct cmsghdr) char control[256];
        struct sockaddr_ll from = {0};
        struct iovec data = {.iov_base = packet->bytes, .iov_len = sizeof packet->bytes};
        struct msghdr message = {.msg_name = &from,
                                 .msg_namelen = sizeof from,
                                 .msg_iov = &data,
                                 .msg_iovlen = 1,
                                 .msg_control = control,
                                 .msg_controllen = sizeof control};
        const ssize_t got = recvmsg(fd, &message, 0);
        if (got < 0) {
            give_up("packet socket");
        }
        packet->channel = port_of(from.sll_ifindex);
        if (packet->channel >= 0) {
            packet->protocol = ntohs(from.sll_protocol);
            packet->type = from.sll_pkttype;
            packet->size = (size_t)got;
            packet->stamp_ns = stamp_of(&message);
            return true;
        }
    }
    return false;
}

bool can_packet_of(int fd, int channel, can_packet* packet, int timeout_ms) {
    for (size_t i = 0; i < held_count; i++) {
        if (held[i].channel == channel) {
            *packet = held[i];
            held_count--;
            memmove(&held[i], &held[i + 1], (held_count - i) * sizeof held[0]);
            return true;
        }
    }
    while (can_next_packet(fd, packet, timeout_ms)) {
        if (packet->channel == channel) {
            return true;
        }
        if (held_count < HELD_MAX) {
            held[held_count++] = *packet;
        }
    }
    return false;
}

// The channel's line of the state file, with a space at its end.
static const char* state_line(int channel) {
    static char line[512];
    char text[8192];
    char name[8];
    const char* begin;
    control_read("can/state", text, sizeof text);
    snprintf(name, sizeof name, "can%d ", channel);
    begin = strstr(text, name);
    snprintf(line, sizeof line, "%.*s ", (int)strcspn(begin, "\n"), begin);
    return line;
}

bool can_state_has(int channel, const char* word) {
    char spaced[64];
    snprintf(spaced, sizeof spaced, " %s ", word);
    return strstr(state_line(channel), spaced) != NULL;
}

long long can_state_value(int channel, const char* name) {
    char start[64];
    const char* found;
    snprintf(start, sizeof start, " %s=", name);
    found = strstr(state_line(channel), start);
    return found ? atoll(found + strlen(start)) : -1;
}

bool can_state_gets(int channel, const char* word) {
    for (int waited = 0; waited < PATIENCE_MS; waited += 5) {
        if (can_state_has(channel, word)) {
            return true;
        }
        usleep(5000);
    }
    return false;
}

static volatile uint32_t* map_register(off_t block, size_t size, uint32_t offset) {
    const int fd = open_or_die("/dev/mem", O_RDWR | O_SYNC);
    char* memory = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, block);
    close(fd);
    if (memory == MAP_FAILED) {
        give_up("/dev/mem");
    }
    return (volatile uint32_t*)(void*)(memory + offset);
}

volatile uint32_t* can_register(int channel, uint32_t offset) {
    static char* blocks[CAN_CHANNELS];
    if (!blocks[channel]) {
        blocks[channel] =
            (char*)(uintptr_t)map_register(0x80000000 + ((off_t)channel << 16), 0x10000, 0);
    }
    return (volatile uint32_t*)(void*)(blocks[channel] + offset);
}

volatile uint32_t* can_shared_register(uint32_t offset) {
    static char* block;
    if (!block) {
        block = (char*)(uintptr_t)map_register(0x82000000, 4096, 0);
    }
    return (volatile uint32_t*)(void*)(block + offset);
}
