#pragma once

#include "vcictl/Command.h"

// `vcictl lin wake`: wake-up signals.
class LinWakeCommand : public Command {
  public:
    explicit LinWakeCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    std::string channel_;
    uint64_t count_ = 1;
    uint64_t interval_ = 0;
    uint64_t length_ = 0;
    std::chrono::milliseconds wait_ = kAnswerWait;
};
