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
    auto& chain = chains_[static_cast<unsigned>(index) % kChains];
    Entry* const first = chain.load(std::memory_order_relaxed);
    for (Entry* entry = first; entry != nullptr; entry = entry->next) {
        if (entry->index == index) {
            entry->wanted.store(wanted, std::memory_order_relaxed);
            return;
        }
    }
    if (wanted) {
        // An entry is complete before it can be found, and none is ever taken out of its chain.
        chain.store(new Entry{index, true, first}, std::memory_order_release);
    }
}

} // namespace net
