#include "vcictl/LinReceiptOutput.h"

#include "vcictl/Command.h"
#include "vcictl/Measured.h"

#include <fmt/format.h>

namespace {

constexpr char kRow[] = "{:>5} {:<3} {:>10} {:>10} {:>6} {:>6} {:>5} {:>6} {:>8} {:>8} {:>8} {:>8}";

} // namespace

void PrintLinReceipt(Output& out, const std::vector<vcihost::LinSlot>& table,
                     const vcihost::LinReceipt& receipt) {
    out.Line("times in us, from the start of a cycle; lateness below 0 is too early; - is not "
             "measured");
    out.Line(fmt::format(kRow, "entry", "id", "due at", "went at", "due", "seen", "lost", "errors",
                         "earliest", "median", "p99", "latest"));
    for (size_t i = 0; i < table.size(); ++i) {
        const vcihost::LinSlotReceipt& slot = receipt.slots[i];
        out.Line(fmt::format(kRow, i + 1, vcihost::LinIdText(table[i].id), Microseconds(slot.at),
                             Microseconds(slot.went), slot.due, slot.seen, slot.lost, slot.failed,
                             Microseconds(slot.late.earliest), Microseconds(slot.late.median),
                             Microseconds(slot.late.p99), Microseconds(slot.late.latest)));
    }
    out.Line(fmt::format("cycle {} us planned, {}", Microseconds(receipt.planned),
                         receipt.measured ? Microseconds(receipt.measured) + " us measured"
                                          : "not measured"));
    if (receipt.others > 0) {
        out.Line(CountText(receipt.others, "frame", "frames") + " of no entry of the table");
    }
}

nlohmann::ordered_json LinReceiptJson(const std::vector<vcihost::LinSlot>& table,
                                      const vcihost::LinReceipt& receipt) {
    nlohmann::ordered_json object{{"cycle_planned_ns", receipt.planned},
                                  {"cycle_measured_ns", OrNull(receipt.measured)},
                                  {"other_frames", receipt.others},
                                  {"slots", nlohmann::ordered_json::array()}};
    for (size_t i = 0; i < table.size(); ++i) {
        const vcihost::LinSlotReceipt& slot = receipt.slots[i];
        object["slots"].push_back({{"id", table[i].id},
                                   {"due_at_ns", slot.at},
                                   {"went_at_ns", OrNull(slot.went)},
                                   {"due", slot.due},
                                   {"seen", slot.seen},
                                   {"lost", slot.lost},
                                   {"errors", slot.failed},
                                   {"late_earliest_ns", OrNull(slot.late.earliest)},
                                   {"late_median_ns", OrNull(slot.late.median)},
                                   {"late_p99_ns", OrNull(slot.late.p99)},
                                   {"late_latest_ns", OrNull(slot.late.latest)}});
    }
    return object;
}
