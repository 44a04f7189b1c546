#pragma once

#include <string>
#include <string_view>

namespace vcihost {

// The text with a question mark for each control character and each byte that is no UTF-8: words of
// a foreign file must not command the terminal that they are shown on. A pure function, safe from
// any thread.
std::string Printable(std::string_view text);

} // namespace vcihost
