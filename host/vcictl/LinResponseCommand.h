#pragma once

#include "vcictl/Command.h"
#include "vcihost/LinRequest.h"

// `vcictl lin response`: sets and deletes the responses of a channel.
class LinResponseCommand : public Command {
  public:
    explicit LinResponseCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    std::vector<vcihost::LinFrame> Responses() const;

    std::string channel_;
    std::vector<std::string> frames_;
    std::vector<std::string> deletes_;
    std::chrono::milliseconds wait_ = kAnswerWait;
};
