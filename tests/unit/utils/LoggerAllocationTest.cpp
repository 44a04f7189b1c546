#include "utils/Logger.h"

#include <cstdlib>
#include <new>
#include <string>
#include <thread>

#include <gtest/gtest.h>

// ThreadSanitizer brings these operators itself and lets nobody replace them: nothing is counted
// then.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VCI_TEST_HAS_OWN_NEW 1
#endif
#endif

#ifndef VCI_TEST_HAS_OWN_NEW

namespace {

// How often this thread has allocated memory.
thread_local constinit size_t allocations = 0;

void* Allocate(size_t size) noexcept {
    ++allocations;
    return std::malloc(size != 0 ? size : 1);
}

} // namespace

// These replace the operators of the whole test program, which otherwise do the same.
void* operator new(size_t size) {
    if (void* const memory = Allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new[](size_t size) {
    return operator new(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}

namespace {

ssize_t Drop(const char*, size_t length) {
    return static_cast<ssize_t>(length);
}

TEST(LoggerAllocation, OnlyTheFirstLineOfAThreadAllocates) {
    limlog::singleton()->setOutput(Drop);
    const std::string text(1000, 'a');
    size_t first = 0;
    size_t later = 0;
    std::thread([&] {
        const size_t atStart = allocations;
        VCI_LOG_INFO << "first";
        const size_t afterFirst = allocations;
        for (int i = 0; i < 1000; ++i) {
            VCI_LOG_INFO << "channel " << i << ' ' << true << ' ' << 12.5 << ' ' << text;
        }
        first = afterFirst - atStart;
        later = allocations - afterFirst;
    }).join();
    limlog::singleton()->setOutput(limlog::StdoutWriter::mywrite);
    EXPECT_GT(first, 0U);
    EXPECT_EQ(later, 0U);
}

} // namespace

#endif
