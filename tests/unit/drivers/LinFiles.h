#pragma once

#include "utils/TempDir.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

// The character devices of both LIN channels as files: what is written goes behind what was read,
// and the records of received frames are mapped from their start.
class LinFiles {
  public:
    static constexpr size_t kRecordSize = 112;

    LinFiles() { Reset(); }

    // Both empty of everything, at their full size.
    void Reset() const {
        for (int channel = 0; channel < 2; ++channel) {
            std::ofstream(Path(channel)).close();
            Resize(channel, 12288);
        }
    }

    void Resize(int channel, size_t size) const {
        std::filesystem::resize_file(Path(channel), size);
    }

    // The path up to the channel number.
    std::string Prefix() const { return dir_ / "LIN"; }
    std::string Path(int channel) const { return Prefix() + std::to_string(channel) + "_CHAR"; }

    void Write(int channel, size_t offset, const std::vector<uint8_t>& bytes) const {
        std::fstream file(Path(channel), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(offset));
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }

    std::vector<uint8_t> Read(int channel, size_t offset, size_t size) const {
        std::ifstream file(Path(channel), std::ios::binary);
        file.seekg(static_cast<std::streamoff>(offset));
        std::vector<uint8_t> bytes(size);
        file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
        bytes.resize(static_cast<size_t>(file.gcount()));
        return bytes;
    }

  private:
    TempDir dir_;
};
