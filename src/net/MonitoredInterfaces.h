#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>

namespace net {

// The interface indices whose packets are wanted: a set that one thread changes while another asks
// it for every packet. A question takes no lock, never waits and never allocates. An index that was
// ever wanted keeps its few bytes until the set goes, so the set grows with the machine's
// interfaces, not with the number of switches.
class MonitoredInterfaces {
  public:
    MonitoredInterfaces() = default;
    MonitoredInterfaces(const MonitoredInterfaces&) = delete;
    MonitoredInterfaces& operator=(const MonitoredInterfaces&) = delete;
    ~MonitoredInterfaces();

    // Puts `index` in or takes it out; either may be so already. One thread at a time.
    void Set(int index, bool wanted);

    // Any thread.
    bool Has(int index) const {
        const Entry* entry = Find(index);
        return entry != nullptr && entry->wanted.load(std::memory_order_relaxed);
    }

  private:
    struct Entry {
        const int index;
        std::atomic<bool> wanted;
        Entry* const next;
    };

    static constexpr size_t kChains = 64; // a power of two; kernels count interfaces from 1 up

    static size_t ChainOf(int index) { return static_cast<unsigned>(index) % kChains; }

    Entry* Find(int index) const {
        Entry* entry = chains_[ChainOf(index)].load(std::memory_order_acquire);
        while (entry != nullptr && entry->index != index) {
            entry = entry->next;
        }
        return entry;
    }

    std::array<std::atomic<Entry*>, kChains> chains_{};
};

} // namespace net
