#pragma once

#include "utils/UniqueFd.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// Reads and writes words at scattered physical addresses. One page stays mapped between accesses:
// a cache of one entry for code whose registers lie far apart. Not safe from two threads at once,
// since they would share that page.
class DevMemUtil {
  public:
    // The instance over /dev/mem, made at the first call; a program that means to fail early calls
    // this once at its start. Throws std::runtime_error when /dev/mem does not open.
    static std::shared_ptr<DevMemUtil> GetInstance();

    // Over another file than /dev/mem, whose offsets then stand for the addresses: for tests on a
    // machine without the board. Throws std::runtime_error when it does not open.
    explicit DevMemUtil(const std::string& device);
    ~DevMemUtil();
    DevMemUtil(const DevMemUtil&) = delete;
    DevMemUtil& operator=(const DevMemUtil&) = delete;

    // Read or write the word at `address`, in bytes. Throw std::runtime_error when it is not a
    // multiple of 4 or its page cannot be mapped.
    uint32_t Read(uintptr_t address);
    void Write(uintptr_t address, uint32_t value);

    // Maps the page that starts at `page` in place of the one at hand. Throws std::runtime_error
    // with the number of errno when that fails; no page is mapped then.
    void RemapPage(uintptr_t page);

  private:
    volatile uint32_t* Word(uintptr_t address);
    void Unmap();

    UniqueFd fd;
    void* currentMap_;
    uintptr_t currentPage_ = 0;
    size_t pageSize_;
};
