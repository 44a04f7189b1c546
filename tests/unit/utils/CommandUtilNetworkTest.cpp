#include "utils/CommandUtil.h"
#include "utils/TempDir.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <net/if.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

std::string TextOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "nothing was thrown";
}

// Names that would be something else to a shell, sorted. An interface or a namespace can have them.
const std::vector<std::string> kOddNames{
    "\"a\"", "#a",  "$HOME", "'",   "''",        "*",    ";a",  "a&b",  "a'b",    "a'b'", "a;b",
    "a<b",   "a>b", "a\\b",  "a|b", "a\303\274", "b`a`", "c$x", "c[a]", "c{a,b}", "~",
};

// Puts programs `ip` and `ifconfig` of the test's own in front of the machine's. Each notes its
// arguments in the file "calls" before it does what the test has told it.
class CommandUtilNetworkTest : public testing::Test {
  protected:
    void SetUp() override {
        path_ = std::getenv("PATH");
        setenv("PATH", (dir_.path() + ":" + path_).c_str(), 1);
        Program("ip", "true");
        Program("ifconfig", "true");
    }
    void TearDown() override { setenv("PATH", path_.c_str(), 1); }

    void Program(const std::string& name, const std::string& body) const {
        dir_.Write(name, "#!/bin/sh\nprintf '%s\\n' \"" + name + " $*\" >> " + (dir_ / "calls") +
                             "\n" + body + "\n");
        fs::permissions(dir_ / name, fs::perms::owner_all);
    }

    // `ip netns list` answers `text`, and `ip netns del` runs `deletion`.
    void Namespaces(const std::string& text, const std::string& deletion = "true") const {
        dir_.Write("list", text);
        Program("ip",
                "if [ \"$2\" = list ]; then cat " + (dir_ / "list") + "; exit; fi\n" + deletion);
    }

    std::string Calls() const { return dir_.Read("calls"); }

    // Runs `action` while the process can open no descriptor, and so no command.
    static std::string TextWithoutDescriptors(const std::function<void()>& action) {
        struct Limit {
            Limit() {
                getrlimit(RLIMIT_NOFILE, &before);
                rlimit none = before;
                none.rlim_cur = 0;
                setrlimit(RLIMIT_NOFILE, &none);
            }
            ~Limit() { setrlimit(RLIMIT_NOFILE, &before); }
            rlimit before{};
        };
        // The limit is gone when the exception arrives: sanitizers look at it through a pipe.
        return TextOf([&action] {
            const Limit limit;
            action();
        });
    }

    int GetNetnsId(const std::string& name) {
        testing::internal::CaptureStdout();
        const int id = util_->GetNetnsId(name);
        printed_ = testing::internal::GetCapturedStdout();
        return id;
    }

    const std::shared_ptr<CommandUtil> util_ = CommandUtil::GetInstance();
    const TempDir dir_;
    std::string printed_;

  private:
    std::string path_;
};

TEST_F(CommandUtilNetworkTest, DelAllNetnsTakesNamesWithAndWithoutAnIdSortedAndOnce) {
    Namespaces("blue (id: 3)\nred\n\ngreen(id: 1)\n  indented  \nred (id: 0)\n(id: 7)\n   \n");
    util_->DelAllNetns();
    EXPECT_EQ(Calls(), "ip netns list\n"
                       "ip netns del blue\n"
                       "ip netns del green\n"
                       "ip netns del indented\n"
                       "ip netns del red\n");
}

TEST_F(CommandUtilNetworkTest, DelAllNetnsTakesALastLineWithoutALineFeed) {
    Namespaces("last");
    util_->DelAllNetns();
    EXPECT_EQ(Calls(), "ip netns list\nip netns del last\n");
}

TEST_F(CommandUtilNetworkTest, DelAllNetnsReadsALongLineInPiecesOf255Bytes) {
    const std::string piece(255, 'a');
    Namespaces(piece + "rest\n");
    util_->DelAllNetns();
    EXPECT_EQ(Calls(), "ip netns list\nip netns del " + piece + "\nip netns del rest\n");
}

TEST_F(CommandUtilNetworkTest, DelAllNetnsWithoutNamespacesDeletesNothing) {
    Namespaces("");
    util_->DelAllNetns();
    EXPECT_EQ(Calls(), "ip netns list\n");
}

