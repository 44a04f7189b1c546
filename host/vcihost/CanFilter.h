#pragma once

#include "vcihost/CanRecord.h"

#include <array>
#include <string_view>
#include <vector>

namespace vcihost {

// Which records of a channel are wanted, as candump(1) takes it: "can0,123:7FF,400~700,#0,j".
// A frame passes one of the filters, or with j all of them; without filters every frame passes.
// Errors pass unless #MASK leaves out their class. A plain value.
class CanFilter {
  public:
    // What stands behind the channel; `text` is the whole argument, for errors. Throws
    // NotationError.
    CanFilter(std::string_view text, std::string_view filters);

    bool Passes(const CanFrameRecord& record) const;
    bool Passes(const CanErrorRecord& record) const;

  private:
    // In all of these identifiers have SocketCAN's flag bits.
    struct Rule {
        uint32_t id;
        uint32_t mask;
        bool inverted;
    };

    void Add(std::string_view text, std::string_view part);

    std::vector<Rule> rules_;
    bool joined_ = false;
    uint32_t errors_;
};

// The channels of a recording, each with what is wanted of it.
class CanFilters {
  public:
    // Of arguments CHANNEL[,FILTER]...; `any`, or no argument at all, stands for all channels.
    // Throws NotationError.
    static CanFilters Parse(const std::vector<std::string>& arguments);

    // In the order of the arguments.
    const std::vector<uint8_t>& Channels() const { return channels_; }

    bool Has(uint8_t channel) const { return filters_[channel].has_value(); }

    // Of channels that are there.
    template <typename Record> bool Passes(const Record& record) const {
        return filters_[record.channel]->Passes(record);
    }

  private:
    std::vector<uint8_t> channels_;
    std::array<std::optional<CanFilter>, kCanChannels> filters_;
};

} // namespace vcihost
