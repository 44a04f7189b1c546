#pragma once

#include "vcictl/Command.h"
#include "vcihost/CanRequest.h"
#include "vcihost/CanTask.h"

// `vcictl can cyclic`: periodic frames, which the device sends on its own.
class CanCyclicCommand : public Command {
  public:
    explicit CanCyclicCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    void PrintDone(Output& out, uint8_t channel, const std::vector<vcihost::CanTask>& tasks,
                   uint64_t deviceTime) const;

    std::string channel_;
    std::vector<std::string> frames_;
    std::vector<std::string> stops_;
    std::string rate_;
    std::string dataRate_;
    bool json_ = false;
    std::chrono::milliseconds wait_ = kAnswerWait;
};
