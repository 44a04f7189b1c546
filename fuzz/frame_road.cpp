// The road of a frame, from the read ring to the answer, over a USB link in memory. The input is a
// program: sequences of frames in the host protocol's grammar, whole, cut, with wrong lengths and
// in pieces, mixed with read events, faults of the registers and a host that reads or does not.

#include "app/VciServiceGroup.h"
#include "base/ZephEventLoop.h"
#include "base/ZephEventLoopThreadPool.h"
#include "common/Config.h"
#include "common/GlobalEnums.h"
#include "doubles/MemoryBoard.h"
#include "doubles/MemoryUsb.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kRingSize = 0x100000;
constexpr int kMostSteps = 64;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "frame_road: %s\n", what);
        std::abort();
    }
}

Bytes Frame(uint32_t n, const Bytes& service, uint32_t handle) {
    Bytes frame(
        std::min<uint32_t>(serviceLenToMsgLen(static_cast<uint32_t>(service.size())), kRingSize));
    for (size_t i = 0; i < 4; ++i) {
        frame[1 + i] = static_cast<uint8_t>(n >> 8 * i);
        frame[5 + service.size() + i] = static_cast<uint8_t>(handle >> 8 * i);
    }
    std::copy(service.begin(), service.end(), frame.begin() + 5);
    return frame;
}

class Road {
  public:
    Road() : pool_(std::make_shared<ZephEventLoopThreadPool>(&loop_, 3)) {
        usb_.Reset();
        board_.Reset();
        for (uint32_t ch = 0; ch < 6; ++ch) {
            board_.Registers(0x80000000U + (ch << 16)).SetWord(0x18, 1); // a reset ends at once
        }
        group_ = std::make_unique<VciGroupService>(&loop_, pool_, clearFlag_);
        group_->Init();
    }
    // What a clear leaves for the next start would make this one answer it.
    ~Road() { std::remove(clearFlag_.c_str()); }
    Road(const Road&) = delete;
    Road& operator=(const Road&) = delete;

    void Run(FuzzedDataProvider& data) {
        // Anywhere on the rings, also just before the indices wrap.
        const uint32_t start = data.PickValueInArray<uint32_t>(
            {0, 0xFFFFFFF0, 0xFFFFC, 0xFFFFFFFF, data.ConsumeIntegral<uint32_t>()});
        usb_.Set(MemoryUsb::kReadIn, start);
        usb_.Set(MemoryUsb::kReadOut, start);
        usb_.Set(MemoryUsb::kWriteIn, ~start);
        usb_.Set(MemoryUsb::kWriteOut, ~start);
        group_->StartReading();
        for (int step = 0; step < kMostSteps && data.remaining_bytes() > 0; ++step) {
            Step(data);
        }
        ExpectRecovery();
    }

