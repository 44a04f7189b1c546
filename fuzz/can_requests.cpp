// Requests to configure CAN channels and to send on them, in any order, with any bytes and counts.
// The registers are memory, the sockets take everything or refuse; what the services answer, write
// and send must have the form that host and kernel expect.

#include "base/ZephEventLoop.h"
#include "base/ZephEventLoopThreadPool.h"
#include "common/Config.h"
#include "common/GlobalEnums.h"
#include "doubles/CanSockets.h"
#include "doubles/MemoryBoard.h"
#include "doubles/MemoryUsb.h"
#include "modules/NetCfgService.h"
#include "modules/VciSendService.h"
#include "net/BcmMessage.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

using Bytes = std::vector<uint8_t>;
using Drivers::CanManage;

constexpr int kMostSteps = 40;
constexpr uint64_t kMostDelayUs = 70'000'000; // the longest period and some windows
constexpr uint32_t kDataRoom = 300;           // of a request, some four of the longest entries

void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "can_requests: %s\n", what);
        std::abort();
    }
}

// The sockets of the whole program, without a bus.
std::array<std::shared_ptr<CanSockets>, 6>& Channels() {
    static auto channels = CanSockets::Replace(net::ZephCanComM::GetInstance());
    return channels;
}

class Requests {
  public:
    Requests()
        : channels_(Channels()),
          pool_(std::make_shared<ZephEventLoopThreadPool>(&loop_, 1)),
          config_(&loop_),
          send_(&loop_, pool_) {
        usb_.Reset();
        board_.Reset();
        for (uint32_t ch = 0; ch < 6; ++ch) {
            board_.Registers(0x80000000U + (ch << 16)).SetWord(0x18, 1); // a reset ends at once
            CanManage::BaudRate_[ch] = 0;
            CanManage::DataBaudRate_[ch] = 0;
        }
        CanManage::GetInstance().ClearAllStatus();
        for (const auto& channel : channels_) {
            channel->Open();
        }
    }

    void Run(FuzzedDataProvider& data) {
        for (int step = 0; step < kMostSteps && data.remaining_bytes() > 0; ++step) {
            Step(data);
        }
        net::CanSend::GetInstance(nullptr)->ClearPeriodicSendTask();
    }

  private:
    void Step(FuzzedDataProvider& data) {
        switch (data.ConsumeIntegralInRange<int>(0, 7)) {
        case 0: // the device time goes on
            ticks_ += data.ConsumeIntegral<uint32_t>();
            board_.SetCounter(ticks_);
            break;
        case 1: // channels open and close, which needs a kernel here
            CanManage::statusMask_ = data.ConsumeIntegral<uint8_t>() & 0x3F;
            break;
        case 2: // as timing leaves it
            CanManage::BaudRate_[data.ConsumeIntegralInRange<size_t>(0, 5)] =
                data.PickValueInArray<int>({0, 1, 100, 10000, 500000, 1000000, 20000000});
            CanManage::DataBaudRate_[data.ConsumeIntegralInRange<size_t>(0, 5)] =
                data.PickValueInArray<int>({0, 1, 2000000, 8000000});
            break;
        case 3:
            if (data.ConsumeBool()) {
                channels_[data.ConsumeIntegralInRange<size_t>(0, 5)]->BreakPeriodic();
            } else {
                channels_[data.ConsumeIntegralInRange<size_t>(0, 5)]->Open();
            }
            break;
        case 4:
        case 5:
            Configure(data);
            break;
        default:
            Send(data);
            break;
        }
        CheckSockets();
    }

