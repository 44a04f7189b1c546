#pragma once

#include "vcictl/Command.h"
#include "vcihost/LinRequest.h"

// `vcictl lin disturb`: faults that the device puts on the bus.
class LinDisturbCommand : public Command {
  public:
    explicit LinDisturbCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    vcihost::LinDisturb Disturb() const;

    std::string channel_;
    std::string state_;
    std::string id_;
    uint64_t type_ = 0;
    uint64_t length_ = 0;
    uint64_t offset_ = 0;
    uint64_t field_ = 0;
    uint64_t times_ = 0;
    const CLI::Option* timesOption_ = nullptr;
    std::chrono::milliseconds wait_ = kAnswerWait;
};
