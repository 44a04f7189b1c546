#pragma once

#include "common/Config.h"
#include "common/GlobalEnums.h"

#include <cstdint>
#include <map>

class ZephEventLoop;

// The base of every host service: the request in hand, and the two kinds of answer. Lives on the
// main thread with its service; another thread that wants to send builds its frame in a buffer of
// its own (UploadFrame). The next request to the service overwrites everything here, so a handler
// that answers later must copy what it needs.
class VciService {
  public:
    explicit VciService(ZephEventLoop* loop);
    VciService(); // for a service that is built without a loop
    VciService(const VciService&) = delete;
    VciService& operator=(const VciService&) = delete;

    // Brings the next frame from the read ring into reqMsgData. A frame that has not arrived whole
    // stays in the ring: reqMsgData then holds its first 8 bytes and, behind them, what it held.
    void GetDataFromUsb();

    // The common way of a request: takes it in and hands it to the entry of `handlers` for its sid;
    // a sid without one is refused. `service` is *this by its own type.
    template <typename Service, typename Sid>
    void HandleRequest(Service& service, const std::map<Sid, void (Service::*)()>& handlers) {
        GetDataFromUsb();
        SetHandle();
        gid_ = pReqSrv[0];
        sid_ = pReqSrv[1];
        const auto handler = handlers.find(static_cast<Sid>(sid_));
        if (handler == handlers.end()) {
            UsbNegtiveResponse(WRONG_SID);
            return;
        }
        (service.*handler->second)();
    }

    // Reads the handle behind the request's service section.
    void SetHandle();

    // Sends respMsgData with a service section of `len` bytes, gid and sid included: the caller has
    // filled it through pRespSrv. Handle and tail bytes are left as they are; the host must not
    // read them.
    void UsbPositiveResponse(int len);

    // Sends the 16-byte refusal of the request in hand. Overwrites the start of respMsgData.
    void UsbNegtiveResponse(NegtiveErrorCode negtiveCode);

    // Sends the two-byte answer of gid and sid.
    void UsbShortResponse();

    // Sends the ten-byte answer of gid, sid and the device time.
    void UsbTimeResponse();

    ZephEventLoop* GetLoop() const { return loop_; }

    int usbDataNum = 0; // handed down before each request; always 0

  protected:
    ~VciService() = default; // services are held by their own type

    static constexpr uint32_t kRespMsgSize = 2048;

    uint8_t gid_ = 0;
    uint8_t sid_ = 0;
    uint32_t srvHandle = 0;
    ZephEventLoop* loop_;
    uint32_t reqSrvLength = 0;
    uint8_t* const pRespSrv = respMsgData + kFrameServiceOffset;
    const uint8_t* const pReqSrv = reqMsgData + kFrameServiceOffset;
    uint8_t respMsgData[kRespMsgSize] = {};
    uint8_t reqMsgData[kReqMsgSize] = {};
};
