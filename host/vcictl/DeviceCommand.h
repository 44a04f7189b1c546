#pragma once

#include "vcictl/Command.h"
#include "vcihost/Session.h"

#include <chrono>

// `vcictl device`: the device as a whole.
class DeviceCommand : public Command {
  public:
    explicit DeviceCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    ExitStatus Info(Tool& tool) const;
    ExitStatus Time(Tool& tool) const;
    ExitStatus Serial(Tool& tool) const;
    ExitStatus Reset(Tool& tool) const;
    ExitStatus Clear(Tool& tool) const;

    std::string digits_;
    bool yes_ = false;
    bool noWait_ = false;
    std::string limit_ = "180s"; // of a restart
    bool json_ = false;
    std::chrono::milliseconds wait_ = kAnswerWait;

    CLI::App* info_ = nullptr;
    CLI::App* time_ = nullptr;
    CLI::App* serial_ = nullptr;
    CLI::App* reset_ = nullptr;
};
