#pragma once

#include "base/ZephChannel.h"
#include "base/ZephEventLoop.h"
#include "base/ZephEventLoopThreadPool.h"

#include <atomic>
#include <cstdint>
#include <memory>

class VciGroupService;

// The application: waits for the USB device, builds the loops and the services, and runs the base
// loop on the thread that made it, the main thread.
class VciManage {
  public:
    // Returns when the USB device exists and everything is built, or when a signal has asked for
    // the end while waiting; Run() then returns at once.
    VciManage();
    ~VciManage();
    VciManage(const VciManage&) = delete;
    VciManage& operator=(const VciManage&) = delete;

    void Init();

    // Serves the host until Quit().
    void Run();

    // Ends the pool's loops and the base loop, also when they have not begun to run. Any thread,
    // any number of times; another thread's caller sees to it that the object outlives the call.
    void Quit();

    void HandleUsbReadEvent();
    void HandleUsbWriteEvent();
    void HandleUsbErrorEvent();
    void HandleUsbCloseEvent();

  private:
    static bool WaitForUsb();
    void Rest();

    int usbFd_ = -1, linkFd_ = -1;
    ZephEventLoop baseLoop_;
    ZephChannel signalChannel_;
    std::shared_ptr<ZephChannel> usbChannel_;
    std::shared_ptr<ZephEventLoopThreadPool> threadPool_;
    std::shared_ptr<VciGroupService> group_;
    std::atomic<bool> quitting_{false};
    double rest_;              // seconds that the read channel rests next, while it waits for bytes
    uint32_t lastArrived_ = 0; // write index of the read ring at the last read event
};
