#include "vcictl/LinStateCommand.h"

#include "common/GlobalEnums.h"
#include "vcictl/LinRefusal.h"
#include "vcihost/LinRequest.h"

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr char kCloseFooter[] =
    "The schedule is stopped first: the device lets it run on over a close.\n"
    "\n"
    "Example:\n"
    "  vcictl lin close lin0";

constexpr char kRoleFooter[] = "The role changes only while no schedule runs.\n"
                               "\n"
                               "Examples:\n"
                               "  vcictl lin role lin0 commander\n"
                               "  vcictl lin role lin1 responder";

constexpr char kClearFooter[] = "The schedule of a commander stops.\n"
                                "\n"
                                "Examples:\n"
                                "  vcictl lin clear lin0 table\n"
                                "  vcictl lin clear lin0 all";

constexpr char kStopFooter[] =
    "The answer comes when the slot in hand is over; with slots of a second and more\n"
    "set --wait.\n"
    "\n"
    "Example:\n"
    "  vcictl lin stop lin0";

constexpr char kSleepFooter[] =
    "The frame that sends the bus to sleep goes out when the frame in hand has had\n"
    "its time. A wake-up signal starts the schedule again, 800 ms later, while the\n"
    "channel is recorded.\n"
    "\n"
    "Example:\n"
    "  vcictl lin sleep lin0";

// What a refusal by these codes means here.
std::map<uint8_t, std::string> Special(LinStateCommand::Kind kind, const std::string& name) {
    switch (kind) {
    case LinStateCommand::Kind::Close:
        return {{ERROR_GET_CHANNEL_STATE, name + " is not open"}};
    case LinStateCommand::Kind::Role:
        return {{SERVICE_WRONG_SEQUENCE,
                 fmt::format("{0} is closed (vcictl lin open {0}) or its schedule runs (vcictl lin "
                             "stop {0})",
                             name)}};
    case LinStateCommand::Kind::Sleep:
        return {{ERROR_GET_CHANNEL_STATE,
                 fmt::format("{0} is a responder, which can only wake the bus: vcictl lin role "
                             "{0} commander",
                             name)}};
    case LinStateCommand::Kind::Clear:
    case LinStateCommand::Kind::Stop:
        break;
    }
    return {};
}

vcihost::LinClear Clear(const std::string& what) {
    return what == "table"       ? vcihost::LinClear::Table
           : what == "responses" ? vcihost::LinClear::Responses
                                 : vcihost::LinClear::All;
}

} // namespace

LinStateCommand::LinStateCommand(CLI::App& app, Kind kind) : kind_(kind) {
    AddLinChannel(app, channel_);
    const auto addValue = [&](const char* name, const char* help,
                              const std::vector<std::string>& values) {
        app.add_option(name, value_, help)->required()->check(CLI::IsMember(values))->type_name("");
    };
    switch (kind) {
    case Kind::Close:
        app.footer(kCloseFooter);
        break;
    case Kind::Role:
        app.footer(kRoleFooter);
        addValue("ROLE", "commander or responder", {"commander", "responder"});
        break;
    case Kind::Clear:
        app.footer(kClearFooter);
        addValue("WHAT", "table, responses or all", {"table", "responses", "all"});
        break;
    case Kind::Stop:
        app.footer(kStopFooter);
        break;
    case Kind::Sleep:
        app.footer(kSleepFooter);
        break;
    }
    AddWait(app, wait_);
}

vcihost::Bytes LinStateCommand::Request(uint8_t channel) const {
    switch (kind_) {
    case Kind::Close:
        return vcihost::LinCloseRequest(channel);
    case Kind::Role:
        return vcihost::LinRoleRequest(channel, value_ == "commander");
    case Kind::Clear:
        return vcihost::LinClearRequest(channel, Clear(value_));
    case Kind::Stop:
        return vcihost::LinScheduleRequest(channel, false);
    case Kind::Sleep:
        break;
    }
    return vcihost::LinSleepRequest(channel);
}

std::string LinStateCommand::Done() const {
    switch (kind_) {
    case Kind::Close:
        return "closed";
    case Kind::Role:
        return value_;
    case Kind::Clear:
        return value_ == "all" ? "table and responses cleared" : value_ + " cleared";
    case Kind::Stop:
        return "schedule stopped";
    case Kind::Sleep:
        break;
    }
    return "sleep accepted";
}

ExitStatus LinStateCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseLinChannel(channel_);
    const std::string name = vcihost::LinChannelName(channel);
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    if (kind_ == Kind::Close) {
        // A channel that is closed refuses it; what there is to say of that, the close says.
        static_cast<void>(session.Ask(vcihost::LinScheduleRequest(channel, false), wait_));
    }
    const ExitStatus status =
        AskPlain(session, Request(channel), wait_, LinAdvice(channel, Special(kind_, name)));
    if (status == kExitOk) {
        tool.out.Line(fmt::format("{}: {}", name, Done()));
    }
    return status;
}
