#include "vcictl/DeviceCommand.h"

#include "common/GlobalEnums.h"
#include "vcictl/Ask.h"
#include "vcictl/JsonText.h"
#include "vcictl/Restart.h"
#include "vcihost/DeviceInfo.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/Notation.h"

#include <cstdio>
#include <iostream>

#include <unistd.h>

#include <CLI/App.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace {

constexpr char kFooter[] =
    "Exit status: 0 done, 1 the device refused, 2 wrong usage or trouble with the\n"
    "device, 3 no answer in time, or no restart.\n"
    "\n"
    "Examples:\n"
    "  vcictl device info                  versions, build date, identity and time\n"
    "  vcictl device reset                 start the board anew, and wait for it\n"
    "\n"
    "vcictl device COMMAND --help tells about one command.";

constexpr char kInfoFooter[] =
    "The uid is the card identification register of the board's eMMC. What the device\n"
    "refuses to tell is shown as a dash, and the exit status is 1.\n"
    "\n"
    "Examples:\n"
    "  vcictl device info\n"
    "  vcictl device info --json";

constexpr char kTimeFooter[] = "vcictl time compares it with the host's clock.\n"
                               "\n"
                               "Example:\n"
                               "  vcictl device time";

constexpr char kSerialFooter[] =
    "The device stores NV and these ten digits or letters in its eMMC, over what is\n"
    "there. On a terminal it asks first. The device answers before the eMMC has taken\n"
    "the bytes: leave it its power for a second.\n"
    "\n"
    "Examples:\n"
    "  vcictl device serial 0123456789\n"
    "  vcictl device serial 0123456789 --yes";

constexpr char kResetFooter[] =
    "The device answers, writes out what its eMMC has yet to take, and starts the\n"
    "board anew. Everything that was set up is gone then. The tool waits until it\n"
    "answers again.\n"
    "\n"
    "Examples:\n"
    "  vcictl device reset\n"
    "  vcictl device reset --no-wait";

constexpr char kClearFooter[] =
    "The device stops and closes all channels, takes their termination resistors off,\n"
    "stops what it sends on its own, and starts its application anew, which then\n"
    "answers. The tool waits for that answer. A LIN schedule ends with its present\n"
    "slot, which may take a minute.\n"
    "\n"
    "Examples:\n"
    "  vcictl device clear\n"
    "  vcictl device clear --no-wait";

std::string UidAdvice(uint8_t code) {
    switch (code) {
    case NO_FILE:
        return "the board shows no eMMC (mmcblk0)";
    case BUFFER_BUSY:
        return "the eMMC's register has fewer than 32 digits";
    case OPEN_FILE_FAILED:
        return "the eMMC's register holds a character that is no hex digit";
    default:
        return "";
    }
}

std::string SerialAdvice(uint8_t code) {
    if (code == NO_FILE) {
        return "the partition for the serial number (mmcblk0p3) does not open";
    }
    return "";
}

// Throws UsageError where nobody can answer.
bool Confirm(const std::string& question) {
    if (isatty(STDIN_FILENO) == 0) {
        throw UsageError("standard input is no terminal; confirm with --yes");
    }
    static_cast<void>(std::fputs((question + " [y/N] ").c_str(), stderr));
    std::string line;
    std::getline(std::cin, line);
    return line == "y" || line == "Y" || line == "yes" || line == "Yes";
}

// Asks for one thing of group 1. Nothing, with `status` set and a complaint made, when it did not
// come; `read` takes it out of the answer.
template <typename Read>
auto AskFor(vcihost::Session& session, uint8_t sid, std::chrono::milliseconds timeout,
            const RefusalAdvice& advice, Read read, ExitStatus& status)
    -> decltype(read(std::declval<const vcihost::Message&>())) {
    const auto answer = AskMessage(session, vcihost::DeviceRequest(sid), timeout, advice);
    if (answer.status != kExitOk) {
        status = answer.status;
        return std::nullopt;
    }
    const auto message = vcihost::ParseMessage(answer.bytes);
    auto value = message ? read(*message) : std::nullopt;
    if (!value) {
        Complain("the answer has an unknown form: " + vcihost::ToHex(answer.bytes));
        status = kExitTrouble;
    }
    return value;
}

} // namespace

DeviceCommand::DeviceCommand(CLI::App& app) {
    app.footer(kFooter);
    app.require_subcommand(1);
    info_ = AddPart(app, "info", "Show versions, build date, identity and time", kInfoFooter);
    time_ = AddPart(app, "time", "Show the device time", kTimeFooter);
    serial_ = AddPart(app, "serial", "Write the serial number", kSerialFooter);
    reset_ = AddPart(app, "reset", "Start the board anew", kResetFooter);
    CLI::App* const clear = AddPart(app, "clear", "Clear all configuration", kClearFooter);

    serial_->add_option("DIGITS", digits_, "Ten digits or letters")->required()->type_name("");
    serial_->add_flag("--yes", yes_, "Do not ask first");
    for (CLI::App* const part : {info_, time_}) {
        part->add_flag("--json", json_, "Print a JSON object");
    }
    for (CLI::App* const part : {reset_, clear}) {
        part->add_flag("--no-wait", noWait_, "Do not wait until the device answers again");
        part->add_option("--limit", limit_, "Wait so long for it: 30s")
            ->type_name("TIME")
            ->capture_default_str();
    }
    for (CLI::App* const part : {info_, time_, serial_, reset_, clear}) {
        AddWait(*part, wait_);
    }
}

