#include "vcictl/CanCommand.h"
#include "vcictl/DecodeCommand.h"
#include "vcictl/DeviceCommand.h"
#include "vcictl/Interrupt.h"
#include "vcictl/IoCommand.h"
#include "vcictl/LinCommand.h"
#include "vcictl/RecordCommand.h"
#include "vcictl/ReplayCommand.h"
#include "vcictl/SendCommand.h"
#include "vcictl/SyncCommand.h"
#include "vcictl/TalkCommand.h"
#include "vcictl/TimeCommand.h"
#include "vcihost/Frame.h"

#include <cerrno>
#include <deque>
#include <iostream>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace {

constexpr char kDefaultDevice[] = "/dev/usb-zeph-host";

constexpr char kFooter[] =
    "Exit status:\n"
    "  0  done\n"
    "  1  the device refused, or an expectation was not met\n"
    "  2  wrong usage, or trouble with the device\n"
    "  3  nothing came in time\n"
    "\n"
    "Examples:\n"
    "  vcictl raw 1001                 send a service section, print the answer in hex\n"
    "  vcictl time --count 10          compare the device's clock with the host's\n"
    "  vcictl can open can0            open a CAN channel\n"
    "  vcictl record -o drive.pcapng   record all CAN channels to a file\n"
    "  vcictl talk -v session.talk     hold a conversation and show it\n"
    "\n"
    "vcictl COMMAND --help tells about one command.";

// Descriptors 0 to 2 must be taken: a device that was opened as one of them would be written to.
void FillStandardDescriptors() {
    int fd = 0;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) {
        close(fd);
    }
}

// The commands, each beside its part of the command line.
class Commands {
  public:
    explicit Commands(CLI::App& app) : app_(app) {}

    template <typename T, typename... Args>
    void Add(const std::string& name, const std::string& summary, Args... args) {
        CLI::App* const sub = app_.add_subcommand(name, summary);
        sub->fallthrough(); // --device may stand behind the command as well
        auto& command = entries_.emplace_back(std::make_unique<T>(*sub, args...));
        sub->callback([this, chosen = command.get()] { chosen_ = chosen; });
    }

    Command& Chosen() const { return *chosen_; }

  private:
    CLI::App& app_;
    std::deque<std::unique_ptr<Command>> entries_;
    Command* chosen_ = nullptr;
};

ExitStatus Run(Command& command, Tool& tool) {
    try {
        return command.Run(tool);
    } catch (const vcihost::Interrupted&) {
        Interrupt::EndBySignal();
    } catch (const std::exception& error) { // trouble with usage, device, output or system
        Complain(error.what());
        return kExitTrouble;
    }
}

int Main(int argc, char** argv) {
    FillStandardDescriptors();
    Tool tool;
    tool.device = kDefaultDevice;

    CLI::App app("Talk to a vehicle communication interface.", "vcictl");
    app.set_version_flag("--version", std::string("vcictl ") + VCI_VERSION);
    app.footer(kFooter);
    app.require_subcommand(1);
    app.add_option("--device", tool.device,
                   "The link to the device: a character device, or the socket of a relay")
        ->envname("VCICTL_DEVICE")
        ->type_name("PATH")
        ->capture_default_str();

    Commands commands(app);
    commands.Add<SendCommand>("raw", "Send a frame around a service section, print what comes",
                              SendCommand::Form::Service);
    commands.Add<SendCommand>("frame", "Send bytes as they stand, print what comes",
                              SendCommand::Form::Frame);
    commands.Add<TimeCommand>("time", "Show the device's clock beside the host's");
    commands.Add<SyncCommand>("sync", "Drive and watch the sync line");
    commands.Add<CanCommand>("can", "Set CAN channels up, send frames, plan periodic ones");
    commands.Add<IoCommand>("io", "Set digital outputs, show inputs and converter values");
    commands.Add<LinCommand>("lin", "Set LIN channels up, load and run schedules, send frames");
    commands.Add<RecordCommand>("record", "Record what CAN and LIN channels send and receive");
    commands.Add<ReplayCommand>("replay", "Play a recorded trace, with its times");
    commands.Add<DeviceCommand>("device", "Show what the device is, reset it, clear it");
    commands.Add<TalkCommand>("talk", "Hold the conversation of a file");
    commands.Add<DecodeCommand>("decode", "Tell a frame in words, without a device");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& asked) { // for the help or the version
        app.exit(asked);
        std::cout.flush();
        return std::cout ? kExitOk : kExitTrouble;
    } catch (const CLI::ParseError& error) {
        Complain(std::string(error.what()) + "; see vcictl --help");
        return kExitTrouble;
    }

    const Interrupt interrupt;
    tool.waiter = vcihost::Waiter(interrupt.fd());
    return Run(commands.Chosen(), tool);
}

} // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (...) { // no memory, even for words
        return kExitTrouble;
    }
}
