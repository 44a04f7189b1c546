#include "vcictl/DecodeCommand.h"

#include "vcictl/DescriptionJson.h"

#include <CLI/App.hpp>

namespace {

constexpr char kFooter[] =
    "Exit status: 0 for a frame, 1 for bytes that are none, 2 on wrong usage.\n"
    "\n"
    "Examples:\n"
    "  vcictl decode 000500000068020f0000000000000000\n"
    "  vcictl decode --host 00 02000000 1001 44332211 0000000000\n"
    "  vcictl decode --json 000a0000001001d2029649000000000000000000000000";

} // namespace

DecodeCommand::DecodeCommand(CLI::App& app) {
    app.footer(kFooter);
    AddHex(app, hex_);
    app.add_flag("--host", fromHost_, "The host sends it; otherwise the device does");
    app.add_flag("--json", json_, "Print a JSON object");
}

ExitStatus DecodeCommand::Run(Tool& tool) {
    const vcihost::Bytes bytes = HexBytes(hex_);
    const auto description =
        fromHost_ ? vcihost::DescribeRequest(bytes) : vcihost::DescribeMessage(bytes);
    tool.out.Line(json_ ? DescriptionJson(description) : description.text);
    return description.kind == "malformed" ? kExitRefused : kExitOk;
}
