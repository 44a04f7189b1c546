#include "doubles/ThreadCost.h"
#include "utils/Logger.h"

#include <string>
#include <thread>

#include <gtest/gtest.h>

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
        const size_t atStart = ThreadAllocations();
        VCI_LOG_INFO << "first";
        const size_t afterFirst = ThreadAllocations();
        for (int i = 0; i < 1000; ++i) {
            VCI_LOG_INFO << "channel " << i << ' ' << true << ' ' << 12.5 << ' ' << text;
        }
        first = afterFirst - atStart;
        later = ThreadAllocations() - afterFirst;
    }).join();
    limlog::singleton()->setOutput(limlog::StdoutWriter::mywrite);
    EXPECT_EQ(first > 0, ThreadCostIsCounted());
    EXPECT_EQ(later, 0U);
}

} // namespace
