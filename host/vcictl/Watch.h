#pragma once

#include "vcictl/Command.h"

#include <functional>

// Opens the link and hands each message to `show`, which returns true for those that it has shown,
// until the deadline has passed or `count` of them were shown; 0 for no limit. Returns how many.
uint64_t WatchMessages(const Tool& tool, vcihost::Deadline deadline, uint64_t count,
                       const std::function<bool(const vcihost::Bytes&)>& show);
