#pragma once

#include "vcictl/Command.h"
#include "vcihost/LinReceipt.h"
#include "vcihost/Session.h"

#include <chrono>

// `vcictl lin run`: runs the schedule of a channel, and measures it.
class LinRunCommand : public Command {
  public:
    explicit LinRunCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    // What a run that is measured works with.
    struct Plan {
        uint8_t channel;
        std::vector<vcihost::LinSlot> table;
        uint16_t rate;
        std::chrono::nanoseconds duration;
    };

    ExitStatus Start(Tool& tool, uint8_t channel) const;
    ExitStatus Measure(Tool& tool, const Plan& plan, vcihost::LinReceipt& receipt) const;

    std::string channel_;
    std::string table_;
    std::string rate_ = "19200";
    std::string duration_;
    std::string maxJitter_;
    bool json_ = false;
    std::chrono::milliseconds wait_ = kAnswerWait;
};
