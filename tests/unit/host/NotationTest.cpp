#include "vcihost/Notation.h"

#include "vcihost/CanChannel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace vcihost;
using namespace std::chrono_literals;

namespace {

// What the error says.
template <typename Parse> std::string Fault(Parse parse) {
    try {
        parse();
    } catch (const NotationError& error) {
        return error.what();
    }
    return "no error";
}

TEST(Notation, BitRates) {
    EXPECT_DOUBLE_EQ(ParseBitRate("", "500000"), 500e3);
    EXPECT_DOUBLE_EQ(ParseBitRate("", "500k"), 500e3);
    EXPECT_DOUBLE_EQ(ParseBitRate("", "125K"), 125e3);
    EXPECT_DOUBLE_EQ(ParseBitRate("", "2M"), 2e6);
    EXPECT_DOUBLE_EQ(ParseBitRate("", "83.333k"), 83333);
    EXPECT_DOUBLE_EQ(ParseBitRate("", "0.5M"), 500e3);
}

TEST(Notation, WhatIsNoBitRate) {
    EXPECT_EQ(Fault([] { ParseBitRate("--bitrate", "fast"); }),
              "--bitrate: 'fast' is no bit rate; write 500000, 500k or 2M");
    for (const char* const text : {"", "k", "0", "-5", "-0", "500 k", "500kk", "5e5", "nan", "inf",
                                   "infk", "2G", "9999M", "+5"}) {
        EXPECT_THROW(ParseBitRate("", text), NotationError) << text;
    }
}

TEST(Notation, SamplePoints) {
    EXPECT_DOUBLE_EQ(ParseSamplePoint("", "80%"), 0.8);
    EXPECT_DOUBLE_EQ(ParseSamplePoint("", "0.8"), 0.8);
    EXPECT_DOUBLE_EQ(ParseSamplePoint("", ".8"), 0.8);
    EXPECT_DOUBLE_EQ(ParseSamplePoint("", "87.5%"), 0.875);
    EXPECT_EQ(Fault([] { ParseSamplePoint("--sample-point", "80"); }),
              "--sample-point: '80' is no sample point; write 80% or 0.8");
    for (const char* const text : {"0", "1", "100%", "0%", "-.5", "80 %", ""}) {
        EXPECT_THROW(ParseSamplePoint("", text), NotationError) << text;
    }
}

TEST(Notation, DurationsNeedTheirUnit) {
    EXPECT_EQ(ParseDuration("", "200us"), 200us);
    EXPECT_EQ(ParseDuration("", "10ms"), 10ms);
    EXPECT_EQ(ParseDuration("", "1.5s"), 1500ms);
    EXPECT_EQ(ParseDuration("", "0us"), 0us);
    EXPECT_EQ(Fault([] { ParseDuration("period", "10"); }),
              "period: '10' is no time; write it with its unit, as 200us, 10ms or 1s");
    for (const char* const text : {"", "ms", "-1ms", "10 ms", "10m", "86401s", "1e300s"}) {
        EXPECT_THROW(ParseDuration("", text), NotationError) << text;
    }
}

TEST(Notation, BitRatesInWords) {
    EXPECT_EQ(BitRateText(500e3), "500k");
    EXPECT_EQ(BitRateText(2e6), "2M");
    EXPECT_EQ(BitRateText(83333.333), "83.3333k");
    EXPECT_EQ(BitRateText(999), "999");
}

TEST(CanChannel, HasThreeSpellings) {
    EXPECT_EQ(ParseCanChannel("can0"), 0);
    EXPECT_EQ(ParseCanChannel("can5"), 5);
    EXPECT_EQ(ParseCanChannel("0"), 0);
    EXPECT_EQ(ParseCanChannel("5"), 5);
    EXPECT_EQ(ParseCanChannel("8"), 0);
    EXPECT_EQ(ParseCanChannel("13"), 5);
    EXPECT_EQ(CanChannelName(3), "can3");
}

TEST(CanChannel, OthersAreRefusedWithWhatThereIs) {
    EXPECT_EQ(Fault([] { ParseCanChannel("can6"); }),
              "'can6' is no CAN channel; there are can0 to can5, or 0 to 5, or 8 to 13 as requests "
              "number them");
    for (const char* const text : {"", "6", "7", "14", "can", "can00", "lin0", "CAN0", "-1"}) {
        EXPECT_THROW(ParseCanChannel(text), NotationError) << text;
    }
}

} // namespace