TEST_F(CommandUtilNetworkTest, DelAllNetnsStopsAtTheFirstFailureWithTheCommandsText) {
    Namespaces("a\nb\nc\n", "if [ \"$3\" = b ]; then echo out; echo err >&2; exit 1; fi");
    EXPECT_EQ(TextOf([&] { util_->DelAllNetns(); }), "Failed to delete netns 'b': out\nerr\n");
    EXPECT_EQ(Calls(), "ip netns list\nip netns del a\nip netns del b\n");
}

TEST_F(CommandUtilNetworkTest, DelAllNetnsTellsTheSignalThatEndedTheCommand) {
    Namespaces("a\n", "kill -9 $PPID"); // the shell that runs `ip`
    EXPECT_EQ(TextOf([&] { util_->DelAllNetns(); }), "Command killed by signal 9");
}

TEST_F(CommandUtilNetworkTest, DelAllNetnsTellsAllOfALongOutput) {
    const std::string longLine(1000, 'e');
    Namespaces("a\n", "echo first; echo " + longLine + "; echo last; exit 1");
    EXPECT_EQ(TextOf([&] { util_->DelAllNetns(); }),
              "Failed to delete netns 'a': first\n" + longLine + "\nlast\n");
}

TEST_F(CommandUtilNetworkTest, DelAllNetnsHandsEachNameToTheShellAsOneWord) {
    std::string expected = "ip netns list\n";
    for (const auto& name : kOddNames) { // in the order in which they are sorted
        expected += "ip netns del " + name + "\n";
    }
    std::string list;
    for (const auto& name : kOddNames) {
        list += name + "\n";
    }
    Namespaces(list);
    util_->DelAllNetns();
    EXPECT_EQ(Calls(), expected);
    EXPECT_EQ(util_->Ls(dir_.path()),
              (std::vector<std::string>{"calls", "ifconfig", "ip", "list"}));
}

TEST_F(CommandUtilNetworkTest, DelAllNetnsRunsNoCommandForANameThatNoNamespaceCanHave) {
    for (const std::string name : {"-all", "../x", "a\001b", "a\177b"}) {
        Namespaces(name + "\n");
        EXPECT_EQ(TextOf([&] { util_->DelAllNetns(); }),
                  "Failed to delete netns '" + name + "': no namespace can have this name");
    }
    EXPECT_EQ(Calls(), "ip netns list\nip netns list\nip netns list\nip netns list\n");
}

TEST_F(CommandUtilNetworkTest, DelAllNetnsThrowsWhenNoCommandCanBeRun) {
    EXPECT_EQ(TextWithoutDescriptors([&] { util_->DelAllNetns(); }), "popen() failed!");
}

TEST_F(CommandUtilNetworkTest, GetNetnsIdReadsTheIdOfTheName) {
    Namespaces("red (id: 12)\nblue (id: 3)\n");
    EXPECT_EQ(GetNetnsId("blue"), 3);
    EXPECT_EQ(GetNetnsId("red"), 12);
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(Calls(), "ip netns list\nip netns list\n");
}

TEST_F(CommandUtilNetworkTest, GetNetnsIdTakesAnyBlanksAroundTheId) {
    Namespaces("red(id:4)\nblue \t (id:   5)\n");
    EXPECT_EQ(GetNetnsId("red"), 4);
    EXPECT_EQ(GetNetnsId("blue"), 5);
}

TEST_F(CommandUtilNetworkTest, GetNetnsIdOfASuffixMatchesTheLongerName) {
    Namespaces("channel10 (id: 7)\n10 (id: 8)\n");
    EXPECT_EQ(GetNetnsId("10"), 7);
}

TEST_F(CommandUtilNetworkTest, GetNetnsIdOfANameWithoutAnIdIsMinusOne) {
    Namespaces("red\nblue (id: 3)\n");
    EXPECT_EQ(GetNetnsId("red"), -1);
    EXPECT_EQ(printed_, "netns red not found\n");
}

TEST_F(CommandUtilNetworkTest, GetNetnsIdOfAPrefixIsMinusOne) {
    Namespaces("blue (id: 3)\n");
    EXPECT_EQ(GetNetnsId("blu"), -1);
    EXPECT_EQ(printed_, "netns blu not found\n");
}

