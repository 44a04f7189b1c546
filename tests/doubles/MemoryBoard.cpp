#include "doubles/MemoryBoard.h"

#include "drivers/CanManage.h"
#include "hal/HalFactory.h"

#include <algorithm>

namespace {

constexpr size_t kBlockSize = 0x10000; // the largest block of the board
constexpr uint32_t kTimeBlock = 0x81000000;
constexpr uint32_t kTimeLow = 0x24;
constexpr uint32_t kTimeHigh = 0x28;

} // namespace

MemoryRegAccess::MemoryRegAccess(size_t size) : words_(size / sizeof(uint32_t)) {
    mappedBase_ = reinterpret_cast<volatile uint8_t*>(words_.data());
    size_ = static_cast<uint32_t>(size);
    isValid_ = true;
}

int MemoryRegAccess::Write(uint32_t offset, uint32_t value) {
    if (beforeWrite) {
        beforeWrite(offset);
    }
    if (failWrites) {
        return -1;
    }
    writes.emplace_back(offset, value);
    return RegBlock::Write(offset, value);
}

int MemoryRegAccess::Read(uint32_t offset, uint32_t& value) {
    const int result = RegBlock::Read(offset, value);
    if (afterRead) {
        afterRead(offset);
    }
    return result;
}

uint32_t MemoryRegAccess::Word(uint32_t offset) const {
    return words_.at(offset / 4);
}

void MemoryRegAccess::SetWord(uint32_t offset, uint32_t value) {
    words_.at(offset / 4) = value;
}

void MemoryRegAccess::Reset() {
    std::fill(words_.begin(), words_.end(), 0);
    failWrites = false;
    afterRead = nullptr;
    beforeWrite = nullptr;
    writes.clear();
}

int MemoryGpio::Write(uint32_t pin, int value) {
    levels[pin] = value;
    writes.emplace_back(pin, value);
    return 0;
}

int MemoryGpio::Read(uint32_t pin, int& value) {
    value = levels[pin];
    return 0;
}

int MemoryMachine::Reboot(int command) {
    Take("reboot " + std::to_string(command));
    return rebootResult;
}

int MemoryMachine::Raise(int signal) {
    Take("raise " + std::to_string(signal));
    return 0;
}

void MemoryMachine::Take(const std::string& call) {
    if (onCall) {
        onCall();
    }
    calls.push_back(call);
}

MemoryBoard& MemoryBoard::Instance() {
    static MemoryBoard board;
    return board;
}

MemoryBoard::MemoryBoard() {
    Hal::SetHalMakers({
        [this](off_t base, size_t) {
            Registers(static_cast<uint32_t>(base));
            return blocks_.at(static_cast<uint32_t>(base));
        },
        [this](const std::string& chip) {
            Gpio(chip);
            return chips_.at(chip);
        },
        [this] { return machine_; },
    });
    // Without character devices, and leaving no file behind.
    Drivers::CanManage::GetInstance("/dev/null/can", "/dev/null");
}

MemoryRegAccess& MemoryBoard::Registers(uint32_t base) {
    auto& block = blocks_[base];
    if (!block) {
        block = std::make_shared<MemoryRegAccess>(kBlockSize);
    }
    return *block;
}

MemoryGpio& MemoryBoard::Gpio(const std::string& chipName) {
    auto& chip = chips_[chipName];
    if (!chip) {
        chip = std::make_shared<MemoryGpio>();
    }
    return *chip;
}

void MemoryBoard::Reset() {
    for (auto& [base, block] : blocks_) {
        block->Reset();
    }
    for (auto& [name, chip] : chips_) {
        *chip = MemoryGpio();
    }
    *machine_ = MemoryMachine();
}

void MemoryBoard::SetCounter(uint64_t ticks) {
    Registers(kTimeBlock).SetWord(kTimeLow, static_cast<uint32_t>(ticks));
    Registers(kTimeBlock).SetWord(kTimeHigh, static_cast<uint32_t>(ticks >> 32));
}
