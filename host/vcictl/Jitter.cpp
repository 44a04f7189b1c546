#include "vcictl/Jitter.h"

#include "vcictl/Command.h"
#include "vcictl/Measured.h"
#include "vcihost/Notation.h"

#include <fmt/format.h>

namespace {

// Empty for none.
std::string FaultOf(const JitterLine& line, const JitterLimit& limit, const JitterTerms& terms) {
    if (line.lost > 0) {
        return fmt::format("{} of {} frames lost", line.lost, line.due);
    }
    if (!line.worst) {
        return terms.needsMeasurement ? fmt::format("seen {} times, jitter not measured", line.seen)
                                      : "";
    }
    if (*line.worst <= limit.time.count()) {
        return "";
    }
    return fmt::format("{}{} us{}, above {}", terms.before, Microseconds(line.worst), terms.after,
                       limit.text);
}

} // namespace

std::optional<JitterLimit> JitterLimit::Parse(const std::string& text) {
    if (text.empty()) {
        return std::nullopt;
    }
    return JitterLimit{text, vcihost::ParseDuration("--max-jitter", text)};
}

ExitStatus CheckJitter(const std::vector<JitterLine>& lines, const JitterLimit& limit,
                       const JitterTerms& terms) {
    ExitStatus status = kExitOk;
    for (const JitterLine& line : lines) {
        const std::string fault = FaultOf(line, limit, terms);
        if (!fault.empty()) {
            Complain(line.name + ": " + fault);
            status = kExitRefused;
        }
    }
    return status;
}
