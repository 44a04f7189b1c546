#pragma once

// How vcictl ends. Scripts rely on the numbers.
enum ExitStatus {
    kExitOk = 0,
    kExitRefused = 1,  // the device refused, or an expectation was not met
    kExitTrouble = 2,  // wrong usage, or trouble with the device
    kExitNoAnswer = 3, // nothing came in time
};

// What two steps come to, of which the second is done in any case: the first thing that went wrong.
constexpr ExitStatus FirstBad(ExitStatus first, ExitStatus second) {
    return first != kExitOk ? first : second;
}
