#pragma once

#include "vcictl/Command.h"
#include "vcihost/CanRequest.h"

// `vcictl can set`: bit timing and mode of a channel.
class CanSetCommand : public Command {
  public:
    explicit CanSetCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    // What one phase was asked to have, as it was typed; empty for nothing.
    struct Phase {
        std::string rate;
        std::string samplePoint;
        uint64_t sjw = 0; // 0: chosen
    };

    vcihost::CanTiming Choose() const;
    void Print(Output& out, uint8_t channel, const vcihost::CanTiming& timing) const;

    std::string channel_;
    Phase nominal_;
    Phase data_;
    std::string timing_;
    bool listen_ = false;
    bool dryRun_ = false;
    bool json_ = false;
    std::chrono::milliseconds wait_ = kAnswerWait;
};
