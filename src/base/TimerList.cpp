#include "base/TimerList.h"

#include <functional>

void TimerList::takeDue(ZephTimestamp now, std::vector<Slot>& due) {
    const int64_t limit = now.microSecondsSinceEpoch();
    const auto byAddress = [this](Slot a, Slot b) {
        return std::less<>()(pool_.at(a), pool_.at(b));
    };
    while (!heap_.empty() && heap_.front().time <= limit) {
        const int64_t time = heap_.front().time;
        const auto sameTime = static_cast<std::ptrdiff_t>(due.size());
        do {
            due.push_back(heap_.front().slot);
            removeAt(0);
        } while (!heap_.empty() && heap_.front().time == time);
        std::sort(due.begin() + sameTime, due.end(), byAddress);
    }
}
