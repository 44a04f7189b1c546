#pragma once

#include "vcihost/CanRecord.h"
#include "vcihost/LinRecord.h"

#include <optional>

namespace vcihost {

// The time in front of a line.
enum class ViewTime {
    Device,   // device time, nine decimals
    Absolute, // wall-clock time in seconds since 1970, six decimals
    Delta,    // since the line before
    Zero,     // since the first line
    Date,     // wall-clock time as local date and time
};

// Records as lines for people, as candump(1) shows them with -x, with errors in words:
// " (12.345678900)  can0  RX B -  123  [08]  11 22 33 44 55 66 77 88". Those of LIN look alike:
// " (12.345678900)  lin0  RX - -   10   [2]  11 22  checksum BC enhanced". Used on one thread.
class CandumpView {
  public:
    explicit CandumpView(ViewTime time) : time_(time) {}

    // One line without its line feed. `wall` is the record's wall-clock time, nanoseconds.
    std::string Line(const CanFrameRecord& record, uint64_t wall);
    std::string Line(const CanErrorRecord& record, uint64_t wall);
    std::string Line(const LinFrameRecord& record, uint64_t wall);
    std::string Line(const LinWakeupRecord& record, uint64_t wall);

  private:
    std::string Head(uint64_t device, uint64_t wall, const std::string& channel,
                     const char* direction, const char* flags);
    std::string IdText(const std::string& id) const;
    std::string Time(uint64_t device, uint64_t wall);

    ViewTime time_;
    bool wide_ = false;              // once an extended identifier has come, standard ones move
    std::optional<uint64_t> origin_; // device time from which -t d and -t z count
};

} // namespace vcihost
