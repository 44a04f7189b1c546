#pragma once

#include "vcictl/Command.h"
#include "vcihost/IoRequest.h"
#include "vcihost/Session.h"

#include <string>
#include <vector>

// `vcictl io`: digital outputs, and the samples of inputs, outputs and converter.
class IoCommand : public Command {
  public:
    explicit IoCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    ExitStatus SetOutputs(Tool& tool) const;
    ExitStatus SwitchOn(Tool& tool) const;
    ExitStatus Watch(Tool& tool) const;
    bool PrintSample(Output& out, const vcihost::Bytes& bytes) const;

    const CLI::App* out_ = nullptr;
    const CLI::App* on_ = nullptr;
    const CLI::App* off_ = nullptr;
    const CLI::App* setPeriod_ = nullptr;
    const CLI::App* trigger_ = nullptr;

    std::vector<std::string> outputs_; // number and level in turn
    std::string triggerState_;
    uint64_t period_ = 0;
    bool periodGiven_ = false; // of `on`
    std::chrono::milliseconds wait_ = kAnswerWait;
    std::string duration_;
    uint64_t count_ = 0; // samples; 0 for no limit
    bool json_ = false;
};
