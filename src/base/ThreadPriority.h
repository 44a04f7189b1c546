#pragma once

#include <thread>

#include <pthread.h>
#include <sched.h>

// SCHED_FIFO of the highest priority. Where the process has no right to it the thread keeps its
// own: late is better than not at all.
inline void SetHighestPriority(std::thread& thread) {
    const sched_param highest{sched_get_priority_max(SCHED_FIFO)};
    static_cast<void>(pthread_setschedparam(thread.native_handle(), SCHED_FIFO, &highest));
}
