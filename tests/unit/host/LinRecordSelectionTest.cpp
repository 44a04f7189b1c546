#include "vcihost/Notation.h"
#include "vcihost/RecordSelection.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

using Strings = std::vector<std::string>;

Strings Names(const Strings& arguments) {
    Strings names;
    const auto selection = RecordSelection::Parse(arguments);
    for (const RecordChannel& channel : selection.Channels()) {
        names.push_back(channel.Name());
    }
    return names;
}

std::string FaultOf(const Strings& arguments) {
    try {
        RecordSelection::Parse(arguments);
    } catch (const NotationError& error) {
        return error.what();
    }
    return "none";
}

TEST(LinRecordSelection, LinIsThereWhenItIsNamed) {
    const Strings can{"can0", "can1", "can2", "can3", "can4", "can5"};
    EXPECT_EQ(Names({}), can);
    EXPECT_EQ(Names({"any"}), can);
    EXPECT_EQ(Names({"lin1"}), Strings{"lin1"});
    EXPECT_EQ(Names({"lin1", "can3,123:7FF", "50", "8"}),
              (Strings{"can3", "can0", "lin1", "lin0"}));
    EXPECT_FALSE(RecordSelection::Parse({"can0"}).HasLin());
    const auto selection = RecordSelection::Parse({"can0", "lin1"});
    EXPECT_TRUE(selection.HasLin());
    EXPECT_TRUE(selection.Has({RecordChannel::Bus::Lin, 1}));
    EXPECT_FALSE(selection.Has({RecordChannel::Bus::Can, 1}));
    EXPECT_FALSE(selection.Has({RecordChannel::Bus::Lin, 0}));
}

TEST(LinRecordSelection, EachChannelHasAPlaceOfItsOwn) {
    std::vector<bool> taken(kRecordChannels);
    for (const char* const name : {"can0", "can5", "lin0", "lin1"}) {
        const size_t index = RecordSelection::Parse({name}).Channels().front().Index();
        ASSERT_LT(index, taken.size());
        EXPECT_FALSE(taken[index]) << name;
        taken[index] = true;
    }
}

TEST(LinRecordSelection, WhatIsWrongIsTold) {
    EXPECT_EQ(FaultOf({"lin2"}),
              "'lin2' is no LIN channel; there are lin0 and lin1, or 0 and 1, or "
              "50 and 51 as the list of all channels numbers them");
    EXPECT_EQ(FaultOf({"lin0,10:3F"}), "'lin0,10:3F': a LIN channel has no filters; write lin0");
    EXPECT_EQ(FaultOf({"lin0", "can0", "50"}), "'50' names lin0 a second time");
}

} // namespace
