#pragma once

#include <cstdio>
#include <string_view>

// Writes `text` and a line feed to standard output, which in the daemon is the serial console, and
// flushes: the line must be there even if the next statement ends the process. Any thread; lines of
// different threads do not mix.
inline void PrintLine(std::string_view text) {
    flockfile(stdout);
    fwrite(text.data(), 1, text.size(), stdout);
    fputc('\n', stdout);
    fflush(stdout);
    funlockfile(stdout);
}
