#include "app/VciManage.h"

#include "app/VciServiceGroup.h"
#include "base/SignalRelay.h"
#include "drivers/LifetimeManager.h"
#include "drivers/UsbDriver.h"
#include "utils/Console.h"
#include "utils/Logger.h"
#include "utils/UniqueFd.h"
#include "versions/VersionManager.h"

#include <algorithm>
#include <string>

#include <fcntl.h>
#include <poll.h>

namespace {

constexpr int kPoolThreads = 3;
constexpr int kUsbRetryMs = 1000;

// How long the read channel rests while the ring holds only bytes that cannot be treated yet: they
// keep the device readable, and without a rest the loop would spin until others arrive. The rest
// doubles up to the longest while nothing arrives, for a host that may stay silent.
constexpr double kShortestRest = 0.001; // seconds
constexpr double kLongestRest = 0.032;

std::string UsbPath() {
    return VersionManager::GetInstance().GetUsbConfig()->GetUsbPath();
}

} // namespace

VciManage::VciManage()
    : signalChannel_(&baseLoop_, SignalRelay::GetInstance().Fd()), rest_(kShortestRest) {
    LifetimeManager::GetInstance()->Init();
    if (!WaitForUsb()) {
        return;
    }
    threadPool_ = std::make_shared<ZephEventLoopThreadPool>(&baseLoop_, kPoolThreads);
    group_ = std::make_shared<VciGroupService>(&baseLoop_, threadPool_);
    // The read channel's descriptor lives as long as the process: nothing closes it.
    const int fd = open(UsbPath().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    usbChannel_ = std::make_shared<ZephChannel>(&baseLoop_, fd);
}

VciManage::~VciManage() {
    PrintLine("~VciManage");
    signalChannel_.remove();
    if (usbChannel_) {
        usbChannel_->remove();
    }
}

// True when the device is there, false when a signal has asked for the end before.
bool VciManage::WaitForUsb() {
    auto& signals = SignalRelay::GetInstance();
    for (;;) {
        // Opening it only proves that the gadget device is there.
        const UniqueFd probe(open(UsbPath().c_str(), O_RDWR | O_CLOEXEC));
        if (probe.get() > 0) {
            PrintLine("got usb!");
            return true;
        }
        PrintLine("wait usb...");
        pollfd wakeup{signals.Fd(), POLLIN, 0};
        if (poll(&wakeup, 1, kUsbRetryMs) > 0 && signals.Dispatch()) {
            return false;
        }
    }
}

void VciManage::Init() {
    signalChannel_.setReadCallback([](ZephTimestamp) { SignalRelay::GetInstance().Dispatch(); });
    signalChannel_.enableReading();

    // An error condition of the device simply tries a read, and a hang-up is only logged.
    usbChannel_->setReadCallback([this](ZephTimestamp) { HandleUsbReadEvent(); });
    usbChannel_->setErrorCallback([this] { HandleUsbReadEvent(); });
    usbChannel_->setCloseCallback([this] {
        HandleUsbWriteEvent();
        Rest(); // a hang-up that lasts would otherwise fill the loop and the console
    });
    usbChannel_->enableReading();
    baseLoop_.updateChannel(usbChannel_.get());
    group_->Init();
}

void VciManage::Run() {
    if (!group_) {
        return; // ended while waiting for the device
    }
    Init();
    Drivers::UsbDriver::GetInstance(); // the first use maps the rings
    group_->StartReading();
    threadPool_->start({});
    baseLoop_.loop();
}

void VciManage::Quit() {
    if (quitting_.exchange(true)) {
        return; // the loops that the first call ended may be gone
    }
    // Posted, since a flag that is set before a loop runs would be cleared when it begins.
    const auto quit = [](ZephEventLoop* loop) { loop->queueInLoop([loop] { loop->quit(); }); };
    if (threadPool_) {
        for (ZephEventLoop* loop : threadPool_->GetLoops()) {
            quit(loop);
        }
    }
    quit(&baseLoop_);
}

void VciManage::HandleUsbReadEvent() {
    if (quitting_) {
        return; // what has come belongs to the next daemon
    }
    const uint32_t arrived = Drivers::UsbDriver::GetInstance().ReadIn();
    if (arrived != lastArrived_) {
        lastArrived_ = arrived;
        rest_ = kShortestRest;
    }
    group_->HandleUsbEvent();
    // A request may have raised one: a clear ends the daemon before the next frame is treated.
    if (SignalRelay::GetInstance().Waits()) {
        SignalRelay::GetInstance().Dispatch();
    }
    if (group_->WaitsForBytes()) {
        Rest();
    }
}

void VciManage::Rest() {
    if (!usbChannel_->isReading()) {
        return; // rests already: an error and bytes can come with one event
    }
    usbChannel_->disableReading();
    baseLoop_.runAfter(rest_, [this] { usbChannel_->enableReading(); });
    rest_ = std::min(2 * rest_, kLongestRest);
}

void VciManage::HandleUsbWriteEvent() {
    VCI_LOG_INFO << "VciManage::HandleUsbWriteEvent()";
}

void VciManage::HandleUsbErrorEvent() {
    VCI_LOG_INFO << "VciManage::HandleUsbErrorEvent()";
}

void VciManage::HandleUsbCloseEvent() {
    VCI_LOG_INFO << "VciManage::HandleUsbCloseEvent()";
}
