#pragma once

#include "vcihost/Hex.h"
#include "vcihost/Waiter.h"

#include <memory>
#include <span>
#include <stdexcept>
#include <string>

namespace vcihost {

// The device cannot be opened, or the link to it failed. what() is one line: what was tried, on
// which path, why it failed and what to do.
class TransportError : public std::runtime_error {
  public:
    TransportError(const std::string& what, int code) : std::runtime_error(what), code_(code) {}

    // The errno value behind it.
    int code() const { return code_; }

  private:
    int code_;
};

// One open link to a device. Bytes to the device are a stream, messages from it are whole. Closed
// when destroyed. Used on one thread.
class Transport {
  public:
    virtual ~Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    // Opens `path`: a character device, or a Unix socket of sequenced packets with the same
    // message boundaries. Throws TransportError.
    static std::unique_ptr<Transport> Open(const std::string& path, const Waiter& waiter);

    // Sends all the bytes, in one transfer if the device takes them so. Throws TransportError, with
    // code ETIMEDOUT when the device has not taken them all by the deadline.
    virtual void Send(std::span<const uint8_t> bytes, Deadline deadline) = 0;

    // The next message; nothing when none came by the deadline. A deadline that has passed looks
    // once. Throws TransportError.
    virtual std::optional<Bytes> Receive(Deadline deadline) = 0;

    const std::string& path() const { return path_; }

  protected:
    Transport(std::string path, const Waiter& waiter) : path_(std::move(path)), waiter_(waiter) {}

    // Throws TransportError about `action` ("open", "read from", ...) on this path.
    [[noreturn]] void Fail(const char* action, int code) const;
    [[noreturn]] void FailToSend(size_t sent, size_t size) const; // the deadline of Send has passed
    [[noreturn]] void FailClosed() const;                         // the other end is gone

    const Waiter& waiter() const { return waiter_; }

  private:
    std::string path_;
    Waiter waiter_;
};

} // namespace vcihost
