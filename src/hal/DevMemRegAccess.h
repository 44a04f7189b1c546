#pragma once

#include "hal/RegBlock.h"
#include "utils/UniqueFd.h"

#include <sys/types.h>

namespace Hal {

// A register block of the FPGA, mapped from /dev/mem. Where the mapping fails, on a machine without
// the board, the object stays usable and every operation answers -1.
class DevMemRegAccess : public RegBlock {
  public:
    // `base`: physical address, a multiple of the page size; `size`: bytes.
    DevMemRegAccess(off_t base, size_t size);
    ~DevMemRegAccess() override;
    DevMemRegAccess(const DevMemRegAccess&) = delete;
    DevMemRegAccess& operator=(const DevMemRegAccess&) = delete;

  private:
    UniqueFd devMemFd_;
    uint32_t baseAddress_;
};

} // namespace Hal
