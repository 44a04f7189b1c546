#pragma once

#include "vcihost/CanFilter.h"
#include "vcihost/RecordChannel.h"

namespace vcihost {

// The channels of a recording, each with what is wanted of it. A plain value.
class RecordSelection {
  public:
    // Of arguments as CanFilters::Parse() takes them, and names of LIN channels, which have no
    // filters. No argument at all stands for all CAN channels. Throws NotationError.
    static RecordSelection Parse(const std::vector<std::string>& arguments);

    // CAN channels first, else in the order of the arguments.
    const std::vector<RecordChannel>& Channels() const { return channels_; }

    bool Has(RecordChannel channel) const;
    bool HasLin() const;

    // Of channels that are there.
    bool Passes(const CanFrameRecord& record) const { return can_.Passes(record); }
    bool Passes(const CanErrorRecord& record) const { return can_.Passes(record); }
    bool Passes(const LinFrameRecord& /*record*/) const { return true; }
    bool Passes(const LinWakeupRecord& /*record*/) const { return true; }

  private:
    std::vector<RecordChannel> channels_;
    CanFilters can_;
};

} // namespace vcihost
