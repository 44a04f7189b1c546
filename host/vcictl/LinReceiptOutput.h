#pragma once

#include "vcictl/Output.h"
#include "vcihost/LinReceipt.h"

#include <nlohmann/json_fwd.hpp>

// What came of a schedule, as a table, and as one object.
void PrintLinReceipt(Output& out, const std::vector<vcihost::LinSlot>& table,
                     const vcihost::LinReceipt& receipt);
nlohmann::ordered_json LinReceiptJson(const std::vector<vcihost::LinSlot>& table,
                                      const vcihost::LinReceipt& receipt);
