#pragma once

#include "vcictl/Command.h"
#include "vcictl/RecordOutput.h"
#include "vcictl/RecordProgress.h"
#include "vcictl/Recorder.h"
#include "vcihost/Session.h"

#include <chrono>
#include <optional>

// `vcictl record`: what CAN and LIN channels send and receive, to a file or to standard output.
class RecordCommand : public Command {
  public:
    explicit RecordCommand(CLI::App& app);

    ExitStatus Run(Tool& tool) override;

  private:
    // Nothing: until something else ends it.
    using Duration = std::optional<std::chrono::nanoseconds>;

    vcihost::ViewTime Time() const;
    Recorder::Writers Writers(Tool& tool, const vcihost::ClockPair& clock,
                              const std::vector<vcihost::RecordChannel>& channels) const;
    bool HasView() const;
    ExitStatus Record(vcihost::Transport& transport, Recorder& recorder,
                      const std::vector<vcihost::RecordChannel>& channels, Duration duration) const;
    void Follow(vcihost::Transport& transport, Recorder& recorder, RecordProgress& progress,
                Duration duration) const;

    std::vector<std::string> channels_;
    std::string file_;
    std::string duration_;
    uint64_t count_ = 0;   // records; 0 for no limit
    uint64_t silence_ = 0; // milliseconds without a record; 0 for no limit
    std::string time_;     // the letter of -t; empty for device time
    bool logFile_ = false;
    bool log_ = false;
    bool json_ = false;
    std::chrono::milliseconds wait_ = kAnswerWait;
};
