#include "vcictl/Watch.h"

uint64_t WatchMessages(const Tool& tool, vcihost::Deadline deadline, uint64_t count,
                       const std::function<bool(const vcihost::Bytes&)>& show) {
    const auto transport = tool.Open();
    uint64_t shown = 0;
    do {
        const auto bytes = transport->Receive(deadline);
        if (!bytes) {
            break;
        }
        if (show(*bytes)) {
            ++shown;
        }
    } while ((count == 0 || shown < count) && std::chrono::steady_clock::now() < deadline);
    return shown;
}
