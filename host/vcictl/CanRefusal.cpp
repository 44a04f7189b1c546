#include "vcictl/CanRefusal.h"

#include "common/GlobalEnums.h"
#include "vcihost/CanChannel.h"

#include <fmt/format.h>

RefusalAdvice CanSendAdvice(uint8_t channel) {
    return [name = vcihost::CanChannelName(channel)](uint8_t code) -> std::string {
        if (code == SERVICE_WRONG_SEQUENCE) {
            return fmt::format("{0} is closed: vcictl can open {0}", name);
        }
        if (code == CAN_SENDFRAME_WITH_ACKOFF_MODE) {
            return fmt::format("{0} listens only: vcictl can mode {0} normal", name);
        }
        return "";
    };
}
