// Requests of group 6 in any order, with any bytes and counts, mixed with what the LIN driver does:
// it takes frames or refuses them, and leaves anything in its mapped array while packets of
// any form name the elements. What is answered and sent must have the form that host and kernel
// expect, and each upload is held against one that is put together here in the plainest way.

#include "base/ZephEventLoop.h"
#include "common/Config.h"
#include "common/GlobalEnums.h"
#include "doubles/LinSocket.h"
#include "doubles/MemoryBoard.h"
#include "doubles/MemoryUsb.h"
#include "drivers/LinManage.h"
#include "modules/LinRecord.h"
#include "modules/LinSchedule/LinScheduleManager.h"
#include "modules/VciLinMsgService.h"
#include "utils/UniqueFd.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

using Bytes = std::vector<uint8_t>;
using Drivers::LinManage;

constexpr int kMostSteps = 40;
constexpr size_t kDataRoom = 120; // of a request, some ten of the longest entries
constexpr size_t kElements = 100;
constexpr size_t kElementSize = 112;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "lin_requests: %s\n", what);
        std::abort();
    }
}

// The sockets of the whole program, without a bus.
std::array<std::shared_ptr<LinSocket>, 2>& Sockets() {
    static auto sockets = LinSocket::Replace(ZephLinComM::GetInstance());
    return sockets;
}

class Requests {
  public:
    Requests() {
        usb_.Reset();
        board_.Reset();
        Drivers::UsbDriver::GetInstance();
        LinManage::statusMask = 3;
        for (uint8_t ch = 0; ch < 2; ++ch) {
            schedules_.setStatus(ch, false);
            schedules_.clearTable(ch);
            schedules_.setNewTable(ch);
            schedules_.clearTable(ch);
            schedules_.clearResMsg(ch);
            auto& com = ZephLinComM::GetInstance();
            com.LinComMOpen(ch);
            sockets_[ch]->Open();
            sockets_[ch]->refuse = false;
            LinManage::chrDevFd[ch] = devices_[ch].get();
        }
    }

    ~Requests() {
        LinManage::statusMask = 0;
        for (auto& fd : LinManage::chrDevFd) {
            fd = 0; // still owned here
        }
    }
    Requests(const Requests&) = delete;
    Requests& operator=(const Requests&) = delete;

    void Run(FuzzedDataProvider& data) {
        for (int step = 0; step < kMostSteps && data.remaining_bytes() > 0; ++step) {
            Step(data);
        }
    }

  private:
    static UniqueFd Device() { return UniqueFd(memfd_create("lin-device", MFD_CLOEXEC)); }

    void Step(FuzzedDataProvider& data) {
        const auto ch = data.ConsumeIntegralInRange<uint8_t>(0, 1);
        switch (data.ConsumeIntegralInRange<int>(0, 8)) {
        case 0: // devices count as open or closed; to open one takes a kernel
            LinManage::statusMask = data.ConsumeIntegral<uint8_t>() & 3;
            break;
        case 1:
            sockets_.at(ch)->refuse = data.ConsumeBool();
            break;
        case 2: {
            lin_operation op{};
            op.data.config.bitrate = data.ConsumeIntegral<uint16_t>();
            manage_.ChannelCfg(ch, &op);
            break;
        }
        case 3: { // what a commander is told while its schedule runs
            const Bytes bytes = Eight(data);
            schedules_.setResMsg(ch, data.ConsumeIntegral<uint8_t>(),
                                 data.ConsumeIntegral<uint8_t>(), bytes.data());
            break;
        }
        case 4:
            Packet(data, ch);
            break;
        default:
            Request(data);
            break;
        }
        CheckSockets();
        for (size_t i = 0; i < 2; ++i) {
            lseek(devices_[i].get(), 0, SEEK_SET);
        }
    }

    static Bytes Eight(FuzzedDataProvider& data) {
        Bytes bytes = data.ConsumeBytes<uint8_t>(kLinDataBytes);
        bytes.resize(kLinDataBytes);
        bytes.shrink_to_fit(); // a read behind the end is seen
        return bytes;
    }

