#include "vcihost/RecordSelection.h"

#include "vcihost/Notation.h"

#include <algorithm>

#include <fmt/format.h>

namespace vcihost {

namespace {

using Bus = RecordChannel::Bus;

RecordChannel ParseLin(std::string_view argument) {
    const size_t comma = std::min(argument.find(','), argument.size());
    const RecordChannel channel{Bus::Lin, ParseLinChannel(argument.substr(0, comma))};
    if (comma < argument.size()) {
        throw NotationError(
            fmt::format("'{}': a LIN channel has no filters; write {}", argument, channel.Name()));
    }
    return channel;
}

} // namespace

RecordSelection RecordSelection::Parse(const std::vector<std::string>& arguments) {
    RecordSelection selection;
    std::vector<RecordChannel> lin;
    std::vector<std::string> can;
    for (const std::string& argument : arguments) {
        if (!IsLinName(std::string_view(argument).substr(0, argument.find(',')))) {
            can.push_back(argument);
            continue;
        }
        lin.push_back(ParseLin(argument));
        if (std::count(lin.begin(), lin.end(), lin.back()) > 1) {
            throw NotationError(
                fmt::format("'{}' names {} a second time", argument, lin.back().Name()));
        }
    }
    if (!can.empty() || lin.empty()) {
        selection.can_ = CanFilters::Parse(can);
    }
    for (const uint8_t channel : selection.can_.Channels()) {
        selection.channels_.push_back({Bus::Can, channel});
    }
    selection.channels_.insert(selection.channels_.end(), lin.begin(), lin.end());
    return selection;
}

bool RecordSelection::Has(RecordChannel channel) const {
    return std::find(channels_.begin(), channels_.end(), channel) != channels_.end();
}

bool RecordSelection::HasLin() const {
    return std::any_of(channels_.begin(), channels_.end(),
                       [](const RecordChannel& channel) { return channel.IsLin(); });
}

} // namespace vcihost