  private:
    void Step(FuzzedDataProvider& data) {
        switch (data.ConsumeIntegralInRange<int>(0, 8)) {
        case 0:
        case 1:
            Write(SyncFrame(data));
            break;
        case 2: // a frame of any group
            Write(Frame(2, {data.ConsumeIntegral<uint8_t>(), data.ConsumeIntegral<uint8_t>()},
                        data.ConsumeIntegral<uint32_t>()));
            break;
        case 3: { // a length that does not match, often one with a meaning
            const uint32_t n = data.PickValueInArray<uint32_t>(
                {0, 1, 2, 0x7FFFFFF5, 0x80000000, 0xFFFFFFF0, 0xFFFFFFF5, 0xFFFFFFFA, 65989, 65990,
                 66001, kRingSize, kRingSize + 1, data.ConsumeIntegral<uint32_t>()});
            Write(Frame(n, {data.PickValueInArray<uint8_t>({16, 0, 25, 104}), 1}, 0));
            break;
        }
        case 4: // bytes of no meaning
            Write(data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, 40)));
            break;
        case 5: { // a frame in two pieces, with an event in between
            const Bytes frame = SyncFrame(data);
            const auto cut =
                static_cast<std::ptrdiff_t>(data.ConsumeIntegralInRange<size_t>(0, frame.size()));
            Write(Bytes(frame.begin(), frame.begin() + cut));
            Event();
            Write(Bytes(frame.begin() + cut, frame.end()));
            break;
        }
        case 6:
            for (int i = data.ConsumeIntegralInRange<int>(1, 4); i > 0; --i) {
                Event();
            }
            break;
        case 7:
            board_.Registers(0x82000000).failWrites = data.ConsumeBool();
            break;
        default:
            ReadAnswers();
            break;
        }
        if (data.ConsumeBool()) {
            Settle();
        }
    }

    static Bytes SyncFrame(FuzzedDataProvider& data) {
        Bytes service{DEVICE_SYNCHRONIZATION_SERVICE_GID,
                      data.ConsumeIntegralInRange<uint8_t>(0, 5)};
        const auto payload = data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, 10));
        service.insert(service.end(), payload.begin(), payload.end());
        return Frame(static_cast<uint32_t>(service.size()), service,
                     data.ConsumeIntegral<uint32_t>());
    }

    // What the ring has room for; otherwise nothing, as a real host would wait. A fill level that
    // cannot be is that of an empty ring.
    void Write(const Bytes& bytes) {
        const uint32_t level = usb_.Get(MemoryUsb::kReadIn) - usb_.Get(MemoryUsb::kReadOut);
        if (level > kRingSize || level + bytes.size() <= kRingSize) {
            usb_.HostWrite(bytes);
        }
    }

    void Event() { group_->HandleUsbEvent(); }

    // Events for as long as the device reports itself readable and the application wants them.
    void Settle() {
        for (uint32_t events = 0; events < kRingSize; ++events) {
            if (usb_.Get(MemoryUsb::kReadIn) == usb_.Get(MemoryUsb::kReadOut) ||
                (events > 0 && group_->WaitsForBytes())) {
                return;
            }
            Event();
            ReadAnswers();
        }
        Require(false, "the read ring does not settle");
    }

    void ReadAnswers() {
        while (const auto message = usb_.HostRead()) {
            last_ = *message;
            Require(last_.size() >= 12 && last_.size() % 4 == 0, "an answer of a wrong size");
            Require(last_[0] == 0, "an answer with a leading byte");
            const uint32_t n = UcharToUint(last_.data() + 1);
            Require(last_.size() == serviceLenToMsgLen(n), "an answer whose length is wrong");
            if (last_[5] == ERR_INFO_SERVICE_GID && last_[6] == SERVICE_ERR_SID) {
                Require(n == 5 && NegtiveErrorCodeName(last_[7]) != nullptr, "an unknown refusal");
            } else {
                Require((n == 10 &&
                         (last_[5] == DEVICE_SYNCHRONIZATION_SERVICE_GID ||
                          last_[5] == DATA_RECORD_SERVICE_GID || last_[5] == IOADC_SERVICE_GID)) ||
                            ((n == 2 || n == 10) && last_[5] == NET_CONFIG_SERVICE_GID) ||
                            (n == 2 && last_[5] == LIN_MESSAGE_SERVICE_GID) ||
                            ((n == 2 || n == 3) && last_[5] == CAN_REPLAY_SERVICE_GID) ||
                            ((n == 2 || n == 10 || n == 15 || n == 18) &&
                             last_[5] == DEV_CFG_SERVICE_GID) ||
                            (n == 10 && last_[5] == SEND_NET_FRAME_SERVICE_GID),
                        "an answer that nobody asked for");
            }
        }
    }

    // Whatever came before, a host that goes on with whole frames is answered again: at once, or
    // when the frame that is still waited for has been filled up.
    void ExpectRecovery() {
        Settle();
        ReadAnswers();
        if (IsTimeAnswered()) {
            return;
        }
        for (int i = 0; i < 3; ++i) {
            Write(Bytes(0x8000));
            Settle();
        }
        Require(IsTimeAnswered(), "a whole frame was lost");
    }

    bool IsTimeAnswered() {
        last_.clear();
        Write(Frame(2, {DEVICE_SYNCHRONIZATION_SERVICE_GID, 1}, 0));
        Settle();
        ReadAnswers();
        return last_.size() == 24 && last_[5] == DEVICE_SYNCHRONIZATION_SERVICE_GID &&
               last_[6] == 1;
    }

    MemoryUsb& usb_ = MemoryUsb::Instance();
    MemoryBoard& board_ = MemoryBoard::Instance();
    const std::string clearFlag_ = "/tmp/vci-clear.flag." + std::to_string(getpid());
    ZephEventLoop loop_;
    std::shared_ptr<ZephEventLoopThreadPool> pool_;
    std::unique_ptr<VciGroupService> group_;
    Bytes last_;
};

// Each input has a recording of its own, and a live capture takes longer to open than all the rest.
void GiveUpTheRightToCapture() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3]{};
    if (syscall(SYS_capget, &header, data) == 0) {
        data[0].effective &= ~(1U << CAP_NET_RAW);
        Require(syscall(SYS_capset, &header, data) == 0, "a right cannot be given up");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    GiveUpTheRightToCapture();
    // What the services tell the console would drown the fuzzer's own words.
    return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    Road().Run(data);
    return 0;
}
