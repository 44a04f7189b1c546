#include "vcihost/IoSample.h"

#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"
#include "vcihost/IoRequest.h"

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr size_t kPayloadLength = 17;
constexpr size_t kReserved = 2;
constexpr int kInputBits = 8; // the record tells no number of inputs
constexpr int kInputGroup = 4;

std::string LevelsText(uint8_t levels, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        if (i > 0 && i % kInputGroup == 0) {
            text += ' ';
        }
        text += (levels >> i & 1) != 0 ? '1' : '0';
    }
    return text;
}

} // namespace

std::optional<IoSample> IoSample::From(const Message& message) {
    if (message.gid != IOADC_SERVICE_GID || message.sid != kIoSampleSid ||
        message.payload.size() != kPayloadLength) {
        return std::nullopt;
    }
    WireReader reader(message.payload);
    IoSample sample{};
    sample.time = reader.U64();
    sample.inputs = reader.U8();
    sample.outputs = reader.U8();
    sample.trigger = reader.U8();
    reader.Skip(kReserved);
    sample.adc1 = reader.U16();
    sample.adc2 = reader.U16();
    return sample;
}

std::string IoSample::Text() const {
    return fmt::format("in {}  out {}  adc {:5} {:5}  trigger 0x{:02x}",
                       LevelsText(inputs, kInputBits), LevelsText(outputs, kIoOutputs), adc1, adc2,
                       trigger);
}

} // namespace vcihost
