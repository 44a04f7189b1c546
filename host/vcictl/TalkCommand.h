#pragma once

#include "vcictl/Command.h"

// `vcictl talk`: holds the conversation of a file.
class TalkCommand : public Command {
  public:
    explicit TalkCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    std::string file_;
    std::string controlDir_;
    std::string consoleFile_;
    bool verbose_ = false;
};
