// The CAN replay under a host that sends anything at any moment. The input is a program: batches of
// well-formed frames and of any bytes, commands, and pauses in which timers expire, on the real
// thread. What must hold: each request is answered as it may be; each frame that was queued is
// written once, whole, in its order and on its channel, unless a cancel or a failure dropped it;
// nothing is written behind the answer to a cancel; and a replay ends behind a finish, but not
// without one. The closing wait is short, so that replays end amid the requests.

#include "common/CanWire.h"
#include "common/Config.h"
#include "common/GlobalEnums.h"
#include "doubles/CanSockets.h"
#include "doubles/MemoryBoard.h"
#include "doubles/MemoryUsb.h"
#include "doubles/TimerSettings.h"
#include "drivers/UsbDriver.h"
#include "modules/VciCanReplayService.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <linux/can.h>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr int kMostSteps = 40;
constexpr size_t kRing = 511;
constexpr uint32_t kNever = 0xFFFFFFFF;
constexpr uint32_t kLongest = 1000; // microseconds that are waited for
constexpr uint8_t kEndMessage = 128;
constexpr int64_t kClosingWait = 99980000; // nanoseconds
constexpr int64_t kShortWait = 20000;
constexpr std::chrono::seconds kPatience{10}; // for what must come

void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "replay: %s\n", what);
        std::abort();
    }
}

// A frame as the host has sent it.
struct Queued {
    uint8_t channel;
    uint32_t interval;
    bool fd;
    Bytes bytes; // on the socket
};

// The frame that must reach the socket.
Queued Read(const uint8_t* at, size_t length) {
    Queued queued{};
    queued.channel = at[0];
    queued.interval = UcharToUint(at + 1);
    uint32_t id = UcharToUint(at + 5);
    const bool extended = id >> 31 != 0;
    id &= extended ? 0x9FFFFFFF : 0x7FF;
    const bool bit5 = (at[9] & 0x20) != 0;
    queued.fd = (at[9] & 0x40) != 0;
    queued.bytes.resize(queued.fd ? CANFD_MTU : CAN_MTU);
    if (!queued.fd && bit5) {
        id |= 0x40000000;
    }
    std::memcpy(queued.bytes.data(), &id, sizeof(id));
    queued.bytes[4] = static_cast<uint8_t>(length);
    queued.bytes[5] = queued.fd && bit5 ? 1 : 0;
    queued.bytes[6] = 1; // the mark of a single frame
    std::memcpy(queued.bytes.data() + 8, at + 10, queued.fd ? length : std::min<size_t>(length, 8));
    return queued;
}

// What reaches the sockets, of all channels in one row.
class Written {
  public:
    void Add(uint8_t channel, const void* frame, size_t size) {
        const auto* bytes = static_cast<const uint8_t*>(frame);
        const std::lock_guard<std::mutex> lock(mutex_);
        frames_.push_back({channel, 0, size == CANFD_MTU, Bytes(bytes, bytes + size)});
    }
    std::vector<Queued> Take() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(frames_, {});
    }

  private:
    std::mutex mutex_;
    std::vector<Queued> frames_;
};

// A socket that takes a frame or refuses it: the replay must not tell the difference.
class NotingSockets : public CanSockets {
  public:
    NotingSockets(uint8_t index, Written& written)
        : CanSockets(index), channel_(index), written_(written) {}
    int Write(void* frame, int type, int protocol, int extend) override {
        const int result = CanSockets::Write(frame, type, protocol, extend);
        written_.Add(channel_, frame, type == 1 ? CANFD_MTU : CAN_MTU);
        return result;
    }

  private:
    uint8_t channel_;
    Written& written_;
};

