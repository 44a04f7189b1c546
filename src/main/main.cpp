#include "app/VciManage.h"
#include "base/SignalRelay.h"
#include "drivers/DevTimestamp.h"
#include "drivers/LifetimeManager.h"
#include "main/Deamon.h"
#include "utils/Console.h"
#include "utils/DevMemUtil.h"

#include <csignal>
#include <memory>

namespace {

// These two exist before main() runs. A machine without /dev/mem ends here, with the reason; a time
// block that cannot be mapped leaves a device whose time is 0.
const auto devMem = DevMemUtil::GetInstance();
const auto timestamp = Drivers::DevTimestamp::GetInstance();

std::unique_ptr<VciManage> vciManage; // global, so that HandleSignal can reach it

// Almost nothing may be called inside a signal handler, while the exit prints, waits for children
// and wakes loops. The handler only posts; the main thread does the rest in HandleSignal, between
// two events of its loop or while it waits for the USB device.
void UsbHandler(int signal) {
    SignalRelay::GetInstance().Post(signal);
}

// True when the program is to end.
bool HandleSignal(int signal) {
    switch (signal) {
    case SIGTERM:
        PrintLine("ready to exit!");
        LifetimeManager::GetInstance()->KillChilds();
        PrintLine("childs killed!");
        if (vciManage) {
            vciManage->Quit();
        }
        return true;
    case SIGUSR1:
        HandleSignal(SIGTERM);
        PrintLine("ready to start!");
        return true;
    case SIGUSR2:
        PrintLine("ready to start!");
        return false;
    default:
        return false;
    }
}

} // namespace

int main() {
    PrintLine("==========deamon==============");
    if (DeamonCreate() != 1) {
        PrintLine("create failed!");
        return -1;
    }
    SignalRelay::GetInstance().SetAction(HandleSignal);
    signal(SIGUSR1, UsbHandler);
    signal(SIGUSR2, UsbHandler);
    signal(SIGTERM, UsbHandler);
    vciManage = std::make_unique<VciManage>();
    vciManage->Run();
    PrintLine("vci manage normal exit!");
    vciManage.reset(); // while the singletons that the services use are still there
    return 0;
}
