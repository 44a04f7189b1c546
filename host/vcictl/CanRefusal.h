#pragma once

#include "vcictl/Ask.h"

// What to do about a refused request to send on a channel, 0 to 5.
RefusalAdvice CanSendAdvice(uint8_t channel);
