#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <type_traits>

// A value that one thread sets while another reads it, whole at any time: a triple buffer. Neither
// side locks, waits, tries again or allocates, whatever the other is doing, so a reader of any
// priority may stop the writer half-way. The reader sees the last value whose Write() has ended.
template <typename T> class Published {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    explicit Published(const T& first) { slots_[reading_] = first; }
    Published(const Published&) = delete;
    Published& operator=(const Published&) = delete;

    // One thread at a time, the writer.
    void Write(const T& value) {
        slots_[writing_] = value;
        writing_ =
            between_.exchange(static_cast<uint8_t>(writing_ | kFresh), std::memory_order_acq_rel) &
            kSlot;
    }

    // One thread at a time, the reader. The value stays as it is until the next Read().
    const T& Read() {
        if ((between_.load(std::memory_order_relaxed) & kFresh) != 0) {
            reading_ = between_.exchange(reading_, std::memory_order_acq_rel) & kSlot;
        }
        return slots_[reading_];
    }

  private:
    static constexpr uint8_t kSlot = 3;  // mask of a slot number
    static constexpr uint8_t kFresh = 4; // the slot between holds what was not read yet

    std::array<T, 3> slots_{};
    uint8_t writing_ = 0;             // the writer's own
    std::atomic<uint8_t> between_{1}; // handed from one to the other
    uint8_t reading_ = 2;             // the reader's own
};
