#pragma once

#include "vcictl/Command.h"

// `vcictl lin`: chooses among its parts, which are commands themselves.
class LinCommand : public Command {
  public:
    explicit LinCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    struct Part {
        const CLI::App* app;
        std::unique_ptr<Command> command;
    };

    std::vector<Part> parts_;
};
