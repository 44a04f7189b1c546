#include "utils/DelLinkRequest.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Copy(std::span<const uint8_t> message) {
    return {message.begin(), message.end()};
}

// All numbers are in the byte order of the machine, here little-endian.
TEST(DelLinkRequest, ALongNameAndThenAShortOneInOneBuffer) {
    DelLinkRequest request(0x00012345);

    const Bytes longName{
        0x34, 0x00, 0x00, 0x00, // length 52
        0x11, 0x00,             // RTM_DELLINK
        0x05, 0x00,             // request, acknowledged
        0x01, 0x00, 0x00, 0x00, // sequence
        0x45, 0x23, 0x01, 0x00, // port
        0x00, 0x00, 0x00, 0x00, // family, padding, type
        0x2a, 0x01, 0x00, 0x00, // index 298
        0x00, 0x00, 0x00, 0x00, // flags
        0x00, 0x00, 0x00, 0x00, // change
        0x14, 0x00,             // attribute length 20
        0x03, 0x00,             // IFLA_IFNAME
        'l',  'o',  'n',  'g',  'e', 'r', '-', 'n', 'a', 'm', 'e', '-', '1', '5', 'b', 0x00,
    };
    EXPECT_EQ(Copy(request.Fill("longer-name-15b", 298, 1)), longName);

    const Bytes shortName{
        0x28, 0x00, 0x00, 0x00, // length 40
        0x11, 0x00,             // RTM_DELLINK
        0x05, 0x00,             // request, acknowledged
        0x02, 0x00, 0x00, 0x00, // sequence
        0x45, 0x23, 0x01, 0x00, // port
        0x00, 0x00, 0x00, 0x00, // family, padding, type
        0x07, 0x00, 0x00, 0x00, // index
        0x00, 0x00, 0x00, 0x00, // flags
        0x00, 0x00, 0x00, 0x00, // change
        0x07, 0x00,             // attribute length 7
        0x03, 0x00,             // IFLA_IFNAME
        'v',  '0',  0x00,       // the name and its terminator
        'g',                    // padding: what the longer name left
    };
    EXPECT_EQ(Copy(request.Fill("v0", 7, 2)), shortName);
}

TEST(DelLinkRequest, APaddedNameInAFreshBufferIsFilledUpWithZeros) {
    DelLinkRequest request(1);
    const Bytes message{
        0x28, 0x00, 0x00, 0x00, 0x11, 0x00, 0x05, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01, 0x00,
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
        0x00, 0x00, 0x00, 0x00, 0x06, 0x00, 0x03, 0x00, 'a',  0x00, 0x00, 0x00,
    };
    EXPECT_EQ(Copy(request.Fill("a", 2, 3)), message);
}

TEST(DelLinkRequest, WhatNoInterfaceNameHasRoomForIsLeftOut) {
    DelLinkRequest first(1);
    DelLinkRequest second(1);
    EXPECT_EQ(Copy(first.Fill("longer-name-15b" + std::string(5000, 'x'), 2, 3)),
              Copy(second.Fill("longer-name-15b", 2, 3)));
}

} // namespace
