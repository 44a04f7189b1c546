#include "modules/DevSyncService.h"

#include "base/ZephEventLoop.h"
#include "common/UploadFrame.h"
#include "drivers/DevTimestamp.h"
#include "utils/Console.h"

#include <sys/timerfd.h>
#include <unistd.h>

namespace {

constexpr uint32_t kRequestLength = 2;
constexpr uint32_t kFollowUpLength = 10; // 8 bytes of host time, which the device has no use for
constexpr uint32_t kNodeLength = 3;
constexpr uint32_t kStartStopLength = 4;
constexpr uint32_t kErrorUploadLength = 14;

// A sync drop is one error, and of no channel.
constexpr uint8_t kErrorCount = 1;
constexpr uint8_t kNoChannel = 0;

constexpr time_t kStateDownDelay = 1; // seconds from a drop to SYNC_DOWN

// The device is not read, so a driver that keeps it readable would fill the loop and the host's
// ring with one drop. Between two reports the channel rests this long.
constexpr double kReportRest = 0.01; // seconds

} // namespace

DevSyncService::DevSyncService(ZephEventLoop* loop)
    : VciService(loop),
      func_map{
          {SET_SOFTWARE_SYNC_REQUST_SID, &DevSyncService::SyncRequest},
          {SET_SOFTWARE_SYNC_FOLLOWUP_SID, &DevSyncService::SyncFollowUp},
          {CFG_HARDWARE_STNC_NODE_SID, &DevSyncService::SetHardwareSyncNode},
          {SET_HARDWARE_STNC_NODE_SID, &DevSyncService::StartStopTimeSync},
      },
      timer_fd_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
      syncLinkChannel_(loop, sync_.Fd()),
      timerChannel_(loop, timer_fd_.get()) {}

DevSyncService::~DevSyncService() {
    syncLinkChannel_.remove();
    timerChannel_.remove();
}

void DevSyncService::Init() {
    sync_.Init();
    syncLinkChannel_.setReadCallback([this](ZephTimestamp) {
        SyncUploadErrorCb();
        RestSyncLink();
    });
    syncLinkChannel_.setErrorCallback([this] { RestSyncLink(); });
    syncLinkChannel_.setCloseCallback([this] { RestSyncLink(); });
    syncLinkChannel_.enableReading();
    timerChannel_.setReadCallback([this](ZephTimestamp) { HandleTimer(); });
    timerChannel_.enableReading();
}

void DevSyncService::HandleReadEvent() {
    HandleRequest(*this, func_map);
}

void DevSyncService::SyncRequest() {
    if (reqSrvLength != kRequestLength) {
        UsbNegtiveResponse(ERROR_LENGTH);
        return;
    }
    UsbTimeResponse();
}

void DevSyncService::SyncFollowUp() {
    if (reqSrvLength != kFollowUpLength) {
        UsbNegtiveResponse(ERROR_LENGTH);
        return;
    }
    UsbTimeResponse();
}

void DevSyncService::SetHardwareSyncNode() {
    if (reqSrvLength != kNodeLength) {
        UsbNegtiveResponse(ERROR_LENGTH);
        return;
    }
    const uint8_t mode = pReqSrv[2];
    if (mode > Drivers::Master) {
        // Not the end: the mode's low bit is set and a positive answer follows. A host gets both
        // answers, in this order.
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
    }
    sync_.SetTimeSynNodeMode(static_cast<Drivers::TimeSynNodeMode>(mode));
    UsbTimeResponse();
}

void DevSyncService::StartStopTimeSync() {
    if (reqSrvLength != kStartStopLength) {
        UsbNegtiveResponse(ERROR_LENGTH);
        return;
    }
    const uint8_t apply = pReqSrv[2];
    const uint8_t state = pReqSrv[3];
    if (apply > 1 || state > Drivers::SYNC_UP) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    if (apply == 1 && sync_.SetSyncState(static_cast<Drivers::TimeSyncState>(state)) < 0) {
        UsbNegtiveResponse(SET_SYNC_STATE_FAILED);
        return;
    }
    UsbTimeResponse();
}

void DevSyncService::SyncUploadErrorCb() {
    // The lamp alone: the state stays, so that the timer finds something to put back.
    sync_.SetSyncStateLight(Drivers::SYNC_ERROR);
    StartTimer();

    UploadFrame<kErrorUploadLength> upload;
    upload.Service()
        .U8(ERR_INFO_SERVICE_GID)
        .U8(BUS_TROUBLE_SID)
        .U64(Drivers::DevTimestamp::GetInstance()->GetTimestamp())
        .U8(kErrorCount)
        .U8(Drivers::SyncLine)
        .U8(kNoChannel)
        .U8(Drivers::Dropped);
    upload.Send();
}

void DevSyncService::RestSyncLink() {
    if (!syncLinkChannel_.isReading()) {
        return; // rests already: an error and a drop can come with one event
    }
    syncLinkChannel_.disableReading();
    loop_->runAfter(kReportRest, [this] { syncLinkChannel_.enableReading(); });
}

void DevSyncService::StartTimer() {
    itimerspec once{};
    once.it_value.tv_sec = kStateDownDelay;
    timerfd_settime(timer_fd_.get(), 0, &once, nullptr);
}

void DevSyncService::HandleTimer() {
    uint64_t expirations = 0;
    if (read(timer_fd_.get(), &expirations, sizeof(expirations)) != sizeof(expirations)) {
        return; // a drop in the same turn of the loop has armed the timer anew
    }
    // With the state at SYNC_DOWN already this changes nothing, and the red lamp stays on.
    sync_.SetSyncState(Drivers::SYNC_DOWN);
    PrintLine("DevSyncService::SyncUploadErrorCb timeout");
}
