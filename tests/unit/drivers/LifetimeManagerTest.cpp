#include "drivers/LifetimeManager.h"

#include "utils/MachineLock.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

constexpr auto kFirstStartFlag = "/tmp/vci-first-start.flag";

// Children that carry the names of the stacks. Each writes a letter of its own to a pipe on signal
// 15, somewhat later, and only then ends: the letters tell who ended in which order.
class LifetimeManagerTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(pipe2(pipe_, O_CLOEXEC), 0); }
    void TearDown() override {
        for (const pid_t child : children_) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
        close(pipe_[0]);
        close(pipe_[1]);
    }

    pid_t Child(const char* name, char letter) {
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            prctl(PR_SET_NAME, name);
            sigset_t end;
            sigemptyset(&end);
            sigaddset(&end, SIGTERM);
            sigprocmask(SIG_BLOCK, &end, nullptr);
            Tell('.'); // ready
            int signal = 0;
            sigwait(&end, &signal);
            usleep(20000); // long enough for whoever does not wait to be seen
            Tell(letter);
            _exit(0);
        }
        EXPECT_EQ(Hear(), '.');
        children_.push_back(child);
        return child;
    }

    void Tell(char letter) const { EXPECT_EQ(write(pipe_[1], &letter, 1), 1); }
    char Hear() const {
        char letter = 0;
        EXPECT_EQ(read(pipe_[0], &letter, 1), 1);
        return letter;
    }

    // What the children that have ended have told.
    std::string Told() const {
        fcntl(pipe_[0], F_SETFL, O_NONBLOCK);
        char text[16];
        const ssize_t length = read(pipe_[0], text, sizeof(text));
        return {text, length > 0 ? static_cast<size_t>(length) : 0};
    }

    static bool IsGone(pid_t child) { return waitpid(child, nullptr, WNOHANG) == -1; }

    static std::string KillChilds() {
        testing::internal::CaptureStdout();
        LifetimeManager::GetInstance()->KillChilds();
        return testing::internal::GetCapturedStdout();
    }

  private:
    const MachineLock lock_;
    int pipe_[2] = {-1, -1};
    std::vector<pid_t> children_;
};

TEST_F(LifetimeManagerTest, IsOneInstanceWhoseInitDoesNothing) {
    EXPECT_NE(LifetimeManager::GetInstance(), nullptr);
    EXPECT_EQ(LifetimeManager::GetInstance(), LifetimeManager::GetInstance());
    LifetimeManager::GetInstance()->Init();
}

TEST_F(LifetimeManagerTest, EndsTheDoipChildBeforeTheSomeipChildAndWaitsForBoth) {
    const pid_t someip = Child("VciSomeip", 's');
    const pid_t doip = Child("VciDoip", 'd');
    EXPECT_EQ(KillChilds(), "doip: " + std::to_string(doip) + " killed!\n" +
                                "someip: " + std::to_string(someip) + " killed!\n");
    EXPECT_EQ(Told(), "ds");
    EXPECT_TRUE(IsGone(doip));
    EXPECT_TRUE(IsGone(someip));
}

TEST_F(LifetimeManagerTest, EndsAllChildrenOfAKindBeforeTheOther) {
    Child("VciDoip", 'd');
    Child("VciSomeip", 's');
    Child("VciDoip", 'd');
    Child("VciSomeip", 's');
    KillChilds();
    EXPECT_EQ(Told(), "ddss");
}

TEST_F(LifetimeManagerTest, SparesProcessesOfOtherNames) {
    const pid_t other = Child("VciOther", 'o');
    EXPECT_EQ(KillChilds(), "");
    EXPECT_EQ(Told(), "");
    EXPECT_FALSE(IsGone(other));
}

TEST_F(LifetimeManagerTest, ASignalDoesNotCutTheWaitShort) {
    struct sigaction before {};
    struct sigaction onAlarm {};
    onAlarm.sa_handler = [](int) {}; // without SA_RESTART: a wait in progress fails with EINTR
    sigaction(SIGALRM, &onAlarm, &before);
    const pid_t doip = Child("VciDoip", 'd');
    ualarm(5000, 0);
    KillChilds();
    EXPECT_TRUE(IsGone(doip));
    EXPECT_EQ(Told(), "d");
    sigaction(SIGALRM, &before, nullptr);
}

TEST_F(LifetimeManagerTest, FirstStartIsWhileTheFlagIsNotThere) {
    const bool wasThere = fs::exists(kFirstStartFlag);
    EXPECT_EQ(LifetimeManager::GetInstance()->IsFirstStart(), !wasThere);
    if (!wasThere) {
        std::ofstream(kFirstStartFlag).close();
        EXPECT_FALSE(LifetimeManager::GetInstance()->IsFirstStart());
        fs::remove(kFirstStartFlag);
        EXPECT_TRUE(LifetimeManager::GetInstance()->IsFirstStart());
    }
}

} // namespace
