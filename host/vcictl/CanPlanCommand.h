#pragma once

#include "vcictl/Command.h"

// `vcictl can plan`: what the device's planner makes of periodic frames, and what a bus trace says.
class CanPlanCommand : public Command {
  public:
    explicit CanPlanCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    std::vector<std::string> frames_;
    std::string channel_ = "can0";
    std::string rate_;
    std::string dataRate_;
    std::string traceFile_;
    std::string svgFile_;
    std::string maxJitter_;
    bool json_ = false;
};
