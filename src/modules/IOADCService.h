#pragma once

#include "base/ZephChannel.h"
#include "base/ZephTimerId.h"
#include "common/VciService.h"
#include "hal/IRegAccess.h"
#include "utils/UniqueFd.h"

#include <cstddef>
#include <map>
#include <memory>
#include <string>

enum IOADCGroup : uint8_t {
    IOADC_OPEN = 1,
    IOADC_DO_STATE_SWITCH = 2,
    IOADC_SET_UPLOAD_PERIOD = 3,
    IOADC_SET_UPLOAD_TRIGGER = 7,
};

// One sample as the driver hands it over, in the board's byte order, which is little-endian.
struct norvane_dio_info {
    uint8_t Trigger;
    uint8_t DIstatus;
    uint8_t DOstatus;
    uint8_t reserved;
    uint16_t ADC1;
    uint16_t ADC2;
    uint64_t timestamp;
};
static_assert(sizeof(norvane_dio_info) == 16);
static_assert(offsetof(norvane_dio_info, DOstatus) == 2);
static_assert(offsetof(norvane_dio_info, ADC1) == 4);
static_assert(offsetof(norvane_dio_info, ADC2) == 6);
static_assert(offsetof(norvane_dio_info, timestamp) == 8);

// Group 20. Sets the digital outputs and the sampling of inputs and converters, and uploads each
// sample. No handler looks at the length of its request: what is missing is read from what the
// buffer holds behind it. Lives on the main thread.
class IOADCService : public VciService {
  public:
    // The one in use, made on the first call and on the first after a clean-up. It lives as long as
    // the process. `loop`, which must live as long, and `fd` count when it is made.
    static IOADCService* GetInstance(ZephEventLoop* loop, int fd);

    // For GetInstance. Maps the registers and opens the board's device; `fd` is the sample device
    // until then, -1 for none.
    IOADCService(ZephEventLoop* loop, int fd);
    ~IOADCService();

    // Takes the samples of the device at `path` from now on. False, and no uploads, when it cannot
    // be opened.
    bool initDevice(const std::string& path);

    void HandleReadEvent();

    // Reads one sample and uploads it. What is not a whole sample is dropped, with a word on
    // standard error.
    void handleInterrupt();

    // Switches the block off, lets go of the device and forgets the instance. This object still
    // answers requests, since VciGroupService knows no other, but uploads nothing any more. False.
    bool IoAdcCleanup();

    // Switches the upload and sets its period, 31 bits. A period of more bits runs into the switch.
    void IoAdc_EnablePeriod(uint8_t enable, uint64_t period);

  private:
    void IoAdcOpen();
    void DoStateSwitch();
    void IoAdcSetPeriod();
    void IoAdcSetTrigger();
    void RestDevice();
    void CloseDevice();

    std::map<IOADCGroup, void (IOADCService::*)()> func_map;
    UniqueFd dio_fd_;
    std::shared_ptr<ZephChannel> dio_channel_; // null without a device
    std::shared_ptr<Hal::IRegAccess> IOADCRegAccess_;
    double rest_;         // seconds, of the next rest
    ZephTimerId restEnd_; // of the last rest
};
