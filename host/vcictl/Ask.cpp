#include "vcictl/Ask.h"

#include "vcictl/Command.h"
#include "vcihost/DeviceTime.h"

#include <fmt/format.h>

AskResult Ask(vcihost::Session& session, const vcihost::Bytes& service,
              std::chrono::milliseconds timeout) {
    AskResult result;
    const auto answer = session.Ask(service, timeout);
    if (!answer) {
        Complain(fmt::format("no answer within {} ms; does the application on the device run?",
                             timeout.count()));
        result.status = kExitNoAnswer;
        return result;
    }
    if (answer->refusal) {
        Complain("device refused: " + answer->refusal->Text());
        result.status = kExitRefused;
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
