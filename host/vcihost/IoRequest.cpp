#include "vcihost/IoRequest.h"

#include "common/GlobalEnums.h"

namespace vcihost {

Bytes IoOpenRequest(bool on) {
    return {IOADC_SERVICE_GID, kIoOpenSid, static_cast<uint8_t>(on)};
}

Bytes IoOutputRequest(std::span<const IoOutput> outputs) {
    Bytes service{IOADC_SERVICE_GID, kIoOutputSid, static_cast<uint8_t>(outputs.size())};
    for (const IoOutput& output : outputs) {
        service.push_back(output.number);
        service.push_back(static_cast<uint8_t>(output.high));
    }
    return service;
}

Bytes IoPeriodRequest(uint16_t period) {
    return {IOADC_SERVICE_GID, kIoPeriodSid, static_cast<uint8_t>(period),
            static_cast<uint8_t>(period >> 8)};
}

Bytes IoTriggerRequest(bool on) {
    return {IOADC_SERVICE_GID, kIoTriggerSid, static_cast<uint8_t>(on)};
}

} // namespace vcihost
