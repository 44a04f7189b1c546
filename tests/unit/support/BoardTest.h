#pragma once

#include "doubles/MemoryBoard.h"
#include "doubles/MemoryUsb.h"
#include "drivers/UsbDriver.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using Bytes = std::vector<uint8_t>;

// A test on a board in memory: registers, GPIO chips and the USB link, fresh for each test.
class BoardTest : public testing::Test {
  protected:
    BoardTest() {
        board.Reset();
        usb.Reset();
        Drivers::UsbDriver::GetInstance(); // maps the rings of `usb` on first use
    }

    // Every message that waits for the host.
    std::vector<Bytes> Answers() {
        std::vector<Bytes> answers;
        while (auto message = usb.HostRead()) {
            answers.push_back(std::move(*message));
        }
        return answers;
    }

    // The only message that waits for the host; empty, and a failure, when there is not just one.
    Bytes Answer() {
        auto answers = Answers();
        EXPECT_EQ(answers.size(), 1U);
        return answers.size() == 1 ? answers.front() : Bytes{};
    }

    // A frame around a service section, as a host builds it.
    static Bytes Frame(const Bytes& service, uint32_t handle = 0) {
        Bytes frame((service.size() + 11 + 3) / 4 * 4);
        for (int i = 0; i < 4; ++i) {
            frame.at(1 + static_cast<size_t>(i)) = static_cast<uint8_t>(service.size() >> 8 * i);
            frame.at(5 + service.size() + static_cast<size_t>(i)) =
                static_cast<uint8_t>(handle >> 8 * i);
        }
        std::copy(service.begin(), service.end(), frame.begin() + 5);
        return frame;
    }

    MemoryBoard& board = MemoryBoard::Instance();
    MemoryUsb& usb = MemoryUsb::Instance();
};
