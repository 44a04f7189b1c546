#pragma once

// The calling thread's kernel id, cached: the system call is made once a thread.
namespace ZephCurrentThread {

inline constinit thread_local int t_cachedTid = 0; // 0 until first asked

// Asks the kernel and fills the cache.
void cacheTid();

inline int tid() {
    if (t_cachedTid == 0) {
        cacheTid();
    }
    return t_cachedTid;
}

} // namespace ZephCurrentThread
