#include "net/MonitoredInterfaces.h"

namespace net {

MonitoredInterfaces::~MonitoredInterfaces() {
    for (auto& chain : chains_) {
        const Entry* entry = chain.load(std::memory_order_relaxed);
        while (entry != nullptr) {
            const Entry* next = entry->next;
            delete entry;
            entry = next;
        }
    }
}

void MonitoredInterfaces::Set(int index, bool wanted) {
    if (Entry* const entry = Find(index)) {
        entry->wanted.store(wanted, std::memory_order_relaxed);
    } else if (wanted) {
        // An entry is complete before it can be found, and none is ever taken out of its chain.
        auto& chain = chains_[ChainOf(index)];
        chain.store(new Entry{index, true, chain.load(std::memory_order_relaxed)},
                    std::memory_order_release);
    }
}

} // namespace net
