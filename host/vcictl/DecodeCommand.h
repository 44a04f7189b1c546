#pragma once

#include "vcictl/Command.h"

#include <vector>

// `vcictl decode`: a frame in words, without a device.
class DecodeCommand : public Command {
  public:
    explicit DecodeCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    std::vector<std::string> hex_;
    bool fromHost_ = false;
    bool json_ = false;
};
