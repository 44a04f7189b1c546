#pragma once

#include "vcictl/Command.h"
#include "vcihost/LinTable.h"

// `vcictl lin table`: loads a schedule table into a channel, or shows it.
class LinTableCommand : public Command {
  public:
    explicit LinTableCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    void Print(Output& out, const std::vector<vcihost::LinSlot>& table, uint16_t rate) const;

    std::string channel_;
    std::string file_;
    std::string rate_ = "19200";
    bool dryRun_ = false;
    bool json_ = false;
    std::chrono::milliseconds wait_ = kAnswerWait;
};
