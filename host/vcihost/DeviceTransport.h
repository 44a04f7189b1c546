#pragma once

#include "utils/UniqueFd.h"
#include "vcihost/Transport.h"

namespace vcihost {

// The link as a character device: write(2) takes bytes as they stand, read(2) gives one message.
// Used on one thread.
class DeviceTransport : public Transport {
  public:
    // Throws TransportError.
    DeviceTransport(const std::string& path, const Waiter& waiter);

    void Send(std::span<const uint8_t> bytes, Deadline deadline) override;
    std::optional<Bytes> Receive(Deadline deadline) override;

  private:
    UniqueFd fd_;
    Bytes buffer_; // room for one message; grows to the longest one met
};

} // namespace vcihost
