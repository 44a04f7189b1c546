#pragma once

#include "hal/IHalGpio.h"
#include "hal/IMachine.h"
#include "hal/IRegAccess.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include <sys/types.h>

namespace Hal {

// Where everything gets its hardware from: the board, unless a test has put something else there.

// A register block of `size` bytes at physical address `base`; never null, see isValid().
std::shared_ptr<IRegAccess> MakeRegAccess(off_t base, size_t size);

// The GPIO chip of that name; never null, a missing chip answers -1.
std::shared_ptr<IHalGpio> MakeGpio(const std::string& chipName);

// The machine and its kernel; never null.
std::shared_ptr<IMachine> MakeMachine();

// Stand-ins for the board. An empty function means the board's own class.
struct HalMakers {
    std::function<std::shared_ptr<IRegAccess>(off_t base, size_t size)> regAccess;
    std::function<std::shared_ptr<IHalGpio>(const std::string& chipName)> gpio;
    std::function<std::shared_ptr<IMachine>()> machine;
};

// Takes effect for objects made later. Main thread, before any other thread makes hardware.
void SetHalMakers(HalMakers makers);

} // namespace Hal
