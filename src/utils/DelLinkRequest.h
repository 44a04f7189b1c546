#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// The message that asks the kernel, over a netlink socket of the routing family, to delete one
// interface and to acknowledge it. One buffer serves any number of interfaces, one behind the
// other. Bound to no thread; one owner uses it.
class DelLinkRequest {
  public:
    static constexpr size_t kBufferSize = 4096; // bytes
    static constexpr size_t kMaxName = 15;      // bytes, as the kernel limits it

    // `port`: the sender's id in the messages, which is that of the process.
    explicit DelLinkRequest(uint32_t port) : port_(port) {}

    // The message for the interface `name` with index `index`, in host byte order; `sequence` comes
    // back in the acknowledgement. What is behind kMaxName bytes of the name is left out. The bytes
    // are valid until the next call.
    std::span<const uint8_t> Fill(std::string_view name, unsigned index, uint32_t sequence);

  private:
    const uint32_t port_;
    uint8_t buffer_[kBufferSize] = {};
};
