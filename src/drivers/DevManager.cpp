#include "drivers/DevManager.h"

#include "versions/VersionManager.h"

namespace Drivers {

namespace {

constexpr int kLinChannels = 2;

} // namespace

DevManager& DevManager::GetInstance() {
    static DevManager instance;
    return instance;
}

std::string DevManager::GetEthDevName(int channel, bool second) const {
    const auto board = VersionManager::GetInstance().GetEthPhyConfig();
    if (channel < 0 || channel >= board->GetMaxEthChannel()) {
        return {};
    }
    const auto names = board->GetDevNames();
    const auto index = static_cast<size_t>(channel);
    if (index >= names.size()) {
        return {}; // a board that counts more channels than it names
    }
    return second ? names[index].second : names[index].first;
}

std::string DevManager::GetCanDevName(int channel) const {
    const auto index = static_cast<size_t>(channel);
    return channel >= 0 && index < canDevNames_.size() ? canDevNames_[index] : std::string();
}

std::string DevManager::GetLinDevName(int channel) const {
    return channel >= 0 && channel < kLinChannels ? "LIN" + std::to_string(channel) : std::string();
}

} // namespace Drivers
