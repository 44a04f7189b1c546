#pragma once

#include "vcictl/Command.h"

#include <vector>

// `vcictl raw` and `vcictl frame`: sends bytes and prints what the device sends, in hex.
class SendCommand : public Command {
  public:
    enum class Form {
        Service, // the hex is a service section, to be framed
        Frame,   // the hex is sent as it stands
    };

    SendCommand(CLI::App& app, Form form);

    ExitStatus Run(Tool& tool) override;

  private:
    Form form_;
    std::vector<std::string> hex_;
    uint64_t handle_ = 0;
    uint64_t wait_ = 1000; // milliseconds
    uint64_t count_ = 1;   // messages; 0 for all that come in time
    bool drain_ = false;
};
