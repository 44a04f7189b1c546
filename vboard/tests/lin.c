// What the tests of the LIN channels are made of.
#define _GNU_SOURCE
#include "lin.h"

#include "can.h"
#include "check.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/can.h>
#include <linux/can/raw.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum {
    TRACE_TEXT_MAX = 1 << 20,
    PATIENCE_MS = 5000,
    MESSAGE = 40
};

static void give_up(const char* what) {
    printf("# %s: %s\nnot ok the LIN channels are usable\n", what, strerror(errno));
    exit(1);
}

void put_word(uint8_t* at, uint32_t value) {
    for (int i = 0; i < 4; i++) {
        at[i] = (uint8_t)(value >> 8 * i);
    }
}

uint32_t word_at(const uint8_t* at) {
    return (uint32_t)at[0] | (uint32_t)at[1] << 8 | (uint32_t)at[2] << 16 | (uint32_t)at[3] << 24;
}

uint64_t long_at(const uint8_t* at) {
    return word_at(at) | (uint64_t)word_at(at + 4) << 32;
}

// Returns the number of bytes.
static size_t put_hex(uint8_t* to, const char* hex) {
    size_t count = 0;
    for (unsigned int value; sscanf(hex, " %2x", &value) == 1; count++) {
        to[count] = (uint8_t)value;
        hex += strspn(hex, " ") + 2;
    }
    return count;
}

// --- /dev/LIN<n>_CHAR

int lin_open(int channel) {
    char path[32];
    snprintf(path, sizeof path, "/dev/LIN%d_CHAR", channel);
    return open_or_die(path, O_RDWR);
}

int lin_write_record(int fd, const void* record, size_t size) {
    return write(fd, record, size) == (ssize_t)size ? 0 : errno;
}

static int write_operation(int channel, const uint8_t* record) {
    const int fd = lin_open(channel);
    const int result = lin_write_record(fd, record, LIN_OPERATION);
    close(fd);
    return result;
}

int lin_operate(int channel, uint32_t type, const char* hex) {
    uint8_t record[LIN_OPERATION] = {0};
    put_word(record, type);
    put_hex(record + 8, hex);
    return write_operation(channel, record);
}

int lin_configure(int channel, const lin_config* config) {
    uint8_t record[LIN_OPERATION] = {0};
    put_word(record + 8, config->version);
    put_word(record + 12, config->mode);
    put_word(record + 16, config->supply);
    put_word(record + 20, config->bitrate);
    put_word(record + 24, config->wakeup_long);
    record[28] = config->clear_response;
    record[29] = config->open_rx;
    return write_operation(channel, record);
}

void lin_read_config(int channel, lin_config* config) {
    uint8_t record[LIN_OPERATION];
    const int fd = lin_open(channel);
    if (read(fd, record, sizeof record) != sizeof record || word_at(record) != 0) {
        give_up("configuration of a LIN channel");
    }
    close(fd);
    *config = (lin_config){word_at(record + 8),
                           word_at(record + 12),
                           word_at(record + 16),
                           word_at(record + 20),
                           word_at(record + 24),
                           record[28],
                           record[29]};
}

const uint8_t* lin_records(int channel) {
    static const uint8_t* mapped[LIN_CHANNELS];
    if (!mapped[channel]) {
        const int fd = lin_open(channel);
        const void* memory = mmap(NULL, LIN_MAPPED, PROT_READ, MAP_SHARED, fd, 0);
        close(fd);
        if (memory == MAP_FAILED) {
            give_up("records of a LIN channel");
        }
        mapped[channel] = memory;
    }
    return mapped[channel];
}

int lin_set_link(int channel, bool up) {
    char name[IFNAMSIZ];
    snprintf(name, sizeof name, "LIN%d", channel);
    return set_link(name, up);
}

void lin_begin(uint32_t mode0, uint32_t mode1) {
    const uint32_t modes[LIN_CHANNELS] = {mode0, mode1};
    lin_end();
    for (int i = 0; i < LIN_CHANNELS; i++) {
        const lin_config config = {.version = 2, .mode = modes[i], .bitrate = 19200, .open_rx = 1};
        CHECK(lin_set_link(i, true) == 0);
        CHECK(lin_configure(i, &config) == 0);
    }
    CHECK(control_write("lin/trace", "clear") == 0);
}

void lin_end(void) {
    for (int i = 0; i < LIN_CHANNELS; i++) {
        CHECK(lin_set_link(i, false) == 0);
    }
    CHECK(control_write("lin/reset", "1") == 0);
}

// --- frames

int lin_socket(int channel) {
    char interface[IFNAMSIZ];
    struct sockaddr_can name = {.can_family = AF_CAN};
    const int fd = socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, CAN_RAW);
    const int on = 1;
    snprintf(interface, sizeof interface, "LIN%d", channel);
    name.can_ifindex = (int)if_nametoindex(interface);
    if (fd < 0 || setsockopt(fd, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &on, sizeof on) != 0 ||
        bind(fd, (struct sockaddr*)&name, sizeof name) != 0) {
        give_up("raw socket of a LIN channel");
    }
    return fd;
}

int lin_send(int fd, const lin_message* message) {
    struct canfd_frame frame = {.can_id = message->pid, .len = MESSAGE};
    uint8_t* data = frame.data;
    put_word(data, message->type);
    data[4] = message->active;
    data[8] = message->pid;
    data[9] = message->dlc;
    data[10] = message->sync;
    put_hex(data + 12, message->data ? message->data : "");
    data[20] = message->break_length;
    data[21] = message->delimiter;
    data[22] = message->inter_byte;
    memcpy(data + 23, message->before, sizeof message->before);
    put_word(data + 32, message->header_rate);
    put_word(data + 36, message->response_rate);
    return write(fd, &frame, sizeof frame) == sizeof frame ? 0 : errno;
}

