#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

// The one way to read and write whole wire records, field behind field: little-endian, never
// outside the span. A single number at a known place is DigitUtil's or UcharToUint's. Plain values,
// bound to no thread.

// Takes fields from the front of a span. A read past the end yields 0 and clears ok(), which stays
// cleared: check it once, after the last field.
class WireReader {
  public:
    explicit WireReader(std::span<const uint8_t> bytes) : rest_(bytes) {}

    uint8_t U8() { return Take<uint8_t>(); }
    uint16_t U16() { return Take<uint16_t>(); }
    uint32_t U32() { return Take<uint32_t>(); }
    uint64_t U64() { return Take<uint64_t>(); }

    // The next `count` bytes; an empty span when there are fewer.
    std::span<const uint8_t> Bytes(size_t count) {
        if (count > rest_.size()) {
            Fail();
            return {};
        }
        const auto taken = rest_.first(count);
        rest_ = rest_.subspan(count);
        return taken;
    }

    void Skip(size_t count) { static_cast<void>(Bytes(count)); }
    size_t Left() const { return rest_.size(); }
    bool ok() const { return ok_; }

  private:
    template <typename T> T Take() {
        const auto bytes = Bytes(sizeof(T));
        if (bytes.empty()) {
            return 0;
        }
        T value = 0;
        for (size_t i = 0; i < sizeof(T); ++i) { // one load, where the machine has the same order
            value = static_cast<T>(value | static_cast<T>(static_cast<T>(bytes[i]) << (8 * i)));
        }
        return value;
    }

    void Fail() {
        ok_ = false;
        rest_ = {};
    }

    std::span<const uint8_t> rest_;
    bool ok_ = true;
};

// Puts fields one behind the other into a span. A field that does not fit is left out whole, clears
// ok(), and so are all that follow.
class WireWriter {
  public:
    explicit WireWriter(std::span<uint8_t> room) : room_(room) {}

    WireWriter& U8(uint8_t value) { return Put(value); }
    WireWriter& U16(uint16_t value) { return Put(value); }
    WireWriter& U32(uint32_t value) { return Put(value); }
    WireWriter& U64(uint64_t value) { return Put(value); }

    WireWriter& Bytes(std::span<const uint8_t> bytes) {
        if (!ok_ || bytes.size() > room_.size() - used_) {
            ok_ = false;
            return *this;
        }
        if (!bytes.empty()) {
            std::memcpy(room_.data() + used_, bytes.data(), bytes.size());
        }
        used_ += bytes.size();
        return *this;
    }

    size_t Size() const { return used_; } // bytes written so far
    bool ok() const { return ok_; }

  private:
    template <typename T> WireWriter& Put(T value) {
        uint8_t bytes[sizeof(T)];
        for (size_t i = 0; i < sizeof(T); ++i) {
            bytes[i] = static_cast<uint8_t>(value >> (8 * i));
        }
        return Bytes(bytes);
    }

    std::span<uint8_t> room_;
    size_t used_ = 0;
    bool ok_ = true;
};