class Replay {
  public:
    Replay() {
        MemoryBoard::Instance().Reset();
        usb_.Reset();
        Drivers::UsbDriver::GetInstance();
        Drivers::CanManage::statusMask_ = 0x3F;
        Drivers::CanManage::ListenstatusMask_ = 0;
        for (uint8_t ch = 0; ch < kCanChannels; ++ch) {
            sockets_.push_back(std::make_shared<NotingSockets>(ch, written_));
            if (ch != 5) { // one channel whose socket there is not
                sockets_.back()->Open();
            }
            net::ZephCanComM::GetInstance().ReplaceChannel(ch, sockets_.back());
        }
        settings_.Replace(kClosingWait, kShortWait);
        service_.emplace(nullptr);
    }

    void Run(FuzzedDataProvider& data) {
        for (int step = 0; step < kMostSteps && data.remaining_bytes() > 0; ++step) {
            Step(data);
            Listen();
        }
        // A batch, for frames that a refused one has left without a thread, and behind a pause it
        // takes a continue. With them the finish comes to an end, which that of an earlier finish
        // may have met.
        Drivers::CanManage::ListenstatusMask_ = 0;
        ends_ = 0;
        Command(REPLAY_FINISH_SID);
        Bytes last{CAN_REPLAY_SERVICE_GID, DOWNLOAD_REPLAY_DATA_SID, 1, 0};
        last.resize(14);
        Download(last);
        Command(REPLAY_CONTINUE_SID);
        ExpectTheRest();
        Cancel();
        Require(replies_.empty(), "a message that nobody asked for");
    }

