#include "modules/IOADCService.h"

#include "base/ZephEventLoop.h"
#include "common/UploadFrame.h"
#include "hal/HalFactory.h"
#include "utils/Console.h"
#include "utils/DigitUtil.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr const char* kSampleDevice = "/dev/norvane_dio";
constexpr off_t kBlockBase = 0x88000000;
constexpr size_t kBlockSize = 1000; // bytes

// Registers, as byte offsets in the block.
constexpr uint32_t kOutputEnable = 0; // bit n: digital output n
constexpr uint32_t kTrigger = 4;      // four fields of four bits
constexpr uint32_t kOutputLevel = 8;  // two bits an output
constexpr uint32_t kOutput = 12;      // bit n: digital output n
constexpr uint32_t kUpload = 16;

// The upload register: the period in bits 0 to 30, and the switch.
constexpr uint8_t kPeriodEnd = 30;
constexpr uint8_t kUploadOn = 31;
constexpr uint32_t kOpened = 0x800003E8; // on, with period 1000
constexpr uint32_t kClosed = 0;

constexpr uint8_t kTriggerFields = 4;
constexpr uint8_t kTriggerBits = 4;
constexpr uint8_t kLevelBits = 2;
constexpr uint32_t kFieldOn = 3; // of a trigger, and of an output's level
constexpr uint32_t kFieldOff = 0;

constexpr uint8_t kOutputs = 2;
constexpr size_t kEntrySize = 2; // output number and level

// The service id of an upload, which no request has.
constexpr uint8_t kSampleSid = 4;
constexpr uint32_t kSampleUploadLength = 19;

// A device that stays readable and gives no sample would fill the loop and the console. It rests
// this long, and each further time twice as long, until a sample comes.
constexpr double kShortestRest = 0.01; // seconds
constexpr double kLongestRest = 1.28;

IOADCService* current = nullptr;

// All that GetInstance has made. They are never destroyed: VciGroupService holds on to its own
// beyond a clean-up. The end of the process follows a clean-up, so they do not become many.
std::vector<IOADCService*>& Instances() {
    static auto* const instances = new std::vector<IOADCService*>;
    return *instances;
}

} // namespace

IOADCService* IOADCService::GetInstance(ZephEventLoop* loop, int fd) {
    if (current == nullptr) {
        current = new IOADCService(loop, fd);
        Instances().push_back(current);
    }
    return current;
}

IOADCService::IOADCService(ZephEventLoop* loop, int fd)
    : func_map{
          {IOADC_OPEN, &IOADCService::IoAdcOpen},
          {IOADC_DO_STATE_SWITCH, &IOADCService::DoStateSwitch},
          {IOADC_SET_UPLOAD_PERIOD, &IOADCService::IoAdcSetPeriod},
          {IOADC_SET_UPLOAD_TRIGGER, &IOADCService::IoAdcSetTrigger},
      },
      dio_fd_(fd),
      IOADCRegAccess_(Hal::MakeRegAccess(kBlockBase, kBlockSize)),
      rest_(kShortestRest) {
    loop_ = loop;
    initDevice(kSampleDevice);
}

IOADCService::~IOADCService() {
    PrintLine("~IOADCService!");
    IoAdcCleanup();
}

bool IOADCService::initDevice(const std::string& path) {
    CloseDevice();
    dio_fd_.reset(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!dio_fd_) {
        std::perror("Failed to open DIO device");
        return false;
    }
    dio_channel_ = std::make_shared<ZephChannel>(loop_, dio_fd_.get());
    dio_channel_->setReadCallback([this](ZephTimestamp) { handleInterrupt(); });
    dio_channel_->setErrorCallback([this] { RestDevice(); });
    dio_channel_->setCloseCallback([this] { RestDevice(); });
    dio_channel_->enableReading();
    return true;
}

// The channel goes before its descriptor, whose number another file may get.
void IOADCService::CloseDevice() {
    if (dio_channel_) {
        loop_->cancel(restEnd_);
        dio_channel_->remove();
        dio_channel_.reset();
    }
    dio_fd_.reset();
}

