#pragma once

#include "vcictl/Ask.h"

#include <map>

// What to do about a refused request of a LIN channel, 0 or 1. `special`: what to say of some codes
// instead of what is usual.
RefusalAdvice LinAdvice(uint8_t channel, std::map<uint8_t, std::string> special = {});

// The same of a table, which is stored and not handed to the driver.
RefusalAdvice LinTableAdvice(uint8_t channel);