  private:
    void Step(FuzzedDataProvider& data) {
        switch (data.ConsumeIntegralInRange<int>(0, 11)) {
        case 0:
            Command(REPLAY_PAUSE_SID);
            break;
        case 1:
        case 2:
            Command(REPLAY_CONTINUE_SID);
            break;
        case 3:
            Command(REPLAY_FINISH_SID);
            break;
        case 4:
            Cancel();
            break;
        case 5: // time for expiries
            std::this_thread::sleep_for(
                std::chrono::microseconds(data.ConsumeIntegralInRange<int>(0, 500)));
            break;
        case 6: { // any bytes
            Bytes request{CAN_REPLAY_SERVICE_GID, data.ConsumeIntegral<uint8_t>()};
            const auto rest =
                data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, 120));
            request.insert(request.end(), rest.begin(), rest.end());
            Any(request);
            break;
        }
        case 7:
            Drivers::CanManage::statusMask_ = data.ConsumeIntegral<uint8_t>() | 1;
            Drivers::CanManage::ListenstatusMask_ = data.ConsumeIntegral<uint8_t>() & ~1;
            break;
        case 8: // more than the ring may hold
            Download(Batch(data, data.ConsumeIntegralInRange<uint16_t>(400, 513), 1));
            break;
        default:
            Download(Batch(data, data.ConsumeIntegralInRange<uint16_t>(0, 30), 100));
            break;
        }
    }

    // Frames of three patterns: many of a few bytes of input.
    static Bytes Batch(FuzzedDataProvider& data, uint16_t count, uint32_t longest) {
        Bytes batch{CAN_REPLAY_SERVICE_GID, DOWNLOAD_REPLAY_DATA_SID, static_cast<uint8_t>(count),
                    static_cast<uint8_t>(count >> 8)};
        const auto interval = data.ConsumeIntegralInRange<uint32_t>(0, longest);
        const auto flags = data.ConsumeIntegral<uint8_t>();
        const auto id = data.ConsumeIntegral<uint32_t>();
        const auto channel = data.ConsumeIntegralInRange<uint8_t>(0, 6);
        const auto odd = data.ConsumeIntegral<uint16_t>(); // the frame whose interval is special
        const auto special = data.PickValueInArray<uint32_t>({0, 101, 300, kNever, 0x80000000});
        for (uint16_t i = 0; i < count; ++i) {
            const auto kind = static_cast<uint8_t>(count > 100 ? flags & 0xF0 : flags + i);
            const auto length = kDlcToLength[kind & 0xF];
            batch.push_back(i == 0 ? channel % 6 : static_cast<uint8_t>(channel + i % 7));
            for (const uint32_t word : {i == odd ? special : interval, id + i}) {
                for (int shift = 0; shift < 32; shift += 8) {
                    batch.push_back(static_cast<uint8_t>(word >> shift));
                }
            }
            batch.push_back(kind);
            batch.insert(batch.end(), length, static_cast<uint8_t>(id + i));
        }
        batch.resize(std::max<size_t>(batch.size(), 12));
        return batch;
    }

    void Any(const Bytes& request) {
        switch (request[1]) {
        case DOWNLOAD_REPLAY_DATA_SID:
            Download(request);
            break;
        case REPLAY_CANCEL_SID:
            Cancel();
            break;
        case REPLAY_FINISH_SID:
        case REPLAY_PAUSE_SID:
        case REPLAY_CONTINUE_SID:
            Command(request[1]);
            break;
        default:
            Send(request);
            ExpectRefusal(request, WRONG_SID);
            break;
        }
    }

    void Command(uint8_t sid) {
        finishes_ += sid == REPLAY_FINISH_SID ? 1 : 0;
        Send({CAN_REPLAY_SERVICE_GID, sid});
        ExpectAnswer(sid);
    }

    void Cancel() {
        Send({CAN_REPLAY_SERVICE_GID, REPLAY_CANCEL_SID});
        ExpectAnswer(REPLAY_CANCEL_SID);
        CheckWritten();
        queued_.clear();
        failed_ = mayFail_ = false;
        finishes_ = 0;
        std::this_thread::yield();
        Require(written_.Take().empty(), "a frame behind the answer to a cancel");
    }

    // What a batch must lead to, in the plainest way.
    void Download(const Bytes& request) {
        NegtiveErrorCode expected = NO_ERROR;
        const size_t before = queued_.size();
        size_t whole = 0; // frames that are queued if there is room
        if (request.size() <= 11) {
            expected = ERROR_LENGTH;
        } else if (request[4] >= kCanChannels) {
            expected = VALUE_OUTOF_RANGE;
        } else if ((Drivers::CanManage::statusMask_ >> request[4] & 1) == 0 ||
                   (Drivers::CanManage::ListenstatusMask_ >> request[4] & 1) != 0) {
            expected = SERVICE_WRONG_SEQUENCE;
        } else {
            const size_t count = request[2] | size_t{request[3]} << 8;
            size_t at = 4;
            for (; whole < count; ++whole) {
                if (request.size() - at < 10) {
                    break;
                }
                const size_t length = kDlcToLength[request[at + 9] & 0xF];
                if (request.size() - at - 10 < length) {
                    break;
                }
                queued_.push_back(Read(request.data() + at, length));
                const uint32_t interval = queued_.back().interval;
                mayFail_ |= interval >= 0x80000000 && interval != kNever;
                at += 10 + length;
            }
            expected = whole < count ? ERROR_LENGTH : NO_ERROR;
        }
        Send(request);
        Listen();
        bool refused = false;
        for (const Bytes& reply : std::exchange(replies_, {})) {
            Require(reply.at(5) == ERR_INFO_SERVICE_GID, "a batch is answered by no refusal");
            refused = true;
            if (reply.at(7) == OPEN_FILE_FAILED) {
                // The ring was full, or the thread has failed. What was queued and written of this
                // batch is not known here.
                Require(before + whole > kRing || mayFail_ || failed_,
                        "a batch is refused without a reason");
                failed_ = true;
            } else {
                Require(reply.at(7) == expected, "a batch is refused for another reason");
            }
        }
        Require(refused || expected == NO_ERROR, "a wrong batch without a refusal");
    }

    void ExpectAnswer(uint8_t sid) {
        Listen();
        // The thread's own refusal may come first.
        while (!replies_.empty() && replies_.front()[5] == ERR_INFO_SERVICE_GID) {
            Require(replies_.front()[7] == OPEN_FILE_FAILED && (mayFail_ || failed_),
                    "a command is refused");
            failed_ = true;
            replies_.pop_front();
        }
        Require(!replies_.empty(), "a command without an answer");
        const Bytes answer = replies_.front();
        replies_.pop_front();
        Require(answer.size() == 16 && answer[1] == 2 && answer[5] == CAN_REPLAY_SERVICE_GID &&
                    answer[6] == sid,
                "an answer of another request");
    }

    void ExpectRefusal(const Bytes& request, uint8_t code) {
        Listen();
        while (!replies_.empty() && replies_.front()[7] == OPEN_FILE_FAILED) {
            Require(mayFail_ || failed_, "a failure without a reason");
            failed_ = true;
            replies_.pop_front();
        }
        Require(!replies_.empty(), "a request without an answer");
        Require(replies_.front()[7] == code && replies_.front()[9] == request[1],
                "a refusal of another request");
        replies_.pop_front();
    }

    void Send(const Bytes& section) {
        Bytes frame(serviceLenToMsgLen(static_cast<uint32_t>(section.size())));
        for (size_t i = 0; i < 4; ++i) {
            frame[1 + i] = static_cast<uint8_t>(section.size() >> 8 * i);
        }
        std::copy(section.begin(), section.end(), frame.begin() + kFrameServiceOffset);
        usb_.HostWrite(frame);
        service_->HandleReadEvent();
    }

    void Listen() {
        while (auto message = usb_.HostRead()) {
            Require(message->size() == serviceLenToMsgLen(UcharToUint(message->data() + 1)),
                    "a message whose length is wrong");
            if (message->at(5) == CAN_REPLAY_SERVICE_GID &&
                message->at(6) == UPLOAD_REPLAY_SIGNAL_SID) {
                Require(message->at(1) == 2, "a ready signal of another length");
            } else if (message->at(6) == kEndMessage) {
                Require(message->at(1) == 3 && message->at(7) == REPLAY_FINISH_SID,
                        "another end message");
                Require(finishes_ > 0, "an end message without a finish");
                --finishes_;
                ++ends_;
            } else {
                replies_.push_back(std::move(*message));
            }
        }
        for (const auto& socket : sockets_) {
            socket->Frames();
        }
        CheckWritten();
    }

    // After a failure frames may be left out, up to the next cancel; never doubled or changed.
    void CheckWritten() {
        const bool dropped = failed_ || mayFail_;
        for (const Queued& frame : written_.Take()) {
            const auto matches = [&frame](const Queued& queued) {
                return queued.channel == frame.channel && queued.bytes == frame.bytes;
            };
            // Channels that there are not have no socket that could note the frame.
            while (!queued_.empty() && (queued_.front().channel >= kCanChannels ||
                                        (dropped && !matches(queued_.front())))) {
                queued_.pop_front();
            }
            Require(!queued_.empty() && matches(queued_.front()), "a frame that is not next");
            queued_.pop_front();
        }
    }

    // Everything goes out and the replay ends, unless a long interval stands in the way, or one of
    // no timer.
    void ExpectTheRest() {
        const auto deadline = Clock::now() + kPatience;
        while (!failed_) {
            Listen();
            bool more = false;
            for (const Queued& frame : queued_) {
                if (frame.interval > kLongest) {
                    return;
                }
                more |= frame.channel < kCanChannels;
            }
            if (!more && (ends_ > 0 || mayFail_)) { // a failure forgets the finish
                return;
            }
            Require(Clock::now() < deadline, more ? "a frame is never written" : "no end message");
            std::this_thread::yield();
        }
    }

    MemoryUsb& usb_ = MemoryUsb::Instance();
    Written written_;
    std::vector<std::shared_ptr<NotingSockets>> sockets_;
    std::deque<Queued> queued_;
    std::deque<Bytes> replies_;
    // Since the last cancel: the replay has failed; an interval that no timer takes was queued.
    bool failed_ = false;
    bool mayFail_ = false;
    int finishes_ = 0; // since the last cancel, less the ends
    int ends_ = 0;
    TimerSettings settings_;
    std::optional<VciCanReplayService> service_;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // What the program tells the console would drown the fuzzer's own words.
    return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    std::make_unique<Replay>()->Run(data);
    return 0;
}