TEST_F(CommandUtilNetworkTest, GetNetnsIdTakesTheNameAsAPattern) {
    Namespaces("blue (id: 3)\n");
    EXPECT_EQ(GetNetnsId("b.*e"), 3);
    EXPECT_EQ(GetNetnsId("(b)lue"), -1); // two groups, of which none is known to be the id
}

TEST_F(CommandUtilNetworkTest, GetNetnsIdOfABrokenPatternIsMinusOne) {
    Namespaces("blue (id: 3)\n");
    EXPECT_EQ(GetNetnsId("[blue"), -1);
    EXPECT_EQ(printed_, "netns [blue not found\n");
    EXPECT_EQ(GetNetnsId("blue("), -1);
    EXPECT_EQ(printed_, "netns blue( not found\n");
}

TEST_F(CommandUtilNetworkTest, GetNetnsIdOfANumberBeyondAnyIdIsMinusOne) {
    Namespaces("blue (id: 99999999999999999999)\n");
    EXPECT_EQ(GetNetnsId("blue"), -1);
}

TEST_F(CommandUtilNetworkTest, GetNetnsIdReadsOutputLongerThanOnePiece) {
    std::string list;
    for (int i = 0; i < 200; ++i) {
        list += "space" + std::to_string(i) + " (id: " + std::to_string(i) + ")\n";
    }
    Namespaces(list + std::string(300, 'x') + " (id: 1234)\n");
    EXPECT_EQ(GetNetnsId("space199"), 199);
    EXPECT_EQ(GetNetnsId(std::string(300, 'x')), 1234);
}

TEST_F(CommandUtilNetworkTest, GetNetnsIdThrowsWhenNoCommandCanBeRun) {
    EXPECT_EQ(TextWithoutDescriptors([&] { util_->GetNetnsId("blue"); }),
              "Failed to execute command: ip netns list");
}

TEST_F(CommandUtilNetworkTest, DelIfaceAsksIpAlone) {
    util_->DelIface("can0.5:x@y-z_");
    EXPECT_EQ(Calls(), "ip link delete can0.5:x@y-z_\n");
}

TEST_F(CommandUtilNetworkTest, DelIfaceAsksIfconfigWhenIpFails) {
    Program("ip", "exit 1");
    util_->DelIface("veth0");
    EXPECT_EQ(Calls(), "ip link delete veth0\nifconfig veth0 down\nifconfig veth0 del\n");
}

TEST_F(CommandUtilNetworkTest, DelIfaceIgnoresThatIfconfigFailsToo) {
    Program("ip", "exit 1");
    Program("ifconfig", "exit 1");
    util_->DelIface("veth0");
    EXPECT_EQ(Calls(), "ip link delete veth0\nifconfig veth0 down\n");
}

TEST_F(CommandUtilNetworkTest, DelIfaceHandsEachNameToTheShellAsOneWord) {
    Program("ip", "exit 1");
    std::string expected;
    for (const auto& name : kOddNames) {
        util_->DelIface(name);
        expected +=
            "ip link delete " + name + "\nifconfig " + name + " down\nifconfig " + name + " del\n";
    }
    EXPECT_EQ(Calls(), expected);
    EXPECT_EQ(util_->Ls(dir_.path()), (std::vector<std::string>{"calls", "ifconfig", "ip"}));
}

TEST_F(CommandUtilNetworkTest, DelIfaceRunsNoCommandForANameThatNoInterfaceCanHave) {
    Program("ip", "exit 1");
    for (const char* name : {"", "-h", "a b", "a\tb", "a\nb", "a/b", "a\001b", "a\177b"}) {
        util_->DelIface(name);
    }
    EXPECT_EQ(Calls(), "");
}

TEST_F(CommandUtilNetworkTest, DelIfacesOfNoNamesPrintsNothing) {
    testing::internal::CaptureStderr();
    util_->DelIfaces({});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(CommandUtilNetworkTest, DelIfacesWithoutASocketSaysSoOnce) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(TextWithoutDescriptors([&] {
                  util_->DelIfaces({"vci-nosuch0", "vci-nosuch1"});
              }),
              "nothing was thrown");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Failed to open a netlink socket: Too many open files\n");
}

