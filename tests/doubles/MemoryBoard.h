#pragma once

#include "hal/IHalGpio.h"
#include "hal/IMachine.h"
#include "hal/RegBlock.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// A register block in memory.
class MemoryRegAccess : public Hal::RegBlock {
  public:
    explicit MemoryRegAccess(size_t size);

    int Write(uint32_t offset, uint32_t value) override;
    int Read(uint32_t offset, uint32_t& value) override;

    uint32_t Word(uint32_t offset) const;
    void SetWord(uint32_t offset, uint32_t value);
    void Reset(); // all words 0, writes succeed, none counted

    bool failWrites = false;
    std::function<void(uint32_t offset)> afterRead;    // what the hardware does next
    std::function<void(uint32_t offset)> beforeWrite;  // a look at things as they are
    std::vector<std::pair<uint32_t, uint32_t>> writes; // offset and value, in order

  private:
    std::vector<uint32_t> words_;
};

// A GPIO chip in memory.
class MemoryGpio : public Hal::IHalGpio {
  public:
    int Write(uint32_t pin, int value) override;
    int Read(uint32_t pin, int& value) override;

    std::map<uint32_t, int> levels;
    std::vector<std::pair<uint32_t, int>> writes; // pin and level, in order
};

// A machine to which nothing is done. What it was asked for stands here, for the test to read.
class MemoryMachine : public Hal::IMachine {
  public:
    void Sync() override { Take("sync"); }
    int Reboot(int command) override;
    int Raise(int signal) override;

    std::vector<std::string> calls; // by name, with the argument in decimal, in order
    std::function<void()> onCall;   // what is to be looked at before each
    int rebootResult = 0;

  private:
    void Take(const std::string& call);
};

// All register blocks and chips that the program asks for, and the machine, kept for the life of
// the process, since singletons hold on to theirs.
class MemoryBoard {
  public:
    // The first call puts the memory classes in place of the board's.
    static MemoryBoard& Instance();

    MemoryRegAccess& Registers(uint32_t base);
    MemoryGpio& Gpio(const std::string& chipName);
    MemoryMachine& Machine() { return *machine_; }

    // As after power-up. The objects stay.
    void Reset();

    // Sets the 100 MHz counter of the device time.
    void SetCounter(uint64_t ticks);

  private:
    MemoryBoard();

    std::map<uint32_t, std::shared_ptr<MemoryRegAccess>> blocks_;
    std::map<std::string, std::shared_ptr<MemoryGpio>> chips_;
    std::shared_ptr<MemoryMachine> machine_ = std::make_shared<MemoryMachine>();
};
