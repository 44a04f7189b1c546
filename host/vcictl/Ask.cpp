#include "vcictl/Ask.h"

#include "vcictl/Command.h"
#include "vcihost/DeviceTime.h"

#include <fmt/format.h>

namespace {

// The positive answer; nothing, with `status` set and a complaint made, when there is none.
std::optional<vcihost::Answer> AskAny(vcihost::Session& session, const vcihost::Bytes& service,
                                      std::chrono::milliseconds timeout,
                                      const RefusalAdvice& advice, ExitStatus& status) {
    auto answer = session.Ask(service, timeout);
    if (!answer) {
        Complain(fmt::format("no answer within {} ms; does the application on the device run?",
                             timeout.count()));
        status = kExitNoAnswer;
        return std::nullopt;
    }
    if (answer->refusal) {
        ComplainOfRefusal(*answer->refusal, advice);
        status = kExitRefused;
        return std::nullopt;
    }
    return answer;
}

} // namespace

void ComplainOfRefusal(const vcihost::NegativeResponse& refusal, const RefusalAdvice& advice) {
    std::string text = "device refused: " + refusal.Text();
    const std::string more = advice ? advice(refusal.code) : "";
    if (!more.empty()) {
        text += "; " + more;
    }
    Complain(text);
}

AskResult Ask(vcihost::Session& session, const vcihost::Bytes& service,
              std::chrono::milliseconds timeout, const RefusalAdvice& advice) {
    AskResult result;
    const auto answer = AskAny(session, service, timeout, advice, result.status);
    if (!answer) {
        return result;
    }
    const auto message = vcihost::ParseMessage(answer->bytes);
    const auto time = message ? vcihost::TimeInAnswer(*message) : std::nullopt;
    if (!time) {
        Complain("the answer holds no device time: " + vcihost::ToHex(answer->bytes));
        result.status = kExitTrouble;
        return result;
    }
    result.deviceTime = *time;
    result.sent = answer->sent;
    result.received = answer->received;
    return result;
}

AskedMessage AskMessage(vcihost::Session& session, const vcihost::Bytes& service,
                        std::chrono::milliseconds timeout, const RefusalAdvice& advice) {
    AskedMessage result;
    if (auto answer = AskAny(session, service, timeout, advice, result.status)) {
        result.bytes = std::move(answer->bytes);
    }
    return result;
}

ExitStatus AskPlain(vcihost::Session& session, const vcihost::Bytes& service,
                    std::chrono::milliseconds timeout, const RefusalAdvice& advice) {
    ExitStatus status = kExitOk;
    static_cast<void>(AskAny(session, service, timeout, advice, status));
    return status;
}

ExitStatus AskAndTell(Tool& tool, const std::vector<vcihost::Bytes>& services,
                      std::chrono::milliseconds timeout, const std::string& done) {
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    AskResult result;
    for (const vcihost::Bytes& service : services) {
        result = Ask(session, service, timeout);
        if (result.status != kExitOk) {
            return result.status;
        }
    }
    tool.out.Line(fmt::format("{}, device time {}", done, vcihost::TimeText(result.deviceTime)));
    return kExitOk;
}
