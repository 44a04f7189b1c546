#pragma once

#include "utils/TempDir.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

// The six CAN character devices as files of the size that a driver maps: what is written to them
// shows in the mapping at once.
class CanErrorFiles {
  public:
    static constexpr size_t kSlotSize = 88;

    CanErrorFiles() {
        for (int channel = 0; channel < 6; ++channel) {
            const std::string path = Path(channel);
            std::ofstream(path).close();
            std::filesystem::resize_file(path, 24576);
        }
    }

    // The path without the channel number.
    std::string Prefix() const { return dir_ / "norvane_can"; }
    std::string Path(int channel) const { return Prefix() + std::to_string(channel); }

    void Write(int channel, int slot, const std::vector<uint8_t>& info) const {
        std::fstream file(Path(channel), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(slot) * static_cast<std::streamoff>(kSlotSize));
        file.write(reinterpret_cast<const char*>(info.data()),
                   static_cast<std::streamsize>(info.size()));
    }

  private:
    TempDir dir_;
};
