#include "modules/VciCanReplayService.h"

#include "common/CanWire.h"
#include "utils/Console.h"
#include "utils/WireFormat.h"

#include <algorithm>

#include <linux/can.h>

namespace {

constexpr uint32_t kCommandLength = 2;         // gid and sid
constexpr uint32_t kShortestBatch = 12;        // bytes: 11 and below are refused unread
constexpr size_t kFirstChannelOffset = 4;      // of the first frame's channel
constexpr size_t kFrameHead = 10;              // bytes of a frame before its data
constexpr uint32_t kExtendedMask = 0x9FFFFFFF; // identifier and flag

uint32_t GetCANID(uint32_t idWord) {
    return (idWord & CAN_EFF_FLAG) != 0 ? idWord & kExtendedMask : idWord & CAN_SFF_MASK;
}

} // namespace

VciCanReplayService::VciCanReplayService(ZephEventLoop* loop)
    : VciService(loop),
      func_map{
          {DOWNLOAD_REPLAY_DATA_SID, &VciCanReplayService::DownloadReplayData},
          {REPLAY_FINISH_SID, &VciCanReplayService::ReplayFinish},
          {REPLAY_CANCEL_SID, &VciCanReplayService::ReplayCancel},
          {REPLAY_PAUSE_SID, &VciCanReplayService::ReplayPause},
          {REPLAY_CONTINUE_SID, &VciCanReplayService::ReplayContinue},
      },
      canManager(Drivers::CanManage::GetInstance()),
      player_(net::ZephCanComM::GetInstance()) {}

VciCanReplayService::~VciCanReplayService() {
    PrintLine("~VciCanReplayService");
}

void VciCanReplayService::HandleReadEvent() {
    HandleRequest(*this, func_map);
    NameLastRequest(); // of an unknown service too, which no handler has named
}

void VciCanReplayService::NameLastRequest() {
    player_.SetLastRequest(gid_, sid_, srvHandle);
}

bool VciCanReplayService::BeginCommand() {
    NameLastRequest();
    if (reqSrvLength < kCommandLength) {
        UsbNegtiveResponse(ERROR_LENGTH);
        return false;
    }
    return true;
}

void VciCanReplayService::DownloadReplayData() {
    NameLastRequest();
    if (reqSrvLength < kShortestBatch) {
        UsbNegtiveResponse(ERROR_LENGTH);
        return;
    }
    // Of a batch the first frame's channel is looked at, whatever channels the others name.
    const uint8_t channel = pReqSrv[kFirstChannelOffset];
    if (channel >= kCanChannels) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    if (canManager.GetDeviceStatus(channel) != 1 || canManager.GetListenStatus(channel) > 0) {
        UsbNegtiveResponse(SERVICE_WRONG_SEQUENCE);
        return;
    }
    const auto section = std::span<const uint8_t>(reqMsgData).subspan(kFrameServiceOffset);
    const NegtiveErrorCode code =
        AnalyReplayFrame(section.first(std::min<size_t>(section.size(), reqSrvLength)));
    if (code != NO_ERROR) {
        UsbNegtiveResponse(code);
    }
}

NegtiveErrorCode VciCanReplayService::AnalyReplayFrame(std::span<const uint8_t> request) {
    WireReader reader(request);
    const uint8_t gid = reader.U8();
    const uint8_t sid = reader.U8();
    if (!reader.ok() || gid != CAN_REPLAY_SERVICE_GID || sid != DOWNLOAD_REPLAY_DATA_SID) {
        return WRONG_SID;
    }
    player_.BeginBatch();
    const uint16_t count = reader.U16();
    for (int i = 0; i < count; ++i) {
        if (reader.Left() < kFrameHead) {
            return ERROR_LENGTH;
        }
        ReplayCanFrameType frame{};
        frame.channl = reader.U8();
        frame.intervalTime = reader.U32();
        frame.Frame.id = GetCANID(reader.U32());
        const uint8_t flags = reader.U8();
        frame.Frame.FDF = (flags & kFdFrame) != 0 ? 1 : 0;
        frame.Frame.BRS = (flags & kRemoteOrBrs) != 0 ? 1 : 0;
        frame.Frame.reallen = kDlcToLength[flags & kDlcMask];
        const auto data = reader.Bytes(frame.Frame.reallen);
        if (!reader.ok()) {
            return ERROR_LENGTH;
        }
        std::copy(data.begin(), data.end(), frame.Frame.data);
        if (!player_.Queue(frame)) {
            return OPEN_FILE_FAILED;
        }
    }
    return player_.Play();
}

void VciCanReplayService::ReplayFinish() {
    if (BeginCommand()) {
        UsbShortResponse(); // ahead of the end message, whatever the thread finds
        player_.Finish();
    }
}

void VciCanReplayService::ReplayCancel() {
    if (BeginCommand()) {
        player_.Cancel();
        UsbShortResponse();
    }
}

void VciCanReplayService::ReplayPause() {
    if (BeginCommand()) {
        player_.Pause();
        UsbShortResponse();
    }
}

void VciCanReplayService::ReplayContinue() {
    if (BeginCommand()) {
        player_.Continue();
        UsbShortResponse();
    }
}