void IOADCService::HandleReadEvent() {
    HandleRequest(*this, func_map);
}

void IOADCService::IoAdcOpen() {
    const uint8_t state = pReqSrv[2];
    if (state > 1) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    IOADCRegAccess_->Write(kUpload, state == 1 ? kOpened : kClosed);
    UsbTimeResponse();
}

void IOADCService::DoStateSwitch() {
    const uint8_t entries = pReqSrv[2];
    if (entries > kOutputs) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    for (uint8_t i = 0; i < entries; ++i) {
        const uint8_t* const entry = pReqSrv + 3 + i * kEntrySize;
        const auto output = static_cast<uint8_t>(entry[0] - 1); // number 0 becomes 255
        const uint8_t level = entry[1];
        if (level > 1 || output >= kOutputs) {
            UsbNegtiveResponse(VALUE_OUTOF_RANGE); // the entries before this one are done
            return;
        }
        const auto levelStart = static_cast<uint8_t>(output * kLevelBits);
        IOADCRegAccess_->WriteBit(kOutputEnable, output, true);
        IOADCRegAccess_->WriteRegion(kOutputLevel, levelStart,
                                     static_cast<uint8_t>(levelStart + kLevelBits - 1),
                                     level == 1 ? kFieldOn : kFieldOff);
        IOADCRegAccess_->WriteBit(kOutput, output, level == 1);
    }
    UsbTimeResponse();
}

void IOADCService::IoAdcSetPeriod() {
    const uint16_t period = DigitUtil::GetInstance()->LittleEndianToUint16(pReqSrv + 2);
    IOADCRegAccess_->WriteRegion(kUpload, 0, kPeriodEnd, period);
    UsbTimeResponse();
}

void IOADCService::IoAdcSetTrigger() {
    const uint8_t state = pReqSrv[2];
    if (state > 1) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    for (uint8_t field = 0; field < kTriggerFields; ++field) {
        const auto start = static_cast<uint8_t>(field * kTriggerBits);
        IOADCRegAccess_->WriteRegion(kTrigger, start,
                                     static_cast<uint8_t>(start + kTriggerBits - 1),
                                     state == 1 ? kFieldOn : kFieldOff);
    }
    UsbTimeResponse();
}

void IOADCService::handleInterrupt() {
    norvane_dio_info sample{};
    if (read(dio_fd_.get(), &sample, sizeof(sample)) != sizeof(sample)) {
        std::perror("Failed to read interrupt info");
        RestDevice();
        return;
    }
    rest_ = kShortestRest;
    UploadFrame<kSampleUploadLength> upload;
    upload.Service()
        .U8(IOADC_SERVICE_GID)
        .U8(kSampleSid)
        .U64(sample.timestamp)
        .U8(sample.DIstatus)
        .U8(sample.DOstatus)
        .U8(sample.Trigger)
        .U16(0)
        .U16(sample.ADC1)
        .U16(sample.ADC2);
    upload.Send();
}

void IOADCService::RestDevice() {
    if (!dio_channel_ || !dio_channel_->isReading()) {
        return; // gone, or rests already: an error and a sample can come with one event
    }
    dio_channel_->disableReading();
    restEnd_ = loop_->runAfter(rest_, [this] { dio_channel_->enableReading(); });
    rest_ = std::min(2 * rest_, kLongestRest);
}

bool IOADCService::IoAdcCleanup() {
    for (const uint32_t offset : {kOutputEnable, kUpload, kTrigger, kOutputLevel, kOutput}) {
        IOADCRegAccess_->Write(offset, 0);
    }
    CloseDevice();
    current = nullptr;
    return false;
}

void IOADCService::IoAdc_EnablePeriod(uint8_t enable, uint64_t period) {
    IOADCRegAccess_->WriteBit(kUpload, kUploadOn, enable != 0);
    IOADCRegAccess_->WriteRegion(kUpload, 0, kPeriodEnd, static_cast<uint32_t>(period));
}
