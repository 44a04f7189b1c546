#include "host/FakeReplay.h"
#include "host/Tool.h"

#include <cstdio>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using vcihost::Bytes;
using vcihost::ToHex;

namespace {

using Strings = std::vector<std::string>;

class VcictlReplay : public testing::Test {
  protected:
    VcictlReplay() {
        dir_.Write("three.log", "(1.000000) can0 123#11\n"
                                "(1.001000) can1 00000124##1AABB\n"
                                "(1.003000) can0 123#22\n");
    }

    // A file of many frames, 100 us apart, all different.
    std::string Many(size_t count) const {
        std::string text;
        for (size_t i = 0; i < count; ++i) {
            char line[64];
            std::snprintf(line, sizeof(line), "(1.%06zu) can0 123#%08zX\n", i * 100, i);
            text += line;
        }
        dir_.Write("many.log", text);
        return dir_ / "many.log";
    }

    static ToolResult Run(const FakeDevice& device, Strings words) {
        words.insert(words.begin(), "replay");
        words.insert(words.end(), {"--device", device.path()});
        return RunTool(words);
    }

    ToolResult RunThree(const FakeDevice& device, Strings words = {}) const {
        words.insert(words.begin(), dir_ / "three.log");
        return Run(device, words);
    }

    static Strings Services(const FakeDevice& device) {
        Strings services;
        for (const Bytes& packet : device.Received()) {
            services.push_back(ToHex(vcihost::ParseRequest(packet)->payload));
            services.back().insert(0, ToHex(std::span(packet).subspan(5, 2)));
        }
        return services;
    }

