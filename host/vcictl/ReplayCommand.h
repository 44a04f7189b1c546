#pragma once

#include "vcictl/Command.h"
#include "vcihost/ReplayPlan.h"

// `vcictl replay`: plays a recorded trace through the device, with the times it was recorded with.
class ReplayCommand : public Command {
  public:
    explicit ReplayCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    vcihost::ReplayOptions Options() const;
    uint64_t Passes() const;

    std::string file_;
    std::vector<std::string> outputs_;
    uint64_t gap_ = 0;  // milliseconds
    uint64_t skip_ = 0; // seconds; 0 for none
    std::string passes_ = "1";
    bool ignoreTimes_ = false;
    bool noReceipt_ = false;
    std::string maxJitter_;
    bool json_ = false;
    std::chrono::milliseconds wait_ = kAnswerWait;
    uint64_t silence_ = 10000; // milliseconds
};
