#include "net/ZephLinComM.h"

#include "drivers/LinManage.h"
#include "utils/Console.h"

#include <utility>

namespace {

constexpr int kFailed = -1;
constexpr int kNetClosed = -0xF003;
constexpr int kBadChannel = -0xF004;
constexpr int kDeviceClosed = -0xF005;

bool DeviceIsOpen(uint8_t ch) {
    return Drivers::LinManage::GetDeviceStatus(ch) == 1;
}

} // namespace

ZephLinComM& ZephLinComM::GetInstance() {
    static ZephLinComM instance;
    return instance;
}

ZephLinComM::ZephLinComM() {
    PrintLine("ZephLinComM has created");
    for (size_t ch = 0; ch < kChannels; ++ch) {
        linCom_.push_back(std::make_shared<ZephLinCom>(static_cast<int>(ch)));
    }
}

int ZephLinComM::LinComMOpen(uint8_t ch) {
    if (ch >= kChannels || !DeviceIsOpen(ch) || linNetStatus_[ch] == 1) {
        PrintLine("lin socket already open!"); // said of a closed device as well
        return 0;
    }
    if (linCom_[ch]->Open() < 0) {
        PrintLine("ZephLinComM::LinComMOpen： socket open fail");
        return kFailed;
    }
    const std::lock_guard lock(mutex_);
    linNetStatus_[ch] = 1;
    return 0;
}

int ZephLinComM::LinComMClose(uint8_t ch, int mode) {
    if (ch >= kChannels) {
        return kBadChannel;
    }
    if (!DeviceIsOpen(ch)) {
        PrintLine("ZephLinComM::LinComMClose： device do not open");
        return kDeviceClosed;
    }
    if (linNetStatus_[ch] == 0) {
        PrintLine("ZephLinComM::LinComMClose： net already close");
        return kNetClosed;
    }
    if (linCom_[ch]->Close(mode) < 0) {
        PrintLine("ZephLinComM::LinComMClose： socket close fail");
        return kFailed;
    }
    const std::lock_guard lock(mutex_);
    linNetStatus_[ch] = 0;
    return 0;
}

int ZephLinComM::WriteCallback(uint8_t ch, const canfd_frame* frame) {
    if (!DeviceIsOpen(ch)) {
        PrintLine("ZephLinComM::WriteCallback： device do not open");
        return kDeviceClosed;
    }
    if (ch >= kChannels) {
        return kBadChannel;
    }
    if (linNetStatus_[ch] == 0) {
        PrintLine("ZephLinComM::WriteCallback： net close");
        return kNetClosed;
    }
    return linCom_[ch]->Write(frame);
}

int ZephLinComM::ErrUploadCallback(uint8_t ch) {
    if (!DeviceIsOpen(ch)) {
        return kDeviceClosed;
    }
    if (ch >= kChannels) {
        return kBadChannel;
    }
    return linCom_[ch]->ErrUpload();
}

int ZephLinComM::GetComNetStatus(uint8_t ch) const {
    return ch < kChannels ? linNetStatus_[ch].load() : kBadChannel;
}

void ZephLinComM::ReplaceChannel(uint8_t ch, std::shared_ptr<ZephLinCom> com) {
    linCom_.at(ch) = std::move(com);
}
