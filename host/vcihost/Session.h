#pragma once

#include "vcihost/NegativeResponse.h"
#include "vcihost/Transport.h"

#include <functional>

namespace vcihost {

// The answer to one request.
struct Answer {
    Bytes bytes;                             // the whole message
    std::optional<NegativeResponse> refusal; // set when it is a negative response
    Deadline sent;                           // just before the request went out
    Deadline received;                       // just after the answer came in
};

// Requests and their answers over a transport, one request at a time. Used on one thread.
class Session {
  public:
    // Takes each message that is not the answer to the request in hand: uploads, and answers that
    // nobody waited for.
    using AsideHandler = std::function<void(const Bytes&)>;

    // `transport` must outlive the session; `aside` may be empty.
    explicit Session(Transport& transport, AsideHandler aside = {});

    // Sends a service section of at least gid and sid under the next handle, counted from 1, and
    // waits for its answer: a message of its gid and sid, or a negative response that names these
    // and the handle, or one that names nothing. Messages that waited before are passed aside,
    // since they answer nothing that is sent now. Nothing when no answer came within `timeout`.
    // Throws TransportError, Interrupted.
    std::optional<Answer> Ask(std::span<const uint8_t> service, std::chrono::milliseconds timeout);

    // Sends a service section under the next handle and waits for nothing: for requests that have
    // no answer. Returns the handle, which a refusal names. Throws TransportError, Interrupted.
    uint32_t Tell(std::span<const uint8_t> service, std::chrono::milliseconds timeout);

    // Passes aside every message that waits now. Returns their number.
    size_t Drain();

  private:
    void PassAside(const Bytes& bytes) const;

    Transport& transport_;
    AsideHandler aside_;
    uint32_t lastHandle_ = 0;
};

} // namespace vcihost
