#pragma once

#include "vcihost/LinTable.h"

// The schedule table of a file, or of standard input for a single -. Throws UsageError,
// vcihost::FileError, vcihost::NotationError.
std::vector<vcihost::LinSlot> ReadLinTableFile(const std::string& path);
