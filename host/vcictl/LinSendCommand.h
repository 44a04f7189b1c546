#pragma once

#include "vcictl/Command.h"
#include "vcihost/LinRequest.h"

// `vcictl lin send`: frames outside the schedule, each with its times on the bus.
class LinSendCommand : public Command {
  public:
    explicit LinSendCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    std::vector<vcihost::LinMessage> Messages() const;

    std::string channel_;
    std::vector<std::string> frames_;
    uint64_t pid_ = 0;
    const CLI::Option* pidOption_ = nullptr;
    uint64_t sync_ = 0x55;
    uint64_t breakLength_ = 13;
    uint64_t breakDelimiter_ = 1;
    uint64_t interByte_ = 0;
    std::vector<std::string> spaces_;
    uint64_t headerRate_ = 0;
    uint64_t responseRate_ = 0;
    std::chrono::milliseconds wait_ = kAnswerWait;
};
