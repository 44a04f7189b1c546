#include "vcictl/LinRefusal.h"

#include "common/GlobalEnums.h"
#include "vcihost/LinChannel.h"

#include <fmt/format.h>

RefusalAdvice LinAdvice(uint8_t channel, std::map<uint8_t, std::string> special) {
    return [name = vcihost::LinChannelName(channel),
            special = std::move(special)](uint8_t code) -> std::string {
        if (const auto found = special.find(code); found != special.end()) {
            return found->second;
        }
        switch (code) {
        case SERVICE_WRONG_SEQUENCE:
            return fmt::format("{0} is closed: vcictl lin open {0}", name);
        case UPDATE_CONFIG_ERROR:
        case SEND_FAIL:
            return fmt::format("the driver of {} did not take it; the device's console says more",
                               name);
        default:
            return "";
        }
    };
}

RefusalAdvice LinTableAdvice(uint8_t channel) {
    return LinAdvice(channel, {{UPDATE_CONFIG_ERROR,
                                "the table has an identifier more often than the device can count; "
                                "leave entries out"}});
}
