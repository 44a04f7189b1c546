#pragma once

#include "doubles/CanSockets.h"
#include "modules/CommCfgService.h"
#include "modules/LinFixture.h"
#include "utils/Logger.h"

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The service of group 1 on a board without a card, its working directory one that is empty. The
// machine does nothing of what it is asked for.
class CommCfgServiceTest : public LinTest {
  protected:
    static constexpr uint8_t kLength = 10;

    CommCfgServiceTest() {
        std::filesystem::current_path(files.path());
        limlog::singleton()->setOutput(Collect);
        Logged();
        for (const auto& channel : channels) {
            channel->Open(); // afresh
            channel->beforePeriodic = nullptr;
            channel->beforeClose = nullptr;
        }
        service.emplace(&loop, files / "clear.flag", files / "cid");
    }
    ~CommCfgServiceTest() override {
        limlog::singleton()->setOutput(limlog::StdoutWriter::mywrite);
        std::filesystem::current_path(before);
    }

    Bytes Ask(const Bytes& request) { return ServiceTest::Ask(*service, request); }

    void ExpectRefused(const Bytes& request, uint8_t code) {
        ExpectRefusal(Ask(request), code, 1, request[1]);
    }

    // What has been logged since the last call, less time, thread and line.
    static std::vector<std::string> Logged() { return std::exchange(Lines(), {}); }

    const std::filesystem::path before = std::filesystem::current_path();
    TempDir files;
    std::array<std::shared_ptr<CanSockets>, 6>& channels = CanSockets::OfProgram();
    ZephEventLoop loop;
    std::optional<CommCfgService> service;

  private:
    static std::vector<std::string>& Lines() {
        static std::vector<std::string> lines;
        return lines;
    }
    static ssize_t Collect(const char* data, size_t length) {
        const std::string line(data, length);
        const size_t text = line.find(' ', line.find(".cpp:")) + 1;
        Lines().push_back(line.substr(0, 5) + line.substr(text, line.size() - text - 1));
        return static_cast<ssize_t>(length);
    }
};