    void Configure(FuzzedDataProvider& data) {
        Bytes request{NET_CONFIG_SERVICE_GID, data.ConsumeIntegralInRange<uint8_t>(40, 47),
                      data.ConsumeIntegralInRange<uint8_t>(6, 15)};
        const auto rest = data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, 11));
        request.insert(request.end(), rest.begin(), rest.end());
        Write(request);
        config_.HandleReadEvent();
        const auto answer = usb_.HostRead();
        Require(answer.has_value(), "a configuration request without an answer");
        CheckAnswer(*answer, request, request[1] == SET_CAN_STATUS_SID ? 10 : 2);
        Require(!usb_.HostRead(), "a second answer");
        Require((CanManage::ListenstatusMask_ & ~0x3F) == 0, "a listening channel beyond the last");
    }

    void Send(FuzzedDataProvider& data) {
        const uint8_t sid = data.ConsumeIntegralInRange<uint8_t>(50, 54);
        Bytes request{SEND_NET_FRAME_SERVICE_GID, sid, data.ConsumeIntegralInRange<uint8_t>(6, 15)};
        const auto rest =
            data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, kDataRoom));
        request.insert(request.end(), rest.begin(), rest.end());
        Write(request);
        send_.HandleReadEvent();
        const auto answer = usb_.HostRead();
        if (answer) {
            CheckAnswer(*answer, request, 10);
        } else {
            Require(sid == CAN_SET_RECV_DATA, "a send request without an answer");
        }
        Require(!usb_.HostRead(), "a second answer");
        SendOnNewPlan(request);
    }

    // The service plans with what all inputs before this one have left; here the plan is new, so
    // that an input repeats what it found.
    void SendOnNewPlan(const Bytes& request) {
        if (request[2] < 8 || request[2] > 13) {
            return; // the service alone looks at the channel
        }
        if (request[1] == CAN_SET_PERIOD_DATA) {
            own_.SetPeriodicSendTask(request);
        } else if (request[1] == CAN_SINGLE_SEND) {
            own_.SendMutiMessages(request);
        } else {
            own_.SendSingleMessage(request);
        }
    }

    void Write(const Bytes& service) {
        Bytes frame(serviceLenToMsgLen(static_cast<uint32_t>(service.size())));
        for (size_t i = 0; i < 4; ++i) {
            frame[1 + i] = static_cast<uint8_t>(service.size() >> 8 * i);
        }
        std::copy(service.begin(), service.end(), frame.begin() + 5);
        usb_.HostWrite(frame);
    }

    static void CheckAnswer(const Bytes& answer, const Bytes& request, uint32_t length) {
        const uint32_t n = UcharToUint(answer.data() + 1);
        Require(answer.size() == serviceLenToMsgLen(n), "an answer whose length is wrong");
        if (answer[5] == ERR_INFO_SERVICE_GID) {
            Require(n == 5 && answer[8] == request[0] && answer[9] == request[1] &&
                        NegtiveErrorCodeName(answer[7]) != nullptr,
                    "an unknown refusal");
        } else {
            Require(n == length && answer[5] == request[0] && answer[6] == request[1],
                    "an answer of another request");
        }
    }

    void CheckSockets() {
        CheckSockets(channels_);
        CheckSockets(ownChannels_);
    }

    static void CheckSockets(const std::array<std::shared_ptr<CanSockets>, 6>& channels) {
        for (const auto& channel : channels) {
            for (const Bytes& frame : channel->Frames()) {
                Require(frame.size() == CAN_MTU || frame.size() == CANFD_MTU, "a frame's size");
                Require(frame[6] == 1, "a single frame without its mark");
            }
            for (const Bytes& message : channel->Periodic()) {
                CheckPeriodic(message);
            }
        }
    }

    static void CheckPeriodic(const Bytes& message) {
        net::BcmHead head{};
        std::memcpy(&head, message.data(), sizeof(head));
        const bool fd = (head.flags & CAN_FD_FRAME) != 0;
        Require(message.size() == sizeof(head) + (fd ? size_t{CANFD_MTU} : size_t{CAN_MTU}),
                "a periodic message's size");
        Require((head.can_id & CAN_ERR_FLAG) == 0, "an error frame is to be sent");
        if (head.opcode == TX_DELETE) {
            Require(head.nframes == 0, "a stop with a frame");
            return;
        }
        Require(head.opcode == TX_SETUP && head.nframes == 1 && head.count == 0, "no start");
        for (const bcm_timeval& interval : {head.ival1, head.ival2}) {
            Require(interval.tv_sec >= 0 && interval.tv_usec >= 0 && interval.tv_usec < 1000000,
                    "an interval that is none");
        }
        Require(static_cast<uint64_t>(head.ival1.tv_sec) * 1000000 < kMostDelayUs,
                "a first frame that never comes");
        Require(head.ival2.tv_sec > 0 || head.ival2.tv_usec > 0, "a period of nothing");
    }

    MemoryUsb& usb_ = MemoryUsb::Instance();
    MemoryBoard& board_ = MemoryBoard::Instance();
    std::array<std::shared_ptr<CanSockets>, 6>& channels_;
    net::ZephCanComM ownSockets_;
    std::array<std::shared_ptr<CanSockets>, 6> ownChannels_ = CanSockets::Replace(ownSockets_);
    net::CanSend own_{nullptr, ownSockets_};
    ZephEventLoop loop_;
    std::shared_ptr<ZephEventLoopThreadPool> pool_;
    NetCfgService config_;
    VciSendService send_;
    uint64_t ticks_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // What the services tell the console would drown the fuzzer's own words.
    return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    Requests().Run(data);
    return 0;
}
