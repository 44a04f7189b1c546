#pragma once

#include "vcictl/Command.h"
#include "vcihost/ClockRate.h"

// `vcictl time`: the device's clock beside the host's.
class TimeCommand : public Command {
  public:
    explicit TimeCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    ExitStatus Sample(Tool& tool, vcihost::Transport& transport);
    void PrintSample(Output& out, uint64_t device, uint64_t host, uint64_t roundTrip) const;
    void PrintRate(Output& out) const;

    bool json_ = false;
    uint64_t count_ = 1;       // samples; 0 for as many as come until a signal
    uint64_t interval_ = 1000; // milliseconds from one request to the next
    std::chrono::milliseconds wait_ = kAnswerWait;
    vcihost::ClockRate rate_;
};
