#include "utils/CommandUtil.h"
#include "utils/MachineLock.h"

#include <algorithm>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <dirent.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

// A child of a name that sleeps until it is ended; gone when the object is.
class NamedChild {
  public:
    explicit NamedChild(const char* name) {
        int ready[2];
        if (pipe(ready) != 0) {
            return;
        }
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            prctl(PR_SET_NAME, name);
            close(ready[0]);
            close(ready[1]); // the parent reads the end of the pipe: the name is set
            for (;;) {
                pause();
            }
        }
        close(ready[1]);
        char none = 0;
        while (read(ready[0], &none, 1) > 0) {
        }
        close(ready[0]);
    }
    ~NamedChild() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    NamedChild(const NamedChild&) = delete;
    NamedChild& operator=(const NamedChild&) = delete;

    pid_t pid() const { return pid_; }

    // Ends it with signal 9, unless another has ended it before; the signal that did.
    int KillAndTell() {
        kill(pid_, SIGKILL);
        return EndingSignal();
    }

    // Waits for the end; the signal that brought it, or 0.
    int EndingSignal() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

  private:
    pid_t pid_ = -1;
};

class CommandUtilProcessesTest : public testing::Test {
  protected:
    void SetUp() override { prctl(PR_GET_NAME, ownName_); }
    void TearDown() override { prctl(PR_SET_NAME, ownName_); }

    std::vector<pid_t> SortedPids(const std::string& name) const {
        auto pids = util_->GetPidsByName(name);
        std::sort(pids.begin(), pids.end());
        return pids;
    }

    const std::shared_ptr<CommandUtil> util_ = CommandUtil::GetInstance();

  private:
    const MachineLock lock_;
    char ownName_[16] = {};
};

TEST_F(CommandUtilProcessesTest, FindsEveryProcessOfTheNameAndNoOther) {
    const NamedChild one("vci-find-me");
    const NamedChild two("vci-find-me");
    const NamedChild longer("vci-find-me2");
    const NamedChild shorter("vci-find-m");
    std::vector<pid_t> expected{one.pid(), two.pid()};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(SortedPids("vci-find-me"), expected);
}

TEST_F(CommandUtilProcessesTest, TheOrderIsThatOfTheDirectory) {
    std::list<NamedChild> children;
    std::set<std::string> ids;
    for (int i = 0; i < 5; ++i) {
        ids.insert(std::to_string(children.emplace_back("vci-in-order").pid()));
    }
    std::vector<pid_t> expected;
    const std::unique_ptr<DIR, int (*)(DIR*)> proc(opendir("/proc"), closedir);
    ASSERT_NE(proc, nullptr);
    while (const dirent* entry = readdir(proc.get())) {
        if (ids.count(entry->d_name) != 0) {
            expected.push_back(std::stoi(entry->d_name));
        }
    }
    ASSERT_EQ(expected.size(), 5U);
    EXPECT_EQ(util_->GetPidsByName("vci-in-order"), expected);
}

TEST_F(CommandUtilProcessesTest, SkipsTheCallingProcessEvenWhenItsOwnNameMatches) {
    prctl(PR_SET_NAME, "vci-my-own-name");
    EXPECT_EQ(util_->GetPidsByName("vci-my-own-name"), std::vector<pid_t>{});
    const NamedChild child("vci-my-own-name");
    EXPECT_EQ(util_->GetPidsByName("vci-my-own-name"), std::vector<pid_t>{child.pid()});
}

TEST_F(CommandUtilProcessesTest, NamesWithBlanksAreComparedWhole) {
    const NamedChild child("vci two words");
    EXPECT_EQ(util_->GetPidsByName("vci two words"), std::vector<pid_t>{child.pid()});
    EXPECT_EQ(util_->GetPidsByName("vci two"), std::vector<pid_t>{});
}

TEST_F(CommandUtilProcessesTest, NoSuchNameIsAnEmptyList) {
    EXPECT_EQ(util_->GetPidsByName("vci-nobody"), std::vector<pid_t>{});
}

TEST_F(CommandUtilProcessesTest, KillByIdSendsSignal15) {
    NamedChild child("vci-kill-id");
    NamedChild other("vci-kill-id");
    util_->Kill(child.pid());
    EXPECT_EQ(child.EndingSignal(), 15);
    EXPECT_EQ(other.KillAndTell(), 9);
}

TEST_F(CommandUtilProcessesTest, KillByNameSendsSignal15ToEveryProcessOfTheName) {
    NamedChild one("vci-kill-name");
    NamedChild two("vci-kill-name");
    NamedChild other("vci-spared");
    util_->Kill("vci-kill-name");
    EXPECT_EQ(one.EndingSignal(), 15);
    EXPECT_EQ(two.EndingSignal(), 15);
    EXPECT_EQ(other.KillAndTell(), 9);
}

} // namespace