ExitStatus DeviceCommand::Run(Tool& tool) {
    if (info_->parsed()) {
        return Info(tool);
    }
    if (time_->parsed()) {
        return Time(tool);
    }
    if (serial_->parsed()) {
        return Serial(tool);
    }
    return reset_->parsed() ? Reset(tool) : Clear(tool);
}

ExitStatus DeviceCommand::Info(Tool& tool) const {
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    ExitStatus status = kExitOk;
    const auto version = AskFor(session, vcihost::kDeviceVersionSid, wait_, {},
                                vcihost::DeviceVersion::From, status);
    if (status == kExitNoAnswer) {
        return status; // nor will it answer the others
    }
    const auto build =
        AskFor(session, vcihost::kDeviceBuildSid, wait_, {}, vcihost::DeviceBuild::From, status);
    const auto uid =
        AskFor(session, vcihost::kDeviceUidSid, wait_, UidAdvice, vcihost::DeviceUid, status);
    const auto time =
        AskFor(session, vcihost::kDeviceTimeSid, wait_, {}, vcihost::TimeInAnswer, status);
    const auto numbers = [&](const auto& of) {
        return version ? vcihost::DeviceVersion::Text(of(*version)) : "";
    };
    using Version = vcihost::DeviceVersion;
    const std::vector<std::pair<const char*, std::string>> lines{
        {"hardware", numbers([](const Version& v) { return std::span(v.hardware); })},
        {"kernel", numbers([](const Version& v) { return std::span(v.kernel); })},
        {"software", numbers([](const Version& v) { return std::span(v.software); })},
        {"build", build ? build->DateText() : ""},
        {"uid", uid ? vcihost::ToHex(*uid) : ""},
    };
    if (json_) {
        nlohmann::ordered_json object;
        for (const auto& [name, value] : lines) {
            object[name] = value.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(value);
        }
        object["device_ns"] = time ? nlohmann::ordered_json(*time) : nullptr;
        tool.out.Line(JsonText(object));
        return status;
    }
    for (const auto& [name, value] : lines) {
        tool.out.Line(fmt::format("{:<9} {}", name, value.empty() ? "-" : value));
    }
    tool.out.Line(fmt::format("{:<9} {}", "time", time ? vcihost::TimeText(*time) : "-"));
    return status;
}

ExitStatus DeviceCommand::Time(Tool& tool) const {
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    const auto answer = Ask(session, vcihost::DeviceRequest(vcihost::kDeviceTimeSid), wait_);
    if (answer.status == kExitOk) {
        tool.out.Line(json_ ? JsonText({{"device_ns", answer.deviceTime}})
                            : "device time " + vcihost::TimeText(answer.deviceTime));
    }
    return answer.status;
}

ExitStatus DeviceCommand::Serial(Tool& tool) const {
    const auto request = vcihost::DeviceSerialRequest(digits_);
    if (!yes_ && !Confirm(fmt::format("Write serial number NV{} over the one of the device at {}?",
                                      digits_, tool.device))) {
        throw UsageError("nothing was written");
    }
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    const ExitStatus status = AskPlain(session, request, wait_, SerialAdvice);
    if (status == kExitOk) {
        tool.out.Line("serial number NV" + digits_ + " written");
    }
    return status;
}

ExitStatus DeviceCommand::Reset(Tool& tool) const {
    const auto limit = vcihost::ParseDuration("--limit", limit_);
    uint64_t before = 0;
    {
        const auto transport = tool.Open();
        vcihost::Session session(*transport);
        const auto answer = Ask(session, vcihost::DeviceRequest(vcihost::kDeviceResetSid), wait_);
        if (answer.status != kExitOk) {
            return answer.status;
        }
        tool.out.Line("the board goes down, device time " + vcihost::TimeText(answer.deviceTime));
        before = answer.deviceTime;
    }
    return noWait_ ? kExitOk : AwaitBoard(tool, before, limit);
}

ExitStatus DeviceCommand::Clear(Tool& tool) const {
    const auto limit = vcihost::ParseDuration("--limit", limit_);
    auto transport = tool.Open();
    if (noWait_) {
        vcihost::Session(*transport).Tell(vcihost::DeviceRequest(vcihost::kDeviceClearSid), wait_);
        tool.out.Line("clear requested");
        return kExitOk;
    }
    return ClearAndAwait(tool, std::move(transport), wait_, limit);
}
