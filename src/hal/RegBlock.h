#pragma once

#include "hal/IRegAccess.h"

#include <cstddef>

namespace Hal {

// The register operations over any mapped block of words; a derived class brings the block.
class RegBlock : public IRegAccess {
  public:
    int WriteBit(uint32_t offset, uint8_t bit, bool value) override;
    int ReadBit(uint32_t offset, uint8_t bit, bool& value) override;
    int Write(uint32_t offset, uint32_t value) override;
    int Read(uint32_t offset, uint32_t& value) override;
    int WriteRegion(uint32_t offset, uint8_t startBit, uint8_t endBit, uint32_t value) override;
    int ReadRegion(uint32_t offset, uint8_t startBit, uint8_t endBit, uint32_t& value) override;

    // True when `width` bytes at `offset` lie inside the block.
    bool CheckOffset(uint32_t offset, uint32_t width) const;

  protected:
    volatile uint8_t* mappedBase_ = nullptr;
    uint32_t size_ = 0; // bytes

  private:
    volatile uint32_t* Word(uint32_t offset) const;
};

} // namespace Hal
