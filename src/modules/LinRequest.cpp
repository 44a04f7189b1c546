#include "modules/LinRequest.h"

#include <algorithm>

namespace {

constexpr uint8_t kSync = 0x55;       // of every frame but a single one
constexpr uint8_t kInterByteEnd = 64; // the first inter-byte time that is too long

// As many bytes as `length` says, of which a frame has 8 at most.
void SetData(lin_tx_frame& frame, uint8_t length, std::span<const uint8_t> data) {
    frame.dlc = length;
    std::copy_n(data.begin(), std::min<size_t>(length, data.size()), frame.data);
}

} // namespace

uint8_t LinGetPID(uint8_t id) {
    const auto bit = [id](int n) { return id >> n & 1; };
    const int parity0 = bit(0) ^ bit(1) ^ bit(2) ^ bit(4);
    const int parity1 = (bit(1) ^ bit(3) ^ bit(4) ^ bit(5)) ^ 1;
    return static_cast<uint8_t>(id | parity0 << 6 | parity1 << 7);
}

LinTableEntry ReadLinTableEntry(WireReader& request) {
    LinTableEntry entry{};
    entry.message.flag.ctrl_type = ONLY_COMMAND;
    entry.message.lin_frame.pid = LinGetPID(request.U8());
    entry.message.lin_frame.dlc = request.U8();
    entry.message.lin_frame.sync = kSync;
    entry.slot = request.U16();
    return entry;
}

LinResponseEntry ReadLinResponseEntry(WireReader& request) {
    LinResponseEntry entry{};
    entry.message.flag.ctrl_type = WITH_RESPONSE;
    entry.message.flag.is_active = 1;
    entry.message.lin_frame.pid = LinGetPID(request.U8());
    entry.message.lin_frame.sync = kSync;
    entry.length = request.U8();
    entry.data = request.Bytes(kLinDataBytes);
    SetData(entry.message.lin_frame, entry.length, entry.data);
    return entry;
}

lin_tx_message LinNoResponse(uint8_t pid) {
    lin_tx_message message{}; // not active
    message.flag.ctrl_type = WITH_RESPONSE;
    message.lin_frame.pid = pid;
    return message;
}

std::optional<lin_tx_message> ReadLinSingle(WireReader& request) {
    lin_tx_message message{};
    const bool response = request.U8() != 0;
    message.flag.ctrl_type = response ? FULL_DETIL : COMMAND_DETIL;
    message.flag.is_active = response ? 1 : 0;
    request.Skip(1);
    const uint8_t length = request.U8();
    lin_tx_frame& frame = message.lin_frame;
    frame.sync = request.U8();
    lin_tx_detil& detil = message.time_detil;
    detil.inter_byte = request.U8();
    if (length > kLinDataBytes || detil.inter_byte >= kInterByteEnd) {
        return std::nullopt;
    }
    frame.pid = request.U8(); // protected by the host
    detil.break_field_length = request.U8();
    detil.break_Del_length = request.U8();
    SetData(frame, length, request.Bytes(kLinDataBytes));
    detil.before_data0 = request.U8();
    detil.before_data1 = request.U8();
    detil.before_data2 = request.U8();
    detil.before_data3 = request.U8();
    detil.before_data4 = request.U8();
    detil.before_data5 = request.U8();
    detil.before_data6 = request.U8();
    detil.before_data7 = request.U8();
    detil.before_checksum = request.U8();
    detil.header_baurate = request.U32();
    detil.response_baurate = request.U32();
    return message;
}

lin_operation ReadLinWakeup(WireReader& request) {
    lin_operation operation{};
    operation.ot = SEND_WAKEUP;
    lin_wakeup& wakeup = operation.data.wake_up;
    wakeup.channel_status = request.U8();
    wakeup.repeat_times = request.U8();
    wakeup.l_time_length = request.U16();
    wakeup.h_time_length = request.U16();
    return operation;
}

lin_operation ReadLinDisturb(WireReader& request) {
    lin_operation operation{};
    operation.ot = CONFIG_DISTURB;
    lin_disturb& disturb = operation.data.lin_dis;
    disturb.on_off = request.U8();
    disturb.enable_id = request.U8();
    disturb.lin_id = request.U8();
    disturb.type = request.U8();
    disturb.time_length = request.U8();
    disturb.offset = request.U8();
    disturb.field = request.U8();
    disturb.enable_times = request.U8();
    disturb.times = request.U16();
    return operation;
}

lin_operation ReadLinConfig(WireReader& request) {
    lin_operation operation{};
    operation.ot = LIN_CONFIG;
    lin_config_data& config = operation.data.config;
    config.bitrate = request.U16();
    config.lversion = static_cast<lin_version>(request.U8());
    config.psupply = static_cast<power_supply>(request.U8());
    return operation;
}
