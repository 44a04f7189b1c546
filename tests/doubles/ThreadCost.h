#pragma once

#include <cstddef>

// What a stretch of code costs the thread that runs it. A program that calls one of these gets
// operators new and a pthread_mutex_lock that count, and otherwise do what they did.

// How often this thread has allocated memory with `new`.
size_t ThreadAllocations();

// How often this thread has locked a mutex from the program's own code, which includes the C++
// standard library's headers and not what the C library does inside.
size_t ThreadMutexLocks();

// False under ThreadSanitizer, which brings the same functions itself: all counts stay 0 there.
bool ThreadCostIsCounted();
