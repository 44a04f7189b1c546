#include "drivers/LinDriver.h"

#include "utils/Console.h"

#include <cstdio>

#include <libsocketcan.h>
#include <unistd.h>

namespace Drivers {

namespace {

constexpr int kMode = 0;
constexpr int kOpenRx = 1;
constexpr int kClearResponse = 2;

// What a driver leaves out of the record reads as 0.
int ReadConfig(int fd, lin_operation& record) {
    record = lin_operation{}; // the first word asks for LIN_CONFIG
    if (read(fd, &record, sizeof(record)) < 0) {
        perror("read");
        return -1;
    }
    return 0;
}

int WriteRecord(int fd, const lin_operation& record) {
    if (write(fd, &record, sizeof(record)) < 0) {
        perror("write");
        return -1;
    }
    return 0;
}

} // namespace

int LinDriver::Open() {
    if (can_do_start(devName_.c_str()) < 0) {
        PrintLine("lin can_do_start communication fail");
        return -1;
    }
    return 0;
}

int LinDriver::Close() {
    if (can_do_stop(devName_.c_str()) < 0) {
        PrintLine("lin can_do_stop communication fail");
        return -1;
    }
    return 0;
}

int LinDriver::ChannelCfg(int fd, const lin_operation* op) const {
    lin_operation record;
    if (ReadConfig(fd, record) < 0) {
        return -1;
    }
    // The mode is ParmCfg's, and outlives a new bit rate.
    record.data.config.lversion = op->data.config.lversion;
    record.data.config.psupply = op->data.config.psupply;
    record.data.config.bitrate = op->data.config.bitrate;
    return WriteRecord(fd, record);
}

int LinDriver::ParmCfg(int fd, int param, int value) const {
    lin_operation record;
    if (ReadConfig(fd, record) < 0) {
        return -1;
    }
    lin_config_data& config = record.data.config;
    switch (param) {
    case kMode:
        config.lmode = static_cast<lin_mode>(value);
        break;
    case kOpenRx:
        config.open_rx = static_cast<uint8_t>(value);
        break;
    case kClearResponse:
        config.clear_response = static_cast<uint8_t>(value);
        break;
    default:
        return -1;
    }
    return WriteRecord(fd, record);
}

int LinDriver::OperationCfg(int fd, const lin_operation* op) const {
    return WriteRecord(fd, *op);
}

} // namespace Drivers