    TempDir dir_;
    std::shared_ptr<FakeReplay> replay_ = std::make_shared<FakeReplay>();
    FakeDevice device_{FakeReplay::Answers(replay_)};
};

TEST_F(VcictlReplay, PlaysAndTells) {
    replay_->off = 1500;
    const auto result = RunThree(device_);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(
        result.out,
        MatchesRegex(
            "times in us: [^\n]*\nhow far [^\n]*\n"
            "     frame            due     sent   lost   earliest     median        p99     latest"
            "    spc p99    spc max\n"
            "can0 123                2        2      0        0.0        0.0        3.0        3.0"
            "        3.0        3.0\n"
            "can1 00000124##         1        1      0        1.5        1.5        1.5        1.5"
            "          -          -\n"
            "3 frames due, 3 sent, 0 lost; 0.003000 s of the file took 0.003003 s\n"
            "3 frames given to the device in [0-9.]+ s, ended\n"));
    EXPECT_EQ(Services(device_),
              (Strings{"1204", "16340800", "16340900", "09160801", "09160901",
                       "12010300000000000023010000011101e803000024010080" // can0, can1
                       "62aabb00d0070000230100000122",
                       "1001", "1203", "09160800", "09160900"}));
}

TEST_F(VcictlReplay, WithoutAReceiptNoRecordIsTouched) {
    const auto result = RunThree(device_, {"--no-receipt", "can2=can0"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, MatchesRegex("1 frame of interfaces without a channel, not played\n"
                                         "2 frames given to the device in [0-9.]+ s, ended\n"));
    EXPECT_EQ(Services(device_),
              (Strings{"1204", "16340a00", "12010200020000000023010000011102b80b0000230100000122",
                       "1001", "1203"}));
}

// The ring of this device is never overrun, whenever it asks for more.
TEST_F(VcictlReplay, FeedsTheRing) {
    for (const size_t keep : {0U, 1U, 255U}) {
        for (const bool late : {false, true}) {
            const auto replay = std::make_shared<FakeReplay>();
            replay->keep = keep;
            replay->late = late;
            FakeDevice device(FakeReplay::Answers(replay));
            const auto result = Run(device, {Many(3000), "--max-jitter", "1us"});
            EXPECT_EQ(result.status, 0) << result.err;
            EXPECT_THAT(result.out, HasSubstr("3000 frames due, 3000 sent, 0 lost; 0.299900 s of "
                                              "the file took 0.299900 s\n"));
            EXPECT_EQ(replay->sent, 3000U);
            EXPECT_LE(replay->most, 511U);
            EXPECT_GE(replay->most, std::max<size_t>(128, keep));
        }
    }
}

TEST_F(VcictlReplay, PassesGapsAndJson) {
    const auto result = RunThree(device_, {"-l", "2", "-t", "-g", "5", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, StartsWith("{\"file\":\"" + (dir_ / "three.log") +
                                       "\",\"ended\":true,\"frames_given\":6,\"host_ns\":"));
    EXPECT_THAT(result.out,
                HasSubstr("\"error_frames\":0,\"comments\":0,\"other_packets\":0,"
                          "\"unmapped_frames\":0,\"backward_frames\":0,\"skipped_intervals\":0,"
                          "\"skipped_ns\":0,\"due\":6,\"sent\":6,\"lost\":0,\"others\":0,"
                          "\"planned_ns\":20000000,\"ran_ns\":20000000,\"frames\":["
                          "{\"channel\":\"can0\",\"frame\":\"123\",\"due\":4,\"sent\":4,"
                          "\"lost\":0,\"late_earliest_ns\":0,"));
    EXPECT_THAT(Services(device_).at(5), StartsWith("1201060000"));
}

TEST_F(VcictlReplay, JsonOfAFileWhoseNameIsNoText) {
    dir_.Write("\xff.log", "(1.0) can0 123#11\n");
    const auto result = Run(device_, {dir_ / "\xff.log", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("/\xEF\xBF\xBD.log\",\"ended\":true,"));
}

TEST_F(VcictlReplay, SaysWhatWasLeftOutAndWhatSkippingDoes) {
    dir_.Write("a.log", "# by hand\n(1.0) can0 123#\n(1.1) can0 20000008#0000000000000000\n"
                        "(9.0) can0 123#\n(8.5) can0 123#\n");
    const auto result = Run(device_, {dir_ / "a.log", "-s", "2"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out,
                StartsWith("1 error frame in the file, not played\n"
                           "1 line without a frame in the file\n"
                           "1 frame older in the file than the one before, sent right behind it\n"
                           "1 interval skipped: all that follows comes earlier, in the end by "
                           "8.000000 s\n"));
}

TEST_F(VcictlReplay, JitterAndLossesBecomeTheStatus) {
    replay_->off = 1500;
    EXPECT_EQ(RunThree(device_, {"--max-jitter", "3us"}).status, 0);
    auto result = RunThree(device_, {"--max-jitter", "2us"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "vcictl: can0 123: spacing 3.0 us off, above 2us\n");
    replay_->sent = 0;
    replay_->lost = 1;
    result = RunThree(device_, {"--max-jitter", "1s"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "vcictl: can1 00000124##: 1 of 1 frames lost\n");
    EXPECT_THAT(result.out, HasSubstr("3 frames due, 2 sent, 1 lost; "));
}

TEST_F(VcictlReplay, ClosedAndListeningChannelsAreNamedBeforeAnythingIsSent) {
    replay_->refuse = "1634 0c";
    auto result = RunThree(device_, {"can4=can1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("SERVICE_WRONG_SEQUENCE (12) to group 22 service 52"));
    EXPECT_THAT(result.err, HasSubstr("; can4 is closed: vcictl can open can4\n"));
    EXPECT_EQ(Services(device_), (Strings{"1204", "16340c00"}));
    replay_->refuse = "1634 a0";
    result = RunThree(device_, {"can4=can1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("; can4 listens only: vcictl can mode can4 normal\n"));
}

TEST_F(VcictlReplay, RefusalsOfTheReplayAreToldAndLeaveTheDeviceQuiet) {
    replay_->refuse = "1201 0c";
    auto result = RunThree(device_, {"can4=can1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err,
                HasSubstr("device refused: SERVICE_WRONG_SEQUENCE (12) to group 18 service 1"));
    EXPECT_THAT(result.err,
                HasSubstr("; a channel was closed, or set to listen only, while the replay ran\n"));
    EXPECT_THAT(result.out, HasSubstr("1 frame due, 0 sent, 1 lost; time not measured\n"));
    EXPECT_THAT(result.out, HasSubstr(", cancelled before the end\n"));
    auto services = Services(device_);
    ASSERT_GE(services.size(), 2U);
    EXPECT_EQ(services.at(services.size() - 2), "1204");
    EXPECT_EQ(services.back(), "09160c00");
    replay_->refuse = "1201 2a";
    result = RunThree(device_);
    EXPECT_THAT(result.err, HasSubstr("OPEN_FILE_FAILED (42)"));
    EXPECT_THAT(result.err, HasSubstr("; the device's ring was full, or its timer failed\n"));
    replay_->refuse = "1203 0a";
    result = RunThree(device_);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("ERROR_LENGTH (10) to group 18 service 3"));
}

TEST_F(VcictlReplay, ASilentDeviceIsGivenUp) {
    replay_->mute = true;
    auto result = RunThree(device_, {"--silence", "1000"}); // less may be over before the finish
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("the device does not tell the end of the replay"));
    EXPECT_EQ(Services(device_).back(), "09160900");
    result = Run(device_, {Many(1000), "--silence", "100"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("the device does not ask for more frames"));
    FakeDevice gone(FakeDevice::Silent);
    result = RunThree(gone, {"--wait", "50"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("no answer within 50 ms"));
}

TEST_F(VcictlReplay, ASignalCancelsAndTheReceiptIsStillPrinted) {
    Tool tool({"replay", Many(1000), "-l", "i", "--device", device_.path()});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (replay_->sent < 2000 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_GE(replay_->sent, 2000U);
    tool.Signal(SIGINT);
    const auto result = tool.Finish();
    EXPECT_EQ(result.status, -SIGINT);
    EXPECT_THAT(result.out, HasSubstr(", cancelled before the end\n"));
    const auto services = Services(device_);
    EXPECT_EQ(services.at(services.size() - 2), "1204");
    EXPECT_EQ(services.back(), "09160800");
}

// The device asks for more and says that it has the batch, but takes nothing off the link until the
// host has given up.
TEST_F(VcictlReplay, ABatchThatIsNotTakenLeavesTheDeviceQuietAndTheReceiptIsPrinted) {
    using Clock = std::chrono::steady_clock;
    std::string text;
    for (size_t i = 0; i < 1000; ++i) {
        text += "(1.0) can0 00000123##0" + std::string(128, 'A') + "\n";
    }
    dir_.Write("large.log", text);
    FakeDevice* self = nullptr;
    bool given = false;
    const auto giveUp = [&] {
        const auto deadline = Clock::now() + std::chrono::seconds(30);
        for (auto read = Clock::now(); Clock::now() < deadline;) {
            if (self->IsHostBehind()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            } else if (Clock::now() - read > std::chrono::milliseconds(400)) {
                return;
            } else {
                read = Clock::now();
                self->Say(vcihost::BuildFrame(vcihost::ParseHex("1202")));
                self->Say(vcihost::BuildFrame(vcihost::ParseHex("1001 0000000000000000")));
            }
        }
    };
    FakeDevice device([&](const Bytes& packet) {
        if (packet.at(5) != 18 || packet.at(6) != vcihost::kReplayDataSid) {
            return replay_->Answer(packet);
        }
        if (!std::exchange(given, true)) {
            giveUp();
        }
        return std::vector<Bytes>{};
    });
    self = &device;
    const auto result =
        Run(device, {dir_ / "large.log", "-l", "i", "--wait", "800", "--silence", "30000"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err,
                MatchesRegex("vcictl: [^\n]* took 0 of [0-9]+ bytes in time; [^\n]*\n"));
    EXPECT_THAT(result.out, HasSubstr("frames given to the device in "));
    EXPECT_THAT(result.out, HasSubstr(", cancelled before the end\n"));
    const auto services = Services(device);
    EXPECT_EQ(services.at(services.size() - 2), "1204");
    EXPECT_EQ(services.back(), "09160800");
}

TEST_F(VcictlReplay, ALinkThatIsGoneIsToldOnceAndTheReceiptIsPrinted) {
    FakeDevice* self = nullptr;
    FakeDevice device([&](const Bytes& packet) {
        if (packet.at(5) == 18 && packet.at(6) == vcihost::kReplayDataSid) {
            self->HangUp({});
        }
        return replay_->Answer(packet);
    });
    self = &device;
    const auto result = RunThree(device);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_THAT(result.out, HasSubstr("3 frames given to the device in "));
}

// The device hears no cancel once it plays.
TEST_F(VcictlReplay, ASecondCtrlCLeavesTheTerminalAsItWas) {
    FakeDevice device([&](const Bytes& packet) {
        const bool playing = replay_->sent > 0;
        auto answers = replay_->Answer(packet);
        return playing && packet.at(6) == vcihost::kReplayCancelSid ? std::vector<Bytes>{}
                                                                    : answers;
    });
    const std::string command = "(sleep 1; printf '\\003'; sleep 1; printf '\\003'; sleep 1) | "
                                "script -qec 'trap : INT; " VCICTL_BINARY " replay " +
                                Many(1000) + " -l i --no-receipt --wait 20000 --device " +
                                device.path() + "; echo ended $?; stty -a' /dev/null";
    const auto result = RunTool({}, {{}, {}, {}, {"sh", "-c", command}});
    EXPECT_THAT(result.out, HasSubstr("ended 130"));
    EXPECT_THAT(result.out, HasSubstr(" icanon "));
    EXPECT_THAT(result.out, HasSubstr(" echo "));
}

// A terminal whose keys are p, p and Ctrl-C.
TEST_F(VcictlReplay, KeysPauseAndNothingIsSentThen) {
    const std::string command = "(sleep 1; printf p; sleep 1; printf p; sleep 1; printf '\\003'; "
                                "sleep 1) | script -qec '" VCICTL_BINARY " replay " +
                                Many(1000) + " -l i --no-receipt --device " + device_.path() +
                                "' /dev/null";
    const auto result = RunTool({}, {{}, {}, {}, {"sh", "-c", command}});
    EXPECT_EQ(result.status, 128 + SIGINT);
    EXPECT_THAT(result.out, HasSubstr(", paused: space goes on"));
    EXPECT_THAT(result.out, HasSubstr(", cancelled before the end"));
    const auto services = Services(device_);
    const auto pause = std::find(services.begin(), services.end(), "1205");
    ASSERT_NE(pause, services.end());
    EXPECT_EQ(*(pause + 1), "1206");
    EXPECT_THAT(*(pause + 2), StartsWith("1201"));
    EXPECT_EQ(services.back(), "1204");
}

TEST_F(VcictlReplay, WrongUsageAndFilesAreToldBeforeTheDeviceIsOpened) {
    const auto fails = [&](Strings words, const std::string& text) {
        words.insert(words.begin(), "replay");
        words.insert(words.end(), {"--device", "/nowhere"});
        const auto result = RunTool(words);
        EXPECT_EQ(result.status, 2) << text;
        EXPECT_THAT(result.err, HasSubstr(text));
        EXPECT_THAT(result.err, testing::Not(HasSubstr("/nowhere")));
    };
    const std::string three = dir_ / "three.log";
    fails({}, "FILE is required");
    fails({dir_ / "none.log"}, "none.log: No such file or directory");
    fails({three, "-l", "0"}, "-l: '0' is neither a whole number above 0 nor i");
    fails({three, "-g", "x"}, "'x' is no whole number");
    fails({three, "can9=can0"}, "'can9' is no CAN channel");
    fails({three, "can2=can7"}, "no frame of 'can7'; it has can0, can1");
    fails({three, "--max-jitter", "1", "--no-receipt"}, "excludes");
    fails({three, "--max-jitter", "soon"}, "--max-jitter");
    dir_.Write("bad.log", "(1.0) can0 123#1\n");
    fails({dir_ / "bad.log"}, "bad.log, line 1: frame '123#1'");
    dir_.Write("hostile.log", "\x1b[2J\xff\u00e4 can0 123#1\n");
    fails({dir_ / "hostile.log"}, "line 1: '?[2J?\u00e4' is no time; ");
    dir_.Write("far.log", "(1.0) can0 123#\n(3000.0) can0 123#\n");
    fails({dir_ / "far.log"}, "far.log, line 2: 2999.000000 s behind the frame before; the device "
                              "waits at most 2147.483647 s, and -s skips longer intervals");
}

} // namespace
