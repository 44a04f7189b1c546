#include "common/VciService.h"

#include "common/Refusal.h"
#include "drivers/DevTimestamp.h"
#include "drivers/UsbDriver.h"
#include "utils/WireFormat.h"

#include <algorithm>

namespace {

constexpr uint32_t kHandleSize = 4;
constexpr int kShortServiceLength = 2; // gid, sid
constexpr int kTimeServiceLength = 10; // gid, sid, 8 bytes of time

} // namespace

VciService::VciService(ZephEventLoop* loop) : loop_(loop) {}

VciService::VciService() : loop_(nullptr) {}

void VciService::GetDataFromUsb() {
    auto& usb = Drivers::UsbDriver::GetInstance();
    usb.UsbPeek(reqMsgData);
    reqSrvLength = UcharToUint(reqMsgData + 1);
    const uint32_t msgLen = serviceLenToMsgLen(reqSrvLength);
    // VciGroupService skips the frames that do not fit; this bound keeps a stray call harmless.
    if (msgLen <= kReqMsgSize) {
        usb.UsbRead(reqMsgData, static_cast<int>(msgLen));
    }
}

void VciService::SetHandle() {
    srvHandle = 0;
    if (reqSrvLength <= kReqMsgSize - kFrameServiceOffset - kHandleSize) {
        srvHandle = UcharToUint(pReqSrv + reqSrvLength);
    }
}

void VciService::UsbPositiveResponse(int len) {
    const auto serviceLength = static_cast<uint32_t>(len);
    // A handler that promises more than the buffer holds is wrong; yet the host gets no foreign
    // bytes.
    const uint32_t msgLen = std::min(serviceLenToMsgLen(serviceLength), kRespMsgSize);
    WireWriter(respMsgData).U8(0).U32(serviceLength);
    Drivers::UsbDriver::GetInstance().UsbWrite(respMsgData, msgLen);
}

void VciService::UsbNegtiveResponse(NegtiveErrorCode negtiveCode) {
    WriteRefusal(std::span(respMsgData).first<kRefusalLength>(), negtiveCode, gid_, sid_,
                 srvHandle);
    Drivers::UsbDriver::GetInstance().UsbWrite(respMsgData, kRefusalLength);
}

void VciService::UsbShortResponse() {
    pRespSrv[0] = gid_;
    pRespSrv[1] = sid_;
    UsbPositiveResponse(kShortServiceLength);
}

void VciService::UsbTimeResponse() {
    pRespSrv[0] = gid_;
    pRespSrv[1] = sid_;
    Drivers::DevTimestamp::GetInstance()->GetTimestamp(pRespSrv + 2);
    UsbPositiveResponse(kTimeServiceLength);
}
