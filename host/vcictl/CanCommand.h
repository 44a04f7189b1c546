#pragma once

#include "vcictl/Command.h"

// `vcictl can`: chooses among its parts, which are commands themselves.
class CanCommand : public Command {
  public:
    explicit CanCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    struct Part {
        const CLI::App* app;
        std::unique_ptr<Command> command;
    };

    std::vector<Part> parts_;
};
