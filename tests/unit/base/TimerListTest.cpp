#include "base/TimerList.h"

#include "base/ActiveTimerSet.h"
#include "base/ZephTimerPool.h"

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Slot = ZephTimerPool::Slot;
using Maker = ZephTimerPool::Maker;
using State = ActiveTimerSet::State;

Slot Acquire(ZephTimerPool& pool, Maker maker = Maker::kOwnThread) {
    return pool.acquire(
        maker, [] {}, ZephTimestamp(1), 0.0, 0);
}

TEST(TimerList, AgreesWithASortedSetOverRandomOperations) {
    using Key = std::pair<int64_t, ZephTimer*>;
    struct KeyOrder {
        bool operator()(const Key& a, const Key& b) const {
            return a.first < b.first || (a.first == b.first && std::less<>()(a.second, b.second));
        }
    };
    for (const unsigned seed : {1U, 2U, 3U, 4U}) {
        std::mt19937 random(seed);
        const auto below = [&](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
        ZephTimerPool pool;
        TimerList list(pool);
        std::set<Key, KeyOrder> model;
        std::vector<std::pair<Slot, int64_t>> entered; // in no order, to draw from
        const auto forget = [&](Slot slot) {
            std::erase_if(entered, [slot](const auto& one) { return one.first == slot; });
            pool.release(slot);
        };
        for (int step = 0; step < 20'000; ++step) {
            const uint32_t choice = below(100);
            if (choice < 55) {
                const Slot slot =
                    Acquire(pool, choice < 10 ? Maker::kOtherThread : Maker::kOwnThread);
                const int64_t time = below(200); // many share a time
                list.insert(ZephTimestamp(time), slot);
                model.insert({time, pool.at(slot)});
                entered.emplace_back(slot, time);
            } else if (choice < 98 && !entered.empty()) {
                const auto [slot, time] = entered[below(static_cast<uint32_t>(entered.size()))];
                list.erase(slot);
                model.erase({time, pool.at(slot)});
                forget(slot);
            } else {
                const int64_t now = below(40);
                std::vector<Slot> due;
                list.takeDue(ZephTimestamp(now), due);
                for (const Slot slot : due) {
                    ASSERT_FALSE(model.empty());
                    ASSERT_EQ(pool.at(slot), model.begin()->second);
                    ASSERT_LE(model.begin()->first, now);
                    model.erase(model.begin());
                    forget(slot);
                }
            }
            ASSERT_EQ(list.size(), model.size());
            ASSERT_EQ(list.empty(), model.empty());
            if (!model.empty()) {
                ASSERT_EQ(list.firstExpiration().microSecondsSinceEpoch(), model.begin()->first);
            }
        }
        std::vector<Slot> rest;
        list.takeDue(ZephTimestamp(1'000), rest);
        ASSERT_EQ(rest.size(), model.size());
        auto expected = model.begin();
        for (const Slot slot : rest) {
            EXPECT_EQ(pool.at(slot), (expected++)->second);
        }
        EXPECT_TRUE(list.empty());
    }
}

TEST(TimerList, TakesWhatIsDueExactlyNowAndLeavesTheRest) {
    ZephTimerPool pool;
    TimerList list(pool);
    const Slot late = Acquire(pool);
    const Slot now = Acquire(pool);
    const Slot early = Acquire(pool);
    list.insert(ZephTimestamp(11), late);
    list.insert(ZephTimestamp(10), now);
    list.insert(ZephTimestamp(9), early);
    std::vector<Slot> due;
    list.takeDue(ZephTimestamp(8), due);
    EXPECT_TRUE(due.empty());
    list.takeDue(ZephTimestamp(10), due);
    EXPECT_EQ(due, (std::vector<Slot>{early, now}));
    EXPECT_EQ(list.size(), 1U);
    EXPECT_EQ(list.firstExpiration().microSecondsSinceEpoch(), 11);
}

TEST(ActiveTimerSet, FindsATimerByItsSlotAndSequenceTogether) {
    ActiveTimerSet set;
    EXPECT_EQ(set.find(0, 0), State::kAbsent);
    set.insert(3, 42);
    EXPECT_EQ(set.find(3, 42), State::kActive);
    EXPECT_EQ(set.find(3, 41), State::kAbsent);
    EXPECT_EQ(set.find(2, 42), State::kAbsent);
    EXPECT_EQ(set.find(2, 0), State::kAbsent);
    EXPECT_EQ(set.find(UINT32_MAX, 42), State::kAbsent);
    set.set(3, State::kExpired);
    EXPECT_EQ(set.find(3, 42), State::kExpired);
    set.set(3, State::kCanceled);
    EXPECT_EQ(set.find(3, 42), State::kCanceled);
    set.set(3, State::kAbsent);
    EXPECT_EQ(set.find(3, 42), State::kAbsent);
    set.insert(3, 43);
    EXPECT_EQ(set.find(3, 42), State::kAbsent);
    EXPECT_EQ(set.find(3, 43), State::kActive);
}

TEST(ZephTimerPool, HandsOutEverySlotOnceHoweverManyThereAre) {
    ZephTimerPool pool;
    std::map<ZephTimer*, Slot> timers;
    std::set<Slot> slots;
    for (int i = 0; i < 1'000; ++i) {
        const Slot slot = Acquire(pool, i % 3 == 0 ? Maker::kOtherThread : Maker::kOwnThread);
        EXPECT_TRUE(slots.insert(slot).second);
        EXPECT_TRUE(timers.emplace(pool.at(slot), slot).second);
    }
    for (const auto& [timer, slot] : timers) {
        EXPECT_EQ(pool.at(slot), timer); // growing has moved none
    }
}

TEST(ZephTimerPool, ReleasingReleasesWhatTheCallbackHolds) {
    ZephTimerPool pool;
    const auto held = std::make_shared<int>(0);
    const Slot slot = pool.acquire(
        Maker::kOwnThread, [held] {}, ZephTimestamp(1), 0.5, 9);
    EXPECT_EQ(held.use_count(), 2);
    EXPECT_EQ(pool.at(slot)->GetSequence(), 9);
    EXPECT_TRUE(pool.at(slot)->Repeat());
    pool.release(slot);
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(Acquire(pool), slot); // and the slot is the next one handed out
    EXPECT_FALSE(pool.at(slot)->Repeat());
}

} // namespace
