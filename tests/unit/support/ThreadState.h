#pragma once

#include <fstream>
#include <string>

#include <sys/types.h>

// True when a thread of this process sleeps in a system call.
inline bool Sleeps(pid_t thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(stat, text);
    const size_t name = text.rfind(") ");
    return name != std::string::npos && text.compare(name + 2, 1, "S") == 0;
}
