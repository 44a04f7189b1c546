#pragma once

#include <string>
#include <vector>

namespace Drivers {

// Network interface names of the device's channels. Immutable, safe from any thread.
class DevManager {
  public:
    static DevManager& GetInstance();
    DevManager(const DevManager&) = delete;
    DevManager& operator=(const DevManager&) = delete;

    // An Ethernet channel has two interfaces: `second` picks the second one. Empty for a channel
    // that the board does not have.
    std::string GetEthDevName(int channel, bool second) const;

    // "ncan0" to "ncan5"; empty for another channel.
    std::string GetCanDevName(int channel) const;

    // "LIN0" or "LIN1"; empty for another channel.
    std::string GetLinDevName(int channel) const;

  private:
    DevManager() = default;

    const std::vector<std::string> canDevNames_{"ncan0", "ncan1", "ncan2",
                                                "ncan3", "ncan4", "ncan5"};
};

} // namespace Drivers
