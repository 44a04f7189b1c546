// Requests to the IO service of any length and content, and samples of its device of any length, in
// any order. The registers are memory, the device is a pipe; what the service answers, writes and
// uploads must be what a host and the board expect.

#include "base/ZephEventLoop.h"
#include "common/Config.h"
#include "common/GlobalEnums.h"
#include "doubles/MemoryBoard.h"
#include "doubles/MemoryUsb.h"
#include "modules/IOADCService.h"
#include "utils/UniqueFd.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kMostSteps = 40;
constexpr size_t kSampleSize = 16;
constexpr size_t kUploadSize = 32;

std::FILE* console = stderr; // of the fuzzer's own words

void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(console, "io_requests: %s\n", what);
        std::abort();
    }
}

class Requests {
  public:
    Requests() {
        usb_.Reset();
        board_.Reset();
        int ends[2];
        Require(pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0, "no pipe");
        device_.reset(ends[0]);
        driver_.reset(ends[1]);
        Connect();
    }

    void Run(FuzzedDataProvider& data) {
        for (int step = 0; step < kMostSteps && data.remaining_bytes() > 0; ++step) {
            Step(data);
        }
    }

  private:
    void Connect() {
        const std::string path = "/proc/self/fd/" + std::to_string(device_.get());
        Require(service_.initDevice(path), "the pipe does not open");
        connected_ = true;
    }

    void Step(FuzzedDataProvider& data) {
        switch (data.ConsumeIntegralInRange<int>(0, 9)) {
        case 0: // any word in any register
            registers_.SetWord(4 * data.ConsumeIntegralInRange<uint32_t>(0, 4),
                               data.ConsumeIntegral<uint32_t>());
            break;
        case 1:
            Clean(data.ConsumeBool());
            break;
        case 2:
            service_.IoAdc_EnablePeriod(data.ConsumeIntegral<uint8_t>(),
                                        data.ConsumeIntegral<uint64_t>());
            break;
        case 3:
        case 4:
        case 5:
            Sample(data);
            break;
        default:
            Ask(data);
            break;
        }
    }

    void Clean(bool again) {
        Require(!service_.IoAdcCleanup(), "a clean-up that says true");
        for (const uint32_t offset : {0U, 4U, 8U, 12U, 16U}) {
            Require(registers_.Word(offset) == 0, "a register that a clean-up leaves");
        }
        connected_ = false;
        if (again) {
            Connect();
        }
    }

    void Sample(FuzzedDataProvider& data) {
        const auto bytes = data.ConsumeBytes<uint8_t>(
            data.ConsumeBool() ? kSampleSize : data.ConsumeIntegralInRange<size_t>(0, 40));
        Require(write(driver_.get(), bytes.data(), bytes.size()) ==
                    static_cast<ssize_t>(bytes.size()),
                "the pipe takes nothing");
        stream_.insert(stream_.end(), bytes.begin(), bytes.end());
        while (!stream_.empty()) {
            service_.handleInterrupt();
            const size_t taken = connected_ ? std::min(stream_.size(), kSampleSize) : 0;
            const Bytes sample(stream_.begin(), stream_.begin() + static_cast<int>(taken));
            stream_.erase(stream_.begin(), stream_.begin() + static_cast<int>(taken));
            CheckUpload(sample);
            if (taken == 0) {
                break;
            }
        }
    }

    void CheckUpload(const Bytes& sample) {
        const auto upload = usb_.HostRead();
        if (sample.size() < kSampleSize) {
            Require(!upload, "an upload of no sample");
            return;
        }
        Bytes expected{0, 19, 0, 0, 0, IOADC_SERVICE_GID, 4};
        expected.insert(expected.end(), sample.begin() + 8, sample.end()); // time
        expected.insert(expected.end(), {sample[1], sample[2], sample[0], 0, 0});
        expected.insert(expected.end(), sample.begin() + 4, sample.begin() + 8); // converter
        expected.resize(kUploadSize);
        Require(upload && *upload == expected, "an upload that is not the sample");
        Require(!usb_.HostRead(), "a second upload");
    }

    void Ask(FuzzedDataProvider& data) {
        Bytes request{IOADC_SERVICE_GID, data.ConsumeIntegralInRange<uint8_t>(0, 8)};
        const auto rest = data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, 12));
        request.insert(request.end(), rest.begin(), rest.end());
        Bytes frame(serviceLenToMsgLen(static_cast<uint32_t>(request.size())));
        frame[1] = static_cast<uint8_t>(request.size());
        std::copy(request.begin(), request.end(), frame.begin() + 5);
        usb_.HostWrite(frame);
        registers_.writes.clear();
        service_.HandleReadEvent();
        const auto answer = usb_.HostRead();
        Require(answer.has_value(), "a request without an answer");
        Require(!usb_.HostRead(), "a second answer");
        CheckAnswer(*answer, frame);
        for (const auto& [offset, value] : registers_.writes) {
            Require(offset <= 16 && offset % 4 == 0, "a write beside the registers");
        }
    }

    // Behind a short request the frame holds zeros, and those are what is missing.
    static void CheckAnswer(const Bytes& answer, const Bytes& frame) {
        const uint8_t sid = frame[6];
        const bool known = sid == IOADC_OPEN || sid == IOADC_DO_STATE_SWITCH ||
                           sid == IOADC_SET_UPLOAD_PERIOD || sid == IOADC_SET_UPLOAD_TRIGGER;
        const bool refused = !known || (sid != IOADC_SET_UPLOAD_PERIOD && !InRange(frame));
        if (!refused) {
            Require(answer.size() == 24 && answer[1] == 10 && answer[5] == IOADC_SERVICE_GID &&
                        answer[6] == sid,
                    "a good request that is not answered so");
            return;
        }
        Require(answer.size() == 16 && answer[5] == ERR_INFO_SERVICE_GID &&
                    answer[7] == (known ? VALUE_OUTOF_RANGE : WRONG_SID) &&
                    answer[8] == IOADC_SERVICE_GID && answer[9] == sid,
                "a wrong request that is not refused so");
    }

    static bool InRange(const Bytes& frame) {
        const uint8_t first = frame[7];
        if (frame[6] != IOADC_DO_STATE_SWITCH) {
            return first <= 1;
        }
        if (first > 2) {
            return false;
        }
        for (size_t i = 0; i < first; ++i) {
            const uint8_t output = frame[8 + 2 * i];
            if (output < 1 || output > 2 || frame[9 + 2 * i] > 1) {
                return false;
            }
        }
        return true;
    }

    MemoryUsb& usb_ = MemoryUsb::Instance();
    MemoryBoard& board_ = MemoryBoard::Instance();
    MemoryRegAccess& registers_ = board_.Registers(0x88000000);
    UniqueFd device_, driver_;
    Bytes stream_; // what the pipe holds
    bool connected_ = false;
    ZephEventLoop loop_;
    IOADCService service_{&loop_, -1};
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // What the service tells would drown the fuzzer's own words.
    std::FILE* const nowhere = std::fopen("/dev/null", "w");
    if (nowhere == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) {
        return 1;
    }
    stderr = nowhere;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    Requests().Run(data);
    return 0;
}