int lin_send_plain(int fd, uint8_t pid, const char* data) {
    const lin_message message = {.type = data ? WITH_RESPONSE : ONLY_COMMAND,
                                 .active = data != NULL,
                                 .pid = pid,
                                 .dlc = data ? (uint8_t)(strlen(data) / 2) : 8,
                                 .sync = 0x55,
                                 .data = data};
    return lin_send(fd, &message);
}

// --- what the wires saw

static size_t read_trace(lin_line* lines, size_t room) {
    static char text[TRACE_TEXT_MAX];
    size_t count = 0;
    control_read("lin/trace", text, sizeof text);
    for (char* line = strtok(text, "\n"); line; line = strtok(NULL, "\n")) {
        lin_line to;
        if (sscanf(line, "%llu %llu %llu %7s %7s %7s %7s %23s %7s %63s", &to.queued_ns,
                   &to.start_ns, &to.end_ns, to.bus, to.sender, to.pid, to.responder, to.data,
                   to.checksum, to.result) == 10) {
            if (count < room) {
                lines[count] = to;
            }
            count++;
        }
    }
    return count;
}

size_t lin_wait_trace(lin_line* lines, size_t room, size_t wanted) {
    size_t count = read_trace(lines, room);
    for (int waited = 0; count < wanted && waited < PATIENCE_MS; waited += 5) {
        usleep(5000);
        count = read_trace(lines, room);
    }
    return count;
}

bool lin_line_is(const lin_line* line, const char* text) {
    char all[160];
    snprintf(all, sizeof all, "%s %s %s %s %s %s %s", line->bus, line->sender, line->pid,
             line->responder, line->data, line->checksum, line->result);
    if (strcmp(all, text) != 0) {
        printf("# the wire saw: %s\n", all);
        return false;
    }
    return true;
}

// Device time has steps of 10 ns.
bool lin_took(const lin_line* line, unsigned int bits, unsigned int rate) {
    const long long took = (long long)(line->end_ns - line->start_ns);
    const long long wanted = (long long)bits * 1000000000LL / rate;
    return llabs(took - wanted) <= 10;
}

// The channel's line of the state file, with a space at its end.
static const char* state_line(int channel) {
    static char line[512];
    char text[2048];
    char name[8];
    const char* begin;
    control_read("lin/state", text, sizeof text);
    snprintf(name, sizeof name, "lin%d ", channel);
    begin = strstr(text, name);
    snprintf(line, sizeof line, "%.*s ", (int)strcspn(begin, "\n"), begin);
    return line;
}

bool lin_state_has(int channel, const char* word) {
    char spaced[64];
    snprintf(spaced, sizeof spaced, " %s ", word);
    return strstr(state_line(channel), spaced) != NULL;
}

long long lin_state_value(int channel, const char* name) {
    char start[64];
    const char* found;
    snprintf(start, sizeof start, " %s=", name);
    found = strstr(state_line(channel), start);
    return found ? atoll(found + strlen(start)) : -1;
}

int lin_capture(void) {
    const int on = 1;
    const int room = 8 << 20;
    const int fd = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_ALL));
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0) {
        give_up("packet socket");
    }
    return fd;
}

static int channel_of(int index) {
    char name[IF_NAMESIZE];
    if (!if_indextoname((unsigned int)index, name) || strncmp(name, "LIN", 3) != 0) {
        return -1;
    }
    return name[3] - '0';
}

bool lin_next_packet(int fd, lin_packet* packet, int timeout_ms) {
    while (poll_events(fd, POLLIN, timeout_ms)) {
        _Alignas(struct cmsghdr) char control[256];
        struct sockaddr_ll from = {0};
        struct timespec stamp = {0};
        struct iovec data = {.iov_base = packet->bytes, .iov_len = sizeof packet->bytes};
        struct msghdr message = {.msg_name = &from,
                                 .msg_namelen = sizeof from,
                                 .msg_iov = &data,
                                 .msg_iovlen = 1,
                                 .msg_control = control,
                                 .msg_controllen = sizeof control};
        const ssize_t got = recvmsg(fd, &message, 0);
        const struct cmsghdr* part = CMSG_FIRSTHDR(&message);
        if (got < 0 || !part) {
            give_up("packet socket");
        }
        // What the application sends is seen by a capture as well.
        packet->channel = channel_of(from.sll_ifindex);
        if (packet->channel < 0 || from.sll_pkttype == PACKET_OUTGOING) {
            continue;
        }
        memcpy(&stamp, CMSG_DATA(part), sizeof stamp);
        packet->stamp_ns =
            (unsigned long long)stamp.tv_sec * 1000000000ULL + (unsigned long long)stamp.tv_nsec;
        packet->protocol = ntohs(from.sll_protocol);
        packet->size = (size_t)got;
        return true;
    }
    return false;
}

const uint8_t* lin_next_record(int fd, lin_packet* packet) {
    if (!lin_next_packet(fd, packet, 2000) || packet->size != 16 ||
        packet->bytes[14] >= LIN_RECORDS) {
        errno = ENODATA;
        give_up("packet of a LIN channel");
    }
    return lin_records(packet->channel) + (size_t)packet->bytes[14] * LIN_RECORD;
}
