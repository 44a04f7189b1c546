#include "drivers/LifetimeManager.h"

#include "utils/MachineLock.h"
#include "utils/PidNamespace.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/time.h>
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
        close(pipe_[0]);
        close(pipe_[1]);
    }

    // Runs `body`, which may call KillChilds: no process of the machine has to fear it.
    void Run(const std::function<void()>& body) {
        PidNamespace::Run([&] {
            body();
            for (const pid_t child : children_) {
                kill(child, SIGKILL);
                waitpid(child, nullptr, 0);
            }
        });
    }

    // `atParentsEnd`: the signal that it gets then.
    pid_t Child(const char* name, char letter, int atParentsEnd = SIGKILL) {
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, atParentsEnd);
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

    // As Child, but its parent is not this process. Ends with the namespace, or by signal 15.
    pid_t Stranger(const char* name, char letter) {
        int ids[2];
        EXPECT_EQ(pipe2(ids, O_CLOEXEC), 0);
        const pid_t between = fork();
        if (between == 0) {
            const pid_t stranger = Child(name, letter, 0);
            EXPECT_EQ(write(ids[1], &stranger, sizeof(stranger)), ssize_t{sizeof(stranger)});
            _exit(0);
        }
        pid_t stranger = 0;
        EXPECT_EQ(read(ids[0], &stranger, sizeof(stranger)), ssize_t{sizeof(stranger)});
        waitpid(between, nullptr, 0);
        close(ids[0]);
        close(ids[1]);
        return stranger;
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
    Run([&] {
        const pid_t someip = Child("VciSomeip", 's');
        const pid_t doip = Child("VciDoip", 'd');
        EXPECT_EQ(KillChilds(), "doip: " + std::to_string(doip) + " killed!\n" +
                                    "someip: " + std::to_string(someip) + " killed!\n");
        EXPECT_EQ(Told(), "ds");
        EXPECT_TRUE(IsGone(doip));
        EXPECT_TRUE(IsGone(someip));
    });
}

TEST_F(LifetimeManagerTest, EndsAllChildrenOfAKindBeforeTheOther) {
    Run([&] {
        Child("VciDoip", 'd');
        Child("VciSomeip", 's');
        Child("VciDoip", 'd');
        Child("VciSomeip", 's');
        KillChilds();
        EXPECT_EQ(Told(), "ddss");
    });
}

TEST_F(LifetimeManagerTest, SparesProcessesOfOtherNames) {
    Run([&] {
        const pid_t other = Child("VciOther", 'o');
        EXPECT_EQ(KillChilds(), "");
        EXPECT_EQ(Told(), "");
        EXPECT_FALSE(IsGone(other));
    });
}

TEST_F(LifetimeManagerTest, AsksAProcessThatIsNoChildAndPrintsWithoutWaitingForIt) {
    Run([&] {
        const pid_t stranger = Stranger("VciDoip", 'x');
        const pid_t someip = Child("VciSomeip", 's');
        EXPECT_EQ(KillChilds(), "doip: " + std::to_string(stranger) + " killed!\n" +
                                    "someip: " + std::to_string(someip) + " killed!\n");
        EXPECT_TRUE(IsGone(someip));
        // The two ended side by side: both letters come, in either order.
        std::string told{Hear(), Hear()};
        std::sort(told.begin(), told.end());
        EXPECT_EQ(told, "sx");
    });
}

volatile sig_atomic_t alarms = 0;

TEST_F(LifetimeManagerTest, SignalsDoNotCutTheWaitShort) {
    Run([&] {
        struct sigaction before {};
        struct sigaction onAlarm {};
        onAlarm.sa_handler = [](int) { alarms = alarms + 1; };
        sigaction(SIGALRM, &onAlarm, &before); // no SA_RESTART: a wait in progress fails with EINTR
        const pid_t doip = Child("VciDoip", 'd');
        constexpr itimerval kAlways{{0, 1000}, {0, 1000}}; // a signal each millisecond
        constexpr itimerval kNever{};
        setitimer(ITIMER_REAL, &kAlways, nullptr);
        KillChilds();
        setitimer(ITIMER_REAL, &kNever, nullptr);
        EXPECT_TRUE(IsGone(doip));
        EXPECT_EQ(Told(), "d");
        EXPECT_GT(alarms, 1);
        sigaction(SIGALRM, &before, nullptr);
    });
}

// Puts back what was at a path.
class Restorer {
  public:
    explicit Restorer(std::string path) : path_(std::move(path)), aside_(path_ + ".aside") {
        std::error_code ignored; // there may be nothing
        fs::rename(path_, aside_, ignored);
    }
    ~Restorer() {
        std::error_code ignored;
        fs::remove(path_, ignored);
        fs::rename(aside_, path_, ignored);
    }
    Restorer(const Restorer&) = delete;
    Restorer& operator=(const Restorer&) = delete;

  private:
    const std::string path_;
    const std::string aside_;
};

TEST_F(LifetimeManagerTest, FirstStartIsWhileTheFlagIsNotThere) {
    const Restorer restorer(kFirstStartFlag);
    EXPECT_TRUE(LifetimeManager::GetInstance()->IsFirstStart());
    std::ofstream(kFirstStartFlag).close();
    EXPECT_FALSE(LifetimeManager::GetInstance()->IsFirstStart());
    fs::remove(kFirstStartFlag);
    EXPECT_TRUE(LifetimeManager::GetInstance()->IsFirstStart());
}

} // namespace
