#include "vcihost/CanFilter.h"

#include "vcihost/Notation.h"
#include "vcihost/SocketCan.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr uint32_t kAllErrors = 0x1FFFFFFF;
constexpr size_t kExtendedDigits = 8; // this many digits name an extended identifier

std::optional<uint32_t> ParseHexNumber(std::string_view text) {
    uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, 16);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return number;
}

} // namespace

CanFilter::CanFilter(std::string_view text, std::string_view filters) : errors_(kAllErrors) {
    while (!filters.empty()) {
        const size_t comma = std::min(filters.find(','), filters.size());
        Add(text, filters.substr(0, comma));
        filters.remove_prefix(std::min(comma + 1, filters.size()));
    }
}

void CanFilter::Add(std::string_view text, std::string_view part) {
    if (part == "j" || part == "J") {
        joined_ = true;
        return;
    }
    if (part.starts_with('#')) {
        if (const auto mask = ParseHexNumber(part.substr(1))) {
            errors_ = *mask;
            return;
        }
    }
    const size_t sign = part.find_first_of(":~");
    if (sign != std::string_view::npos) {
        const auto id = ParseHexNumber(part.substr(0, sign));
        const auto mask = ParseHexNumber(part.substr(sign + 1));
        if (id && mask) {
            rules_.push_back({*id | (sign == kExtendedDigits ? kSocketCanExtended : 0), *mask,
                              part[sign] == '~'});
            return;
        }
    }
    throw NotationError(fmt::format("'{}': '{}' is no filter; write id:mask, id~mask, #errormask "
                                    "or j, all in hex, as in can0,123:7FF,400~700",
                                    text, part));
}

bool CanFilter::Passes(const CanFrameRecord& record) const {
    if (rules_.empty()) {
        return true;
    }
    const uint32_t id = SocketCanId(record);
    const auto passes = [id](const Rule& rule) {
        return ((id & rule.mask) == (rule.id & rule.mask)) != rule.inverted;
    };
    return joined_ ? std::all_of(rules_.begin(), rules_.end(), passes)
                   : std::any_of(rules_.begin(), rules_.end(), passes);
}

bool CanFilter::Passes(const CanErrorRecord& record) const {
    return (SocketCanId(record) & ~kSocketCanError & errors_) != 0;
}

CanFilters CanFilters::Parse(const std::vector<std::string>& arguments) {
    CanFilters all;
    const auto add = [&all](uint8_t channel, const CanFilter& filter, std::string_view name) {
        if (all.filters_[channel]) {
            throw NotationError(fmt::format("'{}' names {} a second time; write all its filters "
                                            "behind the first, as in can0,123:7FF,400:700",
                                            name, CanChannelName(channel)));
        }
        all.filters_[channel] = filter;
        all.channels_.push_back(channel);
    };
    const auto addAll = [&add](const CanFilter& filter, std::string_view name) {
        for (uint8_t channel = 0; channel < kCanChannels; ++channel) {
            add(channel, filter, name);
        }
    };
    for (const std::string& argument : arguments) {
        const std::string_view text = argument;
        const size_t comma = std::min(text.find(','), text.size());
        const std::string_view name = text.substr(0, comma);
        const CanFilter filter(text, text.substr(std::min(comma + 1, text.size())));
        if (name == "any") {
            addAll(filter, text);
        } else {
            add(ParseCanChannel(name), filter, text);
        }
    }
    if (arguments.empty()) {
        addAll(CanFilter("", ""), "");
    }
    return all;
}

} // namespace vcihost
