#pragma once

#include "vcihost/Frame.h"

#include <optional>
#include <string>

namespace vcihost {

// A report of trouble on a bus or line, which the device sends unasked. A plain value.
struct ErrorUpload {
    // What the trouble is on.
    enum BusType : uint8_t {
        Can = 0,
        Kline = 1,
        Lin = 2,
        CanFD = 3,
        SyncLine = 4
    };
    // What the trouble is, on the sync line.
    enum SyncErrorCode : uint8_t {
        Dropped = 1
    };

    uint64_t time; // device time, nanoseconds
    uint8_t count; // errors that this report stands for
    uint8_t busType;
    uint8_t channel;
    uint8_t code;

    // Nothing for any other message.
    static std::optional<ErrorUpload> From(const Message& message);

    bool IsSyncDrop() const { return busType == SyncLine && code == Dropped; }

    // "sync line", "CAN", ...; "bus type 9" for one that has no name.
    std::string BusText() const;

    // "sync line dropped at 12.345678900 s".
    std::string Text() const;
};

} // namespace vcihost
