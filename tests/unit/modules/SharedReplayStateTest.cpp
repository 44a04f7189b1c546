#include "modules/SharedReplayState.h"

#include <gtest/gtest.h>

namespace {

using enum ReplayState;

ReplayState Now(const SharedReplayState& state) {
    return SharedReplayState::StateOf(state.Get());
}

TEST(SharedReplayStateTest, StartsIdle) {
    EXPECT_EQ(Now(SharedReplayState()), IDLE);
}

TEST(SharedReplayStateTest, ACommandReturnsTheStateItFound) {
    SharedReplayState state;
    EXPECT_EQ(state.Command(RUNNING), IDLE);
    EXPECT_EQ(state.Command(FINISH), RUNNING);
    EXPECT_EQ(Now(state), FINISH);
}

TEST(SharedReplayStateTest, TheThreadFollowsWhenNoCommandHasCome) {
    SharedReplayState state;
    state.Command(RUNNING);
    EXPECT_TRUE(state.Follow(state.Get(), FINISH));
    EXPECT_TRUE(state.Follow(state.Get(), IDLE));
    EXPECT_EQ(Now(state), IDLE);
}

TEST(SharedReplayStateTest, TheThreadDoesNotFollowPastACommand) {
    SharedReplayState state;
    state.Command(FINISH);
    const auto seen = state.Get();
    state.Command(RUNNING);
    EXPECT_FALSE(state.Follow(seen, IDLE));
    EXPECT_EQ(Now(state), RUNNING);
}

TEST(SharedReplayStateTest, ACommandOfTheSameStateCounts) {
    SharedReplayState state;
    state.Command(FINISH);
    const auto seen = state.Get();
    state.Command(RUNNING);
    state.Command(FINISH);
    EXPECT_FALSE(state.Follow(seen, IDLE));
    EXPECT_EQ(Now(state), FINISH);
}

TEST(SharedReplayStateTest, TheThreadGivesUpWhateverCommandHasCome) {
    SharedReplayState state;
    state.Command(RUNNING);
    state.Command(PAUSE);
    state.Abandon();
    EXPECT_EQ(state.Command(RUNNING), IDLE);
}

} // namespace
