#include "doubles/ThreadCost.h"

#include <cstdlib>
#include <new>

#include <dlfcn.h>
#include <pthread.h>

#if defined(__SANITIZE_THREAD__)
#define VCI_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VCI_THREAD_SANITIZER 1
#endif
#endif

namespace {

thread_local constinit size_t allocations = 0;
thread_local constinit size_t mutexLocks = 0;

} // namespace

size_t ThreadAllocations() {
    return allocations;
}

size_t ThreadMutexLocks() {
    return mutexLocks;
}

#ifdef VCI_THREAD_SANITIZER

bool ThreadCostIsCounted() {
    return false;
}

#else

bool ThreadCostIsCounted() {
    return true;
}

// Not inlined: the compiler would otherwise see malloc() and free() and take them for a mismatch.
[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t&) noexcept {
    ++allocations;
    return std::malloc(size != 0 ? size : 1);
}
[[gnu::noinline]] void* operator new(size_t size) {
    if (void* const memory = operator new(size, std::nothrow)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new[](size_t size) {
    return operator new(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return operator new(size, std::nothrow);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    using Lock = int (*)(pthread_mutex_t*);
    static const auto next = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    ++mutexLocks;
    return next(mutex);
}

#endif
