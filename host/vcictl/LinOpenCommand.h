#pragma once

#include "vcictl/Command.h"
#include "vcihost/LinRequest.h"

// `vcictl lin open`: opens a channel with its bit rate, version and supply.
class LinOpenCommand : public Command {
  public:
    explicit LinOpenCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    std::string channel_;
    std::string rate_ = "19200";
    std::string version_ = "2.1";
    std::string power_ = "internal";
    std::chrono::milliseconds wait_ = kAnswerWait;
};
