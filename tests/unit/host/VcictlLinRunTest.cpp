#include "host/FakeDevice.h"
#include "host/Tool.h"
#include "utils/WireFormat.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::StartsWith;
using vcihost::Bytes;
using vcihost::ParseHex;
using vcihost::ToHex;

namespace {

using Strings = std::vector<std::string>;

constexpr uint64_t kStart = 1'000'000'000; // device time of the first frame
constexpr uint64_t kMs = 1'000'000;
constexpr uint64_t kUs = 1000;

// A frame record of lin0: PID and start; with an error or without.
Bytes Record(uint8_t pid, uint64_t start, bool failed = false) {
    Bytes service(103);
    WireWriter(service)
        .U8(9)
        .U8(26)
        .U8(0)
        .U8(pid)
        .U64(start)
        .U64(start + 3 * kMs)
        .U8(failed ? 3 : 2)
        .U16(failed ? 1 : 0)
        .U8(0)
        .U8(2);
    Bytes frame((service.size() + 14) / 4 * 4);
    WireWriter(frame).U8(0).U32(static_cast<uint32_t>(service.size())).Bytes(service);
    return frame;
}

// Answers everything; the time is `stopped`. Behind the answer to the start of the schedule come
// the records.
FakeDevice::Answers Running(std::vector<Bytes> records, uint64_t stopped) {
    return [records = std::move(records), stopped](const Bytes& packet) {
        const bool timed = packet.at(5) != 6;
        Bytes answer(timed ? 24 : 16);
        WireWriter(answer).U8(0).U32(timed ? 10 : 2).U8(packet.at(5)).U8(packet.at(6));
        if (timed) {
            WireWriter(std::span(answer).subspan(7)).U64(stopped);
        }
        std::vector<Bytes> answers{answer};
        if (packet.at(5) == 6 && packet.at(6) == 6 && packet.at(8) == 1) {
            answers.insert(answers.end(), records.begin(), records.end());
        }
        return answers;
    };
}

Strings Services(const FakeDevice& device) {
    Strings services;
    for (const Bytes& packet : device.Received()) {
        services.push_back(ToHex(std::span(packet).subspan(5, packet.at(1))));
    }
    return services;
}

class VcictlLinRun : public testing::Test {
  protected:
    VcictlLinRun() { dir_.Write("a.txt", "10 2 10\n11 2 20\n"); }

    ToolResult Run(const FakeDevice& device, Strings words) const {
        Strings all{"lin",        "run",   "lin0",     "--table",    dir_ / "a.txt",
                    "--duration", "200ms", "--device", device.path()};
        all.insert(all.end(), words.begin(), words.end());
        return RunTool(all);
    }

    TempDir dir_;
    // Two cycles of 30 ms; the second frame of the first one is 250 us late, that of the second one
    // got no response.
    std::vector<Bytes> records_{Record(0x50, kStart), Record(0x11, kStart + 10 * kMs + 250 * kUs),
                                Record(0x50, kStart + 30 * kMs - 14 * kUs),
                                Record(0x11, kStart + 40 * kMs - 14 * kUs, true)};
};

TEST_F(VcictlLinRun, RecordsRunsStopsAndTells) {
    FakeDevice device(Running(records_, kStart + 60 * kMs), {Record(0x50, 5)});
    const auto result = Run(device, {});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "times in us, from the start of a cycle; lateness below 0 is too early; - is not "
              "measured\n"
              "entry id      due at    went at    due   seen  lost errors earliest   median      "
              "p99   latest\n"
              "    1 10         0.0        0.0      2      2     0      0    -14.0    -14.0    "
              "-14.0    -14.0\n"
              "    2 11     10000.0    10000.0      2      2     0      1      0.0      0.0    "
              "250.0    250.0\n"
              "cycle 30000.0 us planned, 29986.0 us measured\n");
    EXPECT_EQ(Services(device), (Strings{"06060000", "0601000210020a0011021400", "090c010001",
                                         "06060001", "1001", "06060000", "090c010000"}));
}