    void Request(FuzzedDataProvider& data) {
        const auto sid = data.ConsumeIntegralInRange<uint8_t>(0, 11);
        const auto ch = data.PickValueInArray<uint8_t>({0, 1, 0, 1, 2, 255});
        Bytes request{LIN_MESSAGE_SERVICE_GID, sid, ch};
        const auto rest =
            data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, kDataRoom));
        request.insert(request.end(), rest.begin(), rest.end());
        if (ch < 2 && (sid == SET_SEND_SID || sid == DISPATCH_TABLE_SID)) {
            schedules_.clearTable(ch); // so that no thread starts, which an input could not repeat
        }
        Bytes frame(serviceLenToMsgLen(static_cast<uint32_t>(request.size())));
        frame[1] = static_cast<uint8_t>(request.size());
        std::copy(request.begin(), request.end(), frame.begin() + 5);
        usb_.HostWrite(frame);
        service_.HandleReadEvent();
        const auto answer = usb_.HostRead();
        Require(answer.has_value(), "a request without an answer");
        const uint32_t n = UcharToUint(answer->data() + 1);
        Require(answer->size() == serviceLenToMsgLen(n), "an answer whose length is wrong");
        if (answer->at(5) == ERR_INFO_SERVICE_GID) {
            Require(n == 5 && answer->at(8) == request[0] && answer->at(9) == sid &&
                        NegtiveErrorCodeName(answer->at(7)) != nullptr,
                    "an unknown refusal");
        } else {
            Require(n == 2 && answer->at(5) == request[0] && answer->at(6) == sid && ch < 2,
                    "an answer of another request");
        }
        Require(!usb_.HostRead(), "a second answer");
    }

    void CheckSockets() {
        for (const auto& socket : sockets_) {
            for (const Bytes& frame : socket->Frames()) {
                Require(frame.size() == 72 && frame[4] == 40, "a frame's size");
                Require(frame[0] == frame[16] && frame[1] == 0 && frame[2] == 0 && frame[3] == 0,
                        "a frame under another identifier than its message's");
                Require(frame[8] <= FULL_DETIL && frame[12] <= 1, "a message's flags");
                const Bytes behind(frame.begin() + 48, frame.end());
                Require(behind == Bytes(24), "bytes behind a message");
                if (frame[8] == WITH_RESPONSE) {
                    const Bytes timing(frame.begin() + 28, frame.begin() + 48);
                    Require(timing == Bytes(20), "data in the timing of a response");
                }
            }
        }
    }

    void Packet(FuzzedDataProvider& data, uint8_t ch) {
        std::array<uint8_t, kElements * kElementSize> array{};
        const auto element = data.ConsumeIntegralInRange<uint8_t>(0, 110);
        const bool wakeup = data.ConsumeBool();
        Bytes detil = data.ConsumeBytes<uint8_t>(kElementSize);
        detil.resize(kElementSize);
        if (wakeup) {
            const Bytes marker{100, 0, 0, 0};
            std::copy(marker.begin(), marker.end(), detil.begin());
        }
        if (element < kElements) {
            std::copy(detil.begin(), detil.end(), array.begin() + element * kElementSize);
        }
        Bytes packet(data.ConsumeIntegralInRange<size_t>(0, 40));
        packet.shrink_to_fit(); // a read behind the end is seen
        if (packet.size() > 34) {
            packet[34] = element;
        }
        if (packet.size() > 35) {
            packet[35] = data.ConsumeIntegral<uint8_t>();
        }
        // In memory of its own length, so that a read behind it is seen.
        auto* const map = static_cast<lin_rx_detil*>(::operator new(array.size()));
        std::memcpy(map, array.data(), array.size());
        LinManage::mappedMemory.at(ch) = map;
        pcap_pkthdr header{};
        header.caplen = static_cast<bpf_u_int32>(packet.size());
        wakeups_ = 0;
        record_.LinPacketCooked(&header, packet.data(), ch);
        LinManage::mappedMemory.at(ch) = nullptr;
        ::operator delete(map);

        const auto upload = usb_.HostRead();
        const bool expected = packet.size() >= 36 && element < kElements;
        Require(upload.has_value() == expected, "a record of nothing, or none");
        if (expected) {
            const bool woken = UcharToUint(detil.data()) == 100;
            Require(wakeups_ == (woken ? 1 : 0), "a wake-up that was none, or was not told");
            Require(*upload == (woken ? Wakeup(detil, ch) : Frame(detil, ch, packet[35])),
                    "another record than the array holds");
        }
        Require(!usb_.HostRead(), "a second record");
    }

    static Bytes Wakeup(const Bytes& detil, uint8_t ch) {
        Bytes record{0, 19, 0, 0, 0, 9, 27, ch};
        record.insert(record.end(), detil.begin() + 16, detil.begin() + 32);
        record.resize(32);
        return record;
    }

    static Bytes Frame(const Bytes& detil, uint8_t ch, uint8_t direction) {
        Bytes record{0, 103, 0, 0, 0, 9, 26, ch, detil[8]};
        record.insert(record.end(), detil.begin() + 16, detil.begin() + 32);
        record.push_back(UcharToUint(detil.data() + 4) != 0 ? 3 : 2);
        record.insert(record.end(), {detil[4], detil[5], direction, detil[9]});
        record.insert(record.end(), detil.begin() + 32, detil.begin() + 40);
        record.insert(record.end(), {detil[11], detil[10]});
        record.insert(record.end(), detil.begin() + 40, detil.begin() + 108);
        record.resize(116);
        return record;
    }

    MemoryUsb& usb_ = MemoryUsb::Instance();
    MemoryBoard& board_ = MemoryBoard::Instance();
    LinManage& manage_ = LinManage::GetInstance("/dev/null/LIN");
    LinScheduleManager& schedules_ = LinScheduleManager::GetInstance();
    std::array<std::shared_ptr<LinSocket>, 2>& sockets_ = Sockets();
    std::array<UniqueFd, 2> devices_{Device(), Device()};
    ZephEventLoop loop_;
    VciLinMsgService service_{&loop_};
    int wakeups_ = 0;
    LinRecord record_{[this](int) { ++wakeups_; }};
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // What the program tells its console would drown the fuzzer's own words; those go elsewhere.
    return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    Requests().Run(data);
    return 0;
}
