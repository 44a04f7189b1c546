#pragma once

#include "vcictl/Command.h"
#include "vcihost/Session.h"

// `vcictl lin close`, `role`, `clear`, `stop` and `sleep`: requests that say one thing of a
// channel.
class LinStateCommand : public Command {
  public:
    enum class Kind {
        Close,
        Role,
        Clear,
        Stop,
        Sleep,
    };

    LinStateCommand(CLI::App& app, Kind kind);

    ExitStatus Run(Tool& tool) override;

  private:
    vcihost::Bytes Request(uint8_t channel) const;
    std::string Done() const;

    Kind kind_;
    std::string channel_;
    std::string value_; // of role and clear
    std::chrono::milliseconds wait_ = kAnswerWait;
};
