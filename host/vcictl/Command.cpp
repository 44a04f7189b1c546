#include "vcictl/Command.h"

#include "vcihost/Hex.h"
#include "vcihost/Printable.h"

#include <cstdio>
#include <iostream>
#include <iterator>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

// The value of the option `names`.
uint64_t NumberOf(const std::string& names, const std::string& text, uint64_t least, uint64_t max) {
    const auto number = vcihost::ParseNumber(text, max);
    if (!number || *number < least) {
        throw CLI::ValidationError(
            names, fmt::format("'{}' is no whole number from {} to {}", text, least, max));
    }
    return *number;
}

} // namespace

std::string ReadStandardInput(const std::string& what) {
    std::string text(std::istreambuf_iterator<char>(std::cin), {});
    if (std::cin.bad()) {
        throw UsageError("cannot read " + what + " from standard input");
    }
    return text;
}

CLI::App* AddPart(CLI::App& app, const char* name, const char* summary, const char* footer) {
    CLI::App* const part = app.add_subcommand(name, summary);
    part->fallthrough();
    part->footer(footer);
    return part;
}

CLI::Option* AddNumber(CLI::App& app, const std::string& names, uint64_t& value, uint64_t max,
                       const std::string& help, const std::string& type,
                       const std::string& fallback, uint64_t least) {
    CLI::Option* const option = app.add_option_function<std::string>(
        names,
        [&value, least, max, names](const std::string& text) {
            value = NumberOf(names, text, least, max);
        },
        help);
    option->type_name(type);
    if (!fallback.empty()) {
        option->default_str(fallback);
    }
    return option;
}

void AddWait(CLI::App& app, std::chrono::milliseconds& wait) {
    static constexpr char kName[] = "--wait";
    app.add_option_function<std::string>(
           kName,
           [&wait](const std::string& text) {
               wait = std::chrono::milliseconds(NumberOf(kName, text, 0, kMostMilliseconds));
           },
           "Time limit of an answer")
        ->type_name("MS")
        ->default_str(std::to_string(wait.count()));
}

CLI::Option* AddMaxJitter(CLI::App& app, std::string& text) {
    return app.add_option("--max-jitter", text, "End with status 1 above this: 200us")
        ->type_name("TIME");
}

void AddLinChannel(CLI::App& app, std::string& channel) {
    app.add_option("CHANNEL", channel, "lin0 or lin1")->required()->type_name("");
}

void AddHex(CLI::App& app, std::vector<std::string>& pieces) {
    app.add_option("HEX", pieces,
                   "Hex digits, two a byte, in one or more arguments; - reads standard input")
        ->required()
        ->type_name("");
}

vcihost::Bytes HexBytes(const std::vector<std::string>& pieces) {
    std::string text;
    for (const std::string& piece : pieces) {
        text += piece == "-" ? ReadStandardInput("the hex") : piece;
        text += ' '; // each piece holds whole bytes
    }
    try {
        vcihost::Bytes bytes = vcihost::ParseHex(text);
        if (bytes.empty()) {
            throw UsageError("HEX is empty: give at least one byte");
        }
        return bytes;
    } catch (const vcihost::HexError& error) {
        throw UsageError(std::string("HEX: ") + error.what());
    }
}

std::string CountText(uint64_t count, const char* one, const char* many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

uint64_t WallClock() {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                     std::chrono::system_clock::now().time_since_epoch())
                                     .count());
}

void Complain(const std::string& text) {
    // Nobody is left to tell when this fails.
    static_cast<void>(std::fputs(("vcictl: " + vcihost::Printable(text) + "\n").c_str(), stderr));
}
