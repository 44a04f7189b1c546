#include "vcictl/LinResponseCommand.h"

#include "vcictl/LinRefusal.h"

#include <algorithm>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr char kFooter[] =
    "On a commander a response goes out behind the header of its identifier in the\n"
    "schedule, on a responder behind that of the commander. Deletes go first.\n"
    "\n"
    "Setting a response starts the schedule of a commander that has a table, also\n"
    "when it was stopped. A response that was deleted comes back with the next table.\n"
    "\n"
    "Examples:\n"
    "  vcictl lin response lin0 10#1122 11#00.FF\n"
    "  vcictl lin response lin0 --delete 10 11";

} // namespace

LinResponseCommand::LinResponseCommand(CLI::App& app) {
    app.footer(kFooter);
    AddLinChannel(app, channel_);
    app.add_option("FRAME", frames_, "Identifiers with their responses")->type_name("");
    app.add_option("--delete", deletes_, "Identifiers whose responses to delete")->type_name("ID");
    AddWait(app, wait_);
}

std::vector<vcihost::LinFrame> LinResponseCommand::Responses() const {
    std::vector<vcihost::LinFrame> responses;
    for (const std::string& text : frames_) {
        responses.push_back(vcihost::ParseLinFrame(text));
        if (responses.back().headerOnly) {
            throw UsageError(fmt::format("'{}' is a header alone; write the bytes of the response, "
                                         "as {}#1122",
                                         text, vcihost::LinIdText(responses.back().id)));
        }
    }
    return responses;
}

ExitStatus LinResponseCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseLinChannel(channel_);
    const auto responses = Responses();
    std::vector<uint8_t> deletes;
    for (const std::string& text : deletes_) {
        deletes.push_back(vcihost::ParseLinId(text));
    }
    if (responses.empty() && deletes.empty()) {
        throw UsageError("give responses to set, or --delete and identifiers");
    }
    if (std::max(responses.size(), deletes.size()) > vcihost::kMostLinResponses) {
        throw UsageError(fmt::format("more than {} responses at once; a bus has 64 identifiers",
                                     vcihost::kMostLinResponses));
    }
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    const auto ask = [&](const vcihost::Bytes& request) {
        return AskPlain(session, request, wait_, LinAdvice(channel));
    };
    ExitStatus status = kExitOk;
    if (!deletes.empty()) {
        status = ask(vcihost::LinResponseDeleteRequest(channel, deletes));
    }
    if (status == kExitOk && !responses.empty()) {
        status = ask(vcihost::LinResponseRequest(channel, responses));
    }
    if (status == kExitOk) {
        tool.out.Line(fmt::format("{}: {} set, {} deleted", vcihost::LinChannelName(channel),
                                  CountText(responses.size(), "response", "responses"),
                                  deletes.size()));
    }
    return status;
}
