#include "hal/GpiolibHalGpio.h"

#include <gpiod.h>

namespace Hal {

namespace {

constexpr const char* kConsumer = "gpiolib"; // shown by gpioinfo while a line is in use

constexpr int kNoChip = -1;
constexpr int kNoLine = -2;
constexpr int kOutputRefused = -3;
constexpr int kAccessFailed = -4;
constexpr int kInputRefused = -5;

} // namespace

GpiolibHalGpio::GpiolibHalGpio(const std::string& chipName)
    : chip_(gpiod_chip_open_by_name(chipName.c_str())) {}

GpiolibHalGpio::~GpiolibHalGpio() {
    if (chip_ != nullptr) {
        gpiod_chip_close(chip_);
    }
}

int GpiolibHalGpio::Write(uint32_t pin, int value) {
    if (chip_ == nullptr) {
        return kNoChip;
    }
    gpiod_line* line = gpiod_chip_get_line(chip_, pin);
    if (line == nullptr) {
        return kNoLine;
    }
    if (gpiod_line_request_output(line, kConsumer, 0) < 0) {
        gpiod_line_release(line);
        return kOutputRefused;
    }
    const int result = gpiod_line_set_value(line, value);
    gpiod_line_release(line);
    return result < 0 ? kAccessFailed : 0;
}

int GpiolibHalGpio::Read(uint32_t pin, int& value) {
    if (chip_ == nullptr) {
        return kNoChip;
    }
    gpiod_line* line = gpiod_chip_get_line(chip_, pin);
    if (line == nullptr) {
        return kNoLine;
    }
    if (gpiod_line_request_input(line, kConsumer) < 0) {
        gpiod_line_release(line);
        return kInputRefused;
    }
    value = gpiod_line_get_value(line);
    gpiod_line_release(line);
    return value < 0 ? kAccessFailed : 0;
}

} // namespace Hal
