#include "utils/Exception.h"

#include <gtest/gtest.h>

namespace {

TEST(NV_Exception, IsAStandardExceptionThatTellsItsText) {
    try {
        throw NV_Exception("no such program: /usr/bin/VciDoip");
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "no such program: /usr/bin/VciDoip");
    }
}

} // namespace
