#include "vcihost/CanFilter.h"

#include "vcihost/Notation.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

CanFrameRecord Frame(uint32_t id, bool extended = false, bool remote = false) {
    CanFrameRecord record{};
    record.id = id;
    record.extended = extended;
    record.remote = remote;
    return record;
}

// Whether the filters of can0 let a frame through.
bool Passes(const std::string& filters, const CanFrameRecord& record) {
    return CanFilters::Parse({"can0" + filters}).Passes(record);
}

using Channels = std::vector<uint8_t>;

TEST(CanFilter, ChannelsStandAsTheyAreNamed) {
    EXPECT_EQ(CanFilters::Parse({}).Channels(), (Channels{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(CanFilters::Parse({"any"}).Channels(), (Channels{0, 1, 2, 3, 4, 5}));
    const auto filters = CanFilters::Parse({"can3,123:7FF", "0", "9"});
    EXPECT_EQ(filters.Channels(), (Channels{3, 0, 1}));
    EXPECT_TRUE(filters.Has(3));
    EXPECT_FALSE(filters.Has(2));
}

TEST(CanFilter, WithoutFiltersEverythingPasses) {
    EXPECT_TRUE(Passes("", Frame(0x7FF)));
    EXPECT_TRUE(Passes(",#0", Frame(0x7FF)));
    EXPECT_TRUE(CanFilters::Parse({"can0"}).Passes(CanErrorRecord{}));
}

TEST(CanFilter, AgreesInTheBitsOfTheMask) {
    EXPECT_TRUE(Passes(",123:7FF", Frame(0x123)));
    EXPECT_FALSE(Passes(",123:7FF", Frame(0x124)));
    EXPECT_TRUE(Passes(",123:7F0", Frame(0x124)));
    EXPECT_TRUE(Passes(",123:7FF", Frame(0x123, true)));
    EXPECT_TRUE(Passes(",123:7FF", Frame(0x123, false, true)));
    EXPECT_FALSE(Passes(",123:C00007FF", Frame(0x123, true)));
    EXPECT_FALSE(Passes(",123:C00007FF", Frame(0x123, false, true)));
    EXPECT_TRUE(Passes(",123:C00007FF", Frame(0x123)));
}

TEST(CanFilter, EightDigitsAreAnExtendedIdentifier) {
    EXPECT_TRUE(Passes(",12345678:DFFFFFFF", Frame(0x12345678, true)));
    EXPECT_TRUE(Passes(",00000123:DFFFFFFF", Frame(0x123, true)));
    EXPECT_FALSE(Passes(",00000123:DFFFFFFF", Frame(0x123)));
}

TEST(CanFilter, OneOfSeveralIsEnough) {
    EXPECT_TRUE(Passes(",123:7FF,400:700", Frame(0x123)));
    EXPECT_TRUE(Passes(",123:7FF,400:700", Frame(0x4AB)));
    EXPECT_FALSE(Passes(",123:7FF,400:700", Frame(0x5AB)));
}

TEST(CanFilter, InvertedAndJoined) {
    EXPECT_FALSE(Passes(",123~7FF", Frame(0x123)));
    EXPECT_TRUE(Passes(",123~7FF", Frame(0x124)));
    EXPECT_TRUE(Passes(",123~7FF,124~7FF", Frame(0x123)));
    EXPECT_FALSE(Passes(",123~7FF,124~7FF,j", Frame(0x123)));
    EXPECT_FALSE(Passes(",J,123~7FF,124~7FF", Frame(0x124)));
    EXPECT_TRUE(Passes(",123~7FF,124~7FF,j", Frame(0x125)));
}

TEST(CanFilter, ErrorsAreChosenByTheirClass) {
    EXPECT_FALSE(CanFilters::Parse({"can0,#0"}).Passes(CanErrorRecord{}));
    EXPECT_TRUE(CanFilters::Parse({"can0,#8"}).Passes(CanErrorRecord{}));
    EXPECT_FALSE(CanFilters::Parse({"can0,#40"}).Passes(CanErrorRecord{}));
    EXPECT_TRUE(CanFilters::Parse({"any,0~0,#FFFFFFFF"}).Passes(CanErrorRecord{}));
    EXPECT_FALSE(Passes(",0~0,#FFFFFFFF", Frame(0x123)));
    EXPECT_TRUE(CanFilters::Parse({"can0,123:7FF"}).Passes(CanErrorRecord{}));
}

std::string ErrorOf(const std::vector<std::string>& arguments) {
    try {
        CanFilters::Parse(arguments);
    } catch (const NotationError& error) {
        return error.what();
    }
    return "";
}

TEST(CanFilter, WrongWordsAreNamed) {
    EXPECT_EQ(ErrorOf({"can0,123"}), "'can0,123': '123' is no filter; write id:mask, id~mask, "
                                     "#errormask or j, all in hex, as in can0,123:7FF,400~700");
    for (const char* const text : {"can0,", "can0,:7FF", "can0,123:", "can0,12x:7FF", "can0,#",
                                   "can0,123:7FF,,", "can0,123456789:1", "can0,-1:7FF"}) {
        // A comma behind the last filter ends it; a comma alone has none in front of it.
        const bool fine = std::string(text) == "can0,";
        EXPECT_EQ(ErrorOf({text}).empty(), fine) << text;
    }
    EXPECT_NE(ErrorOf({"can6"}).find("'can6' is no CAN channel"), std::string::npos);
    EXPECT_EQ(ErrorOf({"can0,123:7FF", "8,400:700"}),
              "'8,400:700' names can0 a second time; write all its filters behind the first, as in "
              "can0,123:7FF,400:700");
    EXPECT_NE(ErrorOf({"any", "can3"}).find("names can3 a second time"), std::string::npos);
}

} // namespace
