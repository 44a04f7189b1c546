#pragma once

// How vcictl ends. Scripts rely on the numbers.
enum ExitStatus {
    kExitOk = 0,
    kExitRefused = 1,  // the device refused, or an expectation was not met
    kExitTrouble = 2,  // wrong usage, or trouble with the device
    kExitNoAnswer = 3, // nothing came in time
};
