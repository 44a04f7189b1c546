#pragma once

#include <string>

// The USB link of a board. Immutable, safe from any thread.
class UsbConfig {
  public:
    UsbConfig() = default;
    virtual ~UsbConfig() = default;
    UsbConfig(const UsbConfig&) = delete;
    UsbConfig& operator=(const UsbConfig&) = delete;

    virtual std::string GetUsbPath() const = 0; // character device of the ring link
};
