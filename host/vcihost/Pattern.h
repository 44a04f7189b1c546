#pragma once

#include "vcihost/Hex.h"

#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace vcihost {

// Bytes to be sent or expected, as conversation files write them: two hex digits for a byte, `..`
// for any byte, either of them followed by `*N` for N of it, and one `*` at the end for any rest,
// none included. Blanks may stand between. A plain value.
class Pattern {
  public:
    // Throws HexError.
    static Pattern Parse(std::string_view text);

    // Nothing when the bytes match; else the offset of the first byte that does not, which is the
    // number of bytes when there are too few of them.
    std::optional<size_t> Mismatch(std::span<const uint8_t> bytes) const;

    // The bytes themselves; nothing when the pattern leaves any of them open.
    std::optional<Bytes> Exact() const;

  private:
    std::vector<std::optional<uint8_t>> bytes_; // nothing for any byte
    bool anyRest_ = false;
};

} // namespace vcihost
