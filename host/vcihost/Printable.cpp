#include "vcihost/Printable.h"

#include <algorithm>
#include <cstdint>

namespace vcihost {

namespace {

// Bytes of the first character of the text; 0 for a control character, and for what is none.
size_t CharacterSize(std::string_view text) {
    const auto lead = static_cast<uint8_t>(text[0]);
    if (lead < 0x80) {
        return lead < 0x20 || lead == 0x7F ? 0 : 1;
    }
    const size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (text.size() < size || !std::all_of(text.begin() + 1, text.begin() + size, [](char each) {
            return (static_cast<uint8_t>(each) & 0xC0U) == 0x80;
        })) {
        return 0;
    }
    // Bytes that begin nothing, the second control characters, longer forms of shorter characters,
    // halves of pairs, what lies beyond the last character.
    const unsigned head = unsigned{lead} << 8U | static_cast<uint8_t>(text[1]);
    const bool none = head < 0xC2A0 || (head >= 0xE000 && head < 0xE0A0) ||
                      (head >= 0xEDA0 && head < 0xEE00) || (head >= 0xF000 && head < 0xF090) ||
                      head >= 0xF490;
    return none ? 0 : size;
}

} // namespace

std::string Printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const size_t size = CharacterSize(text);
        result += size == 0 ? "?" : text.substr(0, size);
        text.remove_prefix(std::max<size_t>(size, 1));
    }
    return result;
}

} // namespace vcihost
