#pragma once

#include "utils/UniqueFd.h"
#include "vcihost/Transport.h"

namespace vcihost {

// The link as a Unix socket of sequenced packets, for a relay on a developer's machine: one packet
// a Send, one packet a message. Used on one thread.
class SocketTransport : public Transport {
  public:
    // Throws TransportError.
    SocketTransport(const std::string& path, const Waiter& waiter);

    void Send(std::span<const uint8_t> bytes, Deadline deadline) override;
    std::optional<Bytes> Receive(Deadline deadline) override;

  private:
    UniqueFd fd_;
};

} // namespace vcihost
