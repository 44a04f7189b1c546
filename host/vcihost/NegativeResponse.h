#pragma once

#include "vcihost/Frame.h"

#include <optional>
#include <string>

namespace vcihost {

// A service's refusal of a request. A plain value.
struct NegativeResponse {
    uint8_t code; // a NegtiveErrorCode, or a number that has no name
    // Of the request that was refused. All three are 0 where the device could not tell whose
    // request it was: a frame of wrong length or of an unknown group.
    uint8_t gid;
    uint8_t sid;
    uint32_t handle;

    // Nothing for any other message.
    static std::optional<NegativeResponse> From(const Message& message);

    // True when it does not say which request was refused.
    bool IsAnonymous() const { return gid == 0 && sid == 0 && handle == 0; }

    // "ERROR_LENGTH (10)"; "unnamed code 36" for a code without a name.
    std::string CodeText() const;

    // "ERROR_LENGTH (10) to group 16 service 1, handle 0x11223344".
    std::string Text() const;
};

} // namespace vcihost
