#include "vcictl/RecordSwitches.h"

#include "vcictl/Ask.h"
#include "vcictl/LinRefusal.h"

#include <utility>

ExitStatus RecordSwitches::On(const vcihost::RecordChannel& channel) {
    // Listed first: a switch whose answer does not come may have been done all the same.
    on_.push_back(channel);
    const ExitStatus status = Switch(channel, true);
    if (status == kExitRefused) {
        on_.pop_back();
    }
    return status;
}

ExitStatus RecordSwitches::Off(ExitStatus status) {
    for (const vcihost::RecordChannel& channel : std::exchange(on_, {})) {
        const ExitStatus off = Switch(channel, false);
        status = FirstBad(status, off);
        if (off == kExitNoAnswer) {
            break; // nor will it hear about the others
        }
    }
    return status;
}

// CAN channels are recorded whether they are open or not: there is nothing to advise.
ExitStatus RecordSwitches::Switch(const vcihost::RecordChannel& channel, bool on) {
    const RefusalAdvice advice = channel.IsLin() ? LinAdvice(channel.number) : RefusalAdvice{};
    return Ask(session_, channel.SwitchRequest(on), timeout_, advice).status;
}
