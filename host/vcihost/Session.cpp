#include "vcihost/Session.h"

namespace vcihost {

namespace {

// What waits in the device is bounded by its ring; this bounds a device that sends without pause.
constexpr size_t kMostDrained = 1'000'000;

struct Question {
    uint8_t gid;
    uint8_t sid;
    uint32_t handle;
};

// Sets `answer.refusal` and returns true when the message answers the question.
bool IsAnswer(const Question& question, Answer& answer) {
    const auto message = ParseMessage(answer.bytes);
    if (!message) {
        return false;
    }
    if (const auto refusal = NegativeResponse::From(*message)) {
        const bool ours = refusal->gid == question.gid && refusal->sid == question.sid &&
                          refusal->handle == question.handle;
        if (ours || refusal->IsAnonymous()) {
            answer.refusal = refusal;
            return true;
        }
        return false;
    }
    return message->gid == question.gid && message->sid == question.sid;
}

} // namespace

Session::Session(Transport& transport, AsideHandler aside)
    : transport_(transport), aside_(std::move(aside)) {}

std::optional<Answer> Session::Ask(std::span<const uint8_t> service,
                                   std::chrono::milliseconds timeout) {
    if (service.size() < kShortestService) {
        throw std::invalid_argument("a request needs at least gid and sid");
    }
    const Question question{service[0], service[1], ++lastHandle_};
    const Bytes frame = BuildFrame(service, question.handle);
    Drain();
    const Deadline deadline = After(timeout);
    Answer answer;
    answer.sent = std::chrono::steady_clock::now();
    transport_.Send(frame, deadline);
    while (auto bytes = transport_.Receive(deadline)) {
        answer.received = std::chrono::steady_clock::now();
        answer.bytes = std::move(*bytes);
        if (IsAnswer(question, answer)) {
            return answer;
        }
        PassAside(answer.bytes);
        if (answer.received >= deadline) {
            break;
        }
    }
    return std::nullopt;
}

uint32_t Session::Tell(std::span<const uint8_t> service, std::chrono::milliseconds timeout) {
    transport_.Send(BuildFrame(service, ++lastHandle_), After(timeout));
    return lastHandle_;
}

size_t Session::Drain() {
    size_t count = 0;
    for (; count < kMostDrained; ++count) {
        const auto bytes = transport_.Receive(Deadline{});
        if (!bytes) {
            break;
        }
        PassAside(*bytes);
    }
    return count;
}

void Session::PassAside(const Bytes& bytes) const {
    if (aside_) {
        aside_(bytes);
    }
}

} // namespace vcihost
