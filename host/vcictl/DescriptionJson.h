#pragma once

#include "vcihost/Describe.h"

#include <string>

// A description as one JSON object on one line: kind, text, then the fields by their names.
std::string DescriptionJson(const vcihost::Description& description);
