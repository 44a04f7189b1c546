#pragma once

#include "vcictl/Command.h"
#include "vcihost/Session.h"

#include <memory>

// `vcictl sync`: the sync line, and the requests by which clocks are compared.
class SyncCommand : public Command {
  public:
    explicit SyncCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    ExitStatus Request(Tool& tool, const vcihost::Bytes& service, const std::string& done) const;
    ExitStatus Watch(Tool& tool) const;
    bool PrintUpload(Output& out, const vcihost::Bytes& bytes) const;

    const CLI::App* node_ = nullptr;
    const CLI::App* up_ = nullptr;
    const CLI::App* down_ = nullptr;
    const CLI::App* request_ = nullptr;
    const CLI::App* followUp_ = nullptr;
    const CLI::App* watch_ = nullptr;

    std::string mode_;
    std::chrono::milliseconds answerWait_ = kAnswerWait;
    uint64_t hostTime_ = 0; // nanoseconds
    bool hostTimeGiven_ = false;
    uint64_t watchWait_ = 0; // milliseconds
    bool watchWaitGiven_ = false;
    uint64_t watchCount_ = 0; // drops; 0 for no limit
    bool json_ = false;
};
