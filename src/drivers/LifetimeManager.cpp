#include "drivers/LifetimeManager.h"

#include "utils/CommandUtil.h"
#include "utils/Console.h"

#include <cerrno>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace {

constexpr auto kDoipProgram = "VciDoip";
constexpr auto kSomeipProgram = "VciSomeip";
constexpr auto kFirstStartFlag = "/tmp/vci-first-start.flag";

void EndAll(const std::vector<pid_t>& pids, const std::string& kind) {
    for (const pid_t pid : pids) {
        CommandUtil::GetInstance()->Kill(pid);
        while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        PrintLine(kind + ": " + std::to_string(pid) + " killed!");
    }
}

} // namespace

LifetimeManager* LifetimeManager::GetInstance() {
    static LifetimeManager instance;
    return &instance;
}

void LifetimeManager::Init() {}

void LifetimeManager::KillChilds() {
    const auto doip = CommandUtil::GetInstance()->GetPidsByName(kDoipProgram);
    const auto someip = CommandUtil::GetInstance()->GetPidsByName(kSomeipProgram);
    EndAll(doip, "doip");
    EndAll(someip, "someip");
}

bool LifetimeManager::IsFirstStart() {
    return !CommandUtil::GetInstance()->Exists(kFirstStartFlag);
}