TEST_F(CommandUtilNetworkTest, DelIfacesReportsEachUnknownNameAndGoesOn) {
    const std::string longName(5000, 'x'); // longer than the request buffer
    testing::internal::CaptureStderr();
    util_->DelIfaces({"vci-nosuch0", longName, "vci-nosuch1"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Interface 'vci-nosuch0' not found: No such device\n"
              "Interface '" +
                  longName +
                  "' not found: No such device\n"
                  "Interface 'vci-nosuch1' not found: No such device\n");
}

TEST_F(CommandUtilNetworkTest, DelIfacesReportsWhatTheKernelRefuses) {
    testing::internal::CaptureStderr();
    util_->DelIfaces({"lo", "vci-nosuch0"});
    // No one may delete loopback; who may not delete anything hears so first.
    const std::string text = testing::internal::GetCapturedStderr();
    const std::string rest = "Interface 'vci-nosuch0' not found: No such device\n";
    EXPECT_TRUE(text == "Deletion failed for lo: Operation not supported\n" + rest ||
                text == "Deletion failed for lo: Operation not permitted\n" + rest)
        << text;
}

TEST_F(CommandUtilNetworkTest, DelIfacesTakesANameUpToItsFirstNul) {
    testing::internal::CaptureStderr();
    util_->DelIfaces({std::string("lo") + '\0' + std::string(5000, 'x')});
    EXPECT_EQ(testing::internal::GetCapturedStderr().find("Deletion failed for lo: Operation"), 0U);
}

// The names of all interfaces but loopback, as the kernel lists them.
std::vector<std::string> KernelsList() {
    std::vector<std::string> names;
    const auto list = if_nameindex();
    for (auto at = list; at->if_name != nullptr; ++at) {
        if (std::string(at->if_name) != "lo") {
            names.emplace_back(at->if_name);
        }
    }
    if_freenameindex(list);
    return names;
}

TEST_F(CommandUtilNetworkTest, GetIfacesHasEveryInterfaceButLoopbackOnceInTheKernelsOrder) {
    EXPECT_EQ(util_->GetIfaces(), KernelsList());
}

// Runs `body` as root of a network of its own, whoever runs the test, with six interfaces: their
// names are not in the order in which they were made. The test is skipped where that is not
// permitted.
class CommandUtilRealNetworkTest : public testing::Test {
  protected:
    static void InOwnNetwork(const std::function<void()>& body) {
        enum Result {
            Right,
            Wrong,
            NoNamespace,
        };
        fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            const std::string root = "0 " + std::to_string(geteuid()) + " 1";
            const bool isOwn = unshare(CLONE_NEWNET) == 0 ||
                               (unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 &&
                                std::ofstream("/proc/self/uid_map") << root << std::flush);
            if (!isOwn || system("ip link add v3 type veth peer name v4 2>/dev/null &&"
                                 "ip link add longer-name-15b type veth peer name x1 2>/dev/null &&"
                                 "ip link add v0 type veth peer name v1 2>/dev/null") != 0) {
                _exit(NoNamespace);
            }
            body();
            fflush(nullptr);
            _exit(HasFailure() ? Wrong : Right);
        }
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFEXITED(status));
        if (WEXITSTATUS(status) == NoNamespace) {
            GTEST_SKIP() << "this machine lets nobody make a network namespace with veth pairs";
        }
        EXPECT_EQ(WEXITSTATUS(status), Right) << "as printed above";
    }
};

TEST_F(CommandUtilRealNetworkTest, GetIfacesIsInTheKernelsOrderAndNotThatOfTheNames) {
    InOwnNetwork([] {
        const auto names = CommandUtil::GetInstance()->GetIfaces();
        EXPECT_EQ(names.size(), 6U);
        EXPECT_EQ(names, KernelsList());
        EXPECT_FALSE(std::is_sorted(names.begin(), names.end()));
    });
}

TEST_F(CommandUtilRealNetworkTest, DelIfacesDeletesInterfacesOfThisNamespace) {
    InOwnNetwork([] {
        const auto util = CommandUtil::GetInstance();
        util->DelIfaces({"longer-name-15b", "v0"}); // and with them x1 and v1
        auto left = util->GetIfaces();
        std::sort(left.begin(), left.end());
        EXPECT_EQ(left, (std::vector<std::string>{"v3", "v4"}));
    });
}

} // namespace
