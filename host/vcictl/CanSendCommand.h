#pragma once

#include "vcictl/Command.h"
#include "vcihost/CanRequest.h"
#include "vcihost/Session.h"

// `vcictl can send`: frames that go out once, or some times over.
class CanSendCommand : public Command {
  public:
    explicit CanSendCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    std::vector<vcihost::CanFrame> Frames() const;
    ExitStatus SendBursts(Tool& tool, uint8_t channel,
                          const std::vector<vcihost::CanFrame>& frames) const;
    ExitStatus SendSilently(Tool& tool, uint8_t channel,
                            const std::vector<vcihost::CanFrame>& frames) const;

    std::string channel_;
    std::vector<std::string> frames_;
    bool noAnswer_ = false;
    uint64_t count_ = 1;
    std::string gap_ = "0us";
    std::chrono::milliseconds wait_ = kAnswerWait;
};
