#pragma once

#include "vcictl/ExitStatus.h"
#include "vcictl/Output.h"
#include "vcihost/Transport.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// The command line library's headers cost each file that has them seconds to compile.
namespace CLI {
class App;
class Option;
} // namespace CLI

// What every command works with.
struct Tool {
    std::string device; // path of the link
    vcihost::Waiter waiter;
    Output out;

    std::unique_ptr<vcihost::Transport> Open() const {
        return vcihost::Transport::Open(device, waiter);
    }

    // A link of which no wait is cut short by a signal, for commands that have to leave the device
    // as quiet as it was: they do so over this link. They wait no longer than
    // Interrupt::kLongestWait, and look at Interrupt::Came() in between.
    std::unique_ptr<vcihost::Transport> OpenUninterrupted() const {
        return vcihost::Transport::Open(device, vcihost::Waiter());
    }
};

// One subcommand of the tool. Declares its options when made; runs once they are parsed.
class Command {
  public:
    virtual ~Command() = default;

    // Throws what the library throws, and OutputError.
    virtual ExitStatus Run(Tool& tool) = 0;
};

// Wrong usage that only a command can see. what() is one line.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A subcommand of a command, which takes --device behind it as well. `footer` closes its help.
CLI::App* AddPart(CLI::App& app, const char* name, const char* summary, const char* footer);

// An option `names` ("--wait" and the like) that takes a whole number from `least` to `max`,
// decimal or 0x, into `value`. `type` stands for it in the help, with `fallback`, if any, as its
// default.
CLI::Option* AddNumber(CLI::App& app, const std::string& names, uint64_t& value, uint64_t max,
                       const std::string& help, const std::string& type,
                       const std::string& fallback = "", uint64_t least = 0);

// How long an answer may take, unless --wait says otherwise.
constexpr std::chrono::milliseconds kAnswerWait(1000);

// The option --wait, whose default is what `wait` holds.
void AddWait(CLI::App& app, std::chrono::milliseconds& wait);

// The option --max-jitter, which JitterLimit reads.
CLI::Option* AddMaxJitter(CLI::App& app, std::string& text);

// The argument CHANNEL of LIN, which vcihost::ParseLinChannel() reads.
void AddLinChannel(CLI::App& app, std::string& channel);

// The argument HEX, in one or more pieces, which HexBytes() reads.
void AddHex(CLI::App& app, std::vector<std::string>& pieces);

// The bytes of all pieces, at least one; a piece that is a single - stands for standard input.
// Throws UsageError.
vcihost::Bytes HexBytes(const std::vector<std::string>& pieces);

// All of standard input. Throws UsageError, which names `what` was to be read.
std::string ReadStandardInput(const std::string& what);

// "1 frame", "2 frames".
std::string CountText(uint64_t count, const char* one, const char* many);

// Nanoseconds of the host's wall clock since 1970.
uint64_t WallClock();

// One line on standard error, behind the program's name. What is not printable in it becomes ?.
void Complain(const std::string& text);

// The longest time that an option may name, in milliseconds: some 49 days.
constexpr uint64_t kMostMilliseconds = 0xFFFFFFFF;
