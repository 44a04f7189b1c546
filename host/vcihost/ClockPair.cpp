#include "vcihost/ClockPair.h"

#include <fmt/format.h>

namespace vcihost {

namespace {

int64_t Nanoseconds(Deadline::duration duration) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(duration).count();
}

} // namespace

ClockPair ClockPair::Make(uint64_t device, Deadline sent, Deadline received, uint64_t wallNow,
                          Deadline now) {
    const auto halfTrip = (received - sent) / 2;
    ClockPair pair;
    pair.device = device;
    pair.wall = wallNow - static_cast<uint64_t>(Nanoseconds(now - (sent + halfTrip)));
    pair.uncertainty = static_cast<uint64_t>(Nanoseconds(halfTrip));
    return pair;
}

uint64_t ClockPair::ToWall(uint64_t deviceTime) const {
    if (deviceTime >= device) {
        return wall + (deviceTime - device);
    }
    const uint64_t before = device - deviceTime;
    return before > wall ? 0 : wall - before;
}

std::string ClockPair::Text() const {
    const bool ahead = wall >= device;
    return fmt::format("Times are the device's clock told as wall-clock time: time = device time "
                       "{} {} ns. Taken at the start: device time {} ns was {} ns after "
                       "1970-01-01T00:00:00Z on the host's clock, within {} ns.",
                       ahead ? '+' : '-', ahead ? wall - device : device - wall, device, wall,
                       uncertainty);
}

} // namespace vcihost
