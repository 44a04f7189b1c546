#include "vcictl/SendCommand.h"

#include "vcihost/Frame.h"
#include "vcihost/Session.h"

#include <limits>

#include <CLI/App.hpp>

namespace {

// What the device takes is in its ring within microseconds, unless the ring is full and nobody
// empties it.
constexpr std::chrono::seconds kSendLimit(5);

constexpr char kAnswers[] =
    "Prints every message from the device that arrives in time, those included that waited there\n"
    "before, one line each: the whole message in lowercase hex.\n"
    "\n"
    "Exit status: 0 if at least one came, 3 if none, 2 on wrong usage or trouble with the device.\n"
    "\n";

constexpr char kRawExamples[] =
    "Examples:\n"
    "  vcictl raw 1001                            ask for the device time\n"
    "  vcictl raw 1001 --handle 0x11223344        the same, with a handle\n"
    "  vcictl raw 10 03 02 --count 2              an answer that comes in two messages\n"
    "  vcictl raw 1001 --drain --count 0 --wait 200\n"
    "                                             all that comes within 200 ms, nothing older";

constexpr char kFrameExamples[] =
    "Examples:\n"
    "  vcictl frame 00 02000000 1001 44332211 0000000000\n"
    "                                             a whole frame: ask for the device time\n"
    "  vcictl frame 000102                        three bytes, too few for a frame\n"
    "  printf %0132024d 0 | vcictl frame -        66,012 zero bytes";

} // namespace

SendCommand::SendCommand(CLI::App& app, Form form) : form_(form) {
    const bool service = form == Form::Service;
    app.footer(std::string(kAnswers) + (service ? kRawExamples : kFrameExamples));
    AddHex(app, hex_);
    if (service) {
        AddNumber(app, "--handle", handle_, std::numeric_limits<uint32_t>::max(),
                  "Handle of the request", "N", "0");
    }
    AddNumber(app, "--wait", wait_, kMostMilliseconds, "Stop after this time", "MS", "1000");
    AddNumber(app, "--count", count_, std::numeric_limits<uint64_t>::max(),
              "Stop after N messages; 0: only when the time is up", "N", "1");
    app.add_flag("--drain", drain_, "First discard what waits in the device");
}

ExitStatus SendCommand::Run(Tool& tool) {
    vcihost::Bytes bytes = HexBytes(hex_);
    if (form_ == Form::Service) {
        bytes = vcihost::BuildFrame(bytes, static_cast<uint32_t>(handle_));
    }
    const auto transport = tool.Open();
    if (drain_) {
        vcihost::Session(*transport).Drain();
    }
    transport->Send(bytes, vcihost::After(kSendLimit));
    const vcihost::Deadline deadline = vcihost::After(std::chrono::milliseconds(wait_));
    uint64_t printed = 0;
    do {
        const auto message = transport->Receive(deadline);
        if (!message) {
            break;
        }
        tool.out.Line(vcihost::ToHex(*message));
        ++printed;
    } while (printed != count_ && std::chrono::steady_clock::now() < deadline);
    return printed > 0 ? kExitOk : kExitNoAnswer;
}
