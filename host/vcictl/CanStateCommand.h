#pragma once

#include "vcictl/Command.h"

// `vcictl can open`, `close`, `mode`, `ssp` and `term`: requests that set one thing of a channel.
class CanStateCommand : public Command {
  public:
    enum class Kind {
        Open,
        Close,
        Mode,
        SecondPoint,
        Termination,
    };

    CanStateCommand(CLI::App& app, Kind kind);

    ExitStatus Run(Tool& tool) override;

  private:
    ExitStatus SetStatus(Tool& tool, bool open) const;
    ExitStatus SetValue(Tool& tool) const;

    Kind kind_;
    std::vector<std::string> channels_; // of open and close
    std::string channel_;               // of the others
    std::string value_;
    std::chrono::milliseconds wait_ = kAnswerWait;
};