TEST_F(VcictlLinRun, LossesFramesOfOthersAndJson) {
    records_.erase(records_.begin() + 1);
    records_.push_back(Record(0x3C, kStart + 50 * kMs));
    FakeDevice device(Running(records_, kStart + 60 * kMs));
    const auto result = Run(device, {"--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "{\"cycle_planned_ns\":30000000,\"cycle_measured_ns\":29986000,\"other_frames\":1,"
              "\"slots\":[{\"id\":16,\"due_at_ns\":0,\"went_at_ns\":0,\"due\":2,\"seen\":2,"
              "\"lost\":0,\"errors\":0,\"late_earliest_ns\":-14000,\"late_median_ns\":-14000,"
              "\"late_p99_ns\":-14000,\"late_latest_ns\":-14000},{\"id\":17,\"due_at_ns\":10000000,"
              "\"went_at_ns\":10000000,\"due\":2,\"seen\":1,\"lost\":1,\"errors\":1,"
              "\"late_earliest_ns\":0,\"late_median_ns\":0,\"late_p99_ns\":0,"
              "\"late_latest_ns\":0}]}\n");
    EXPECT_THAT(Run(device, {}).out, HasSubstr("1 frame of no entry of the table\n"));
}

TEST_F(VcictlLinRun, JitterIsAnExitStatus) {
    FakeDevice device(Running(records_, kStart + 60 * kMs));
    EXPECT_EQ(Run(device, {"--max-jitter", "250us"}).status, 0);
    const auto late = Run(device, {"--max-jitter", "249us"});
    EXPECT_EQ(late.status, 1);
    EXPECT_EQ(late.err, "vcictl: lin0 entry 2 (11): 250.0 us from due, above 249us\n");
    EXPECT_THAT(late.out, HasSubstr("cycle 30000.0 us planned"));
    const auto early = Run(device, {"--max-jitter", "10us"});
    EXPECT_THAT(early.err, HasSubstr("lin0 entry 1 (10): 14.0 us from due, above 10us\n"));
    FakeDevice lossy(Running({records_[0], records_[2]}, kStart + 60 * kMs));
    const auto lost = Run(lossy, {"--max-jitter", "1s"});
    EXPECT_EQ(lost.status, 1);
    EXPECT_EQ(lost.err, "vcictl: lin0 entry 2 (11): 2 of 2 frames lost\n");
}

TEST_F(VcictlLinRun, NothingSeenIsNotMeasured) {
    FakeDevice device(Running({}, kStart));
    const auto result = Run(device, {"--max-jitter", "1s"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "vcictl: lin0 entry 1 (10): seen 0 times, jitter not measured\n"
                          "vcictl: lin0 entry 2 (11): seen 0 times, jitter not measured\n");
    EXPECT_THAT(result.out, HasSubstr("cycle 30000.0 us planned, not measured\n"));
    EXPECT_EQ(Run(device, {}).status, 0);
}

// Refuses the request that begins with these bytes by SERVICE_WRONG_SEQUENCE.
FakeDevice::Answers Refusing(const std::string& service) {
    return [answer = Running({}, 0), service](const Bytes& packet) {
        if (!ToHex(std::span(packet).subspan(5)).starts_with(service)) {
            return answer(packet);
        }
        Bytes refusal = ParseHex("00 05000000 6802 0c 00 00 00000000 0000");
        refusal[8] = packet.at(5);
        refusal[9] = packet.at(6);
        std::copy_n(packet.begin() + 5 + packet.at(1), 4, refusal.begin() + 10);
        return std::vector<Bytes>{refusal};
    };
}

TEST_F(VcictlLinRun, AClosedChannelIsLeftAlone) {
    FakeDevice device(Refusing("0606"));
    const auto result = Run(device, {});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("; lin0 is closed: vcictl lin open lin0\n"));
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(Services(device), Strings{"06060000"});
}

TEST_F(VcictlLinRun, ARefusedStartSwitchesTheRecordOff) {
    FakeDevice device(Refusing("06060001"));
    EXPECT_EQ(Run(device, {}).status, 1);
    EXPECT_EQ(Services(device), (Strings{"06060000", "0601000210020a0011021400", "090c010001",
                                         "06060001", "06060000", "090c010000"}));
}

// The switch may have been done though its answer did not come.
TEST_F(VcictlLinRun, ARecordSwitchWithoutAnAnswerIsTakenBack) {
    FakeDevice device([answer = Running({}, 0)](const Bytes& packet) {
        return packet.at(5) == 9 && packet.at(9) == 1 ? std::vector<Bytes>{} : answer(packet);
    });
    const auto result = Run(device, {"--wait", "400"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(Services(device),
              (Strings{"06060000", "0601000210020a0011021400", "090c010001", "090c010000"}));
}

TEST_F(VcictlLinRun, ASignalEndsItWithItsReceipt) {
    FakeDevice device(Running(records_, kStart + 60 * kMs));
    Tool tool({"lin", "run", "lin0", "--table", dir_ / "a.txt", "--duration", "60s", "--device",
               device.path()});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (device.Received().size() < 4 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    tool.Signal(SIGINT);
    const auto result = tool.Finish();
    EXPECT_EQ(result.status, -SIGINT);
    EXPECT_THAT(result.out, StartsWith("times in us"));
    const auto services = Services(device);
    ASSERT_EQ(services.size(), 7U);
    EXPECT_EQ(services[5], "06060000");
    EXPECT_EQ(services[6], "090c010000");
}

} // namespace
