// The road of a captured packet, from the capture's filter to the record in the write ring. The
// input is a program: packets of any bytes and lengths, most of them with the shape of a CAN frame
// or an error notice, mixed with switches of the monitored interfaces, what the driver writes to
// the error rings, channels that listen, and a host that reads or does not. Each record is held
// against one that is put together here in the plainest way.

#include "common/Config.h"
#include "doubles/MemoryBoard.h"
#include "doubles/MemoryUsb.h"
#include "drivers/CanManage.h"
#include "drivers/UsbDriver.h"
#include "modules/CanRecord.h"
#include "net/PacketCapture.h"
#include "utils/UniqueFd.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <fuzzer/FuzzedDataProvider.h>

namespace {

using Bytes = std::vector<uint8_t>;
using Records = std::vector<Bytes>;

constexpr int kMostSteps = 64;
constexpr size_t kRingBytes = 24576;
constexpr size_t kSlotSize = 88;
constexpr uint32_t kWriteRing = 0x1000000;
constexpr uint64_t kLastTime = 40'000'000'000'000'000;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "captured_packets: %s\n", what);
        std::abort();
    }
}

// The error rings of six channels, in memory that the program maps as it maps the driver's.
class DriverRings {
  public:
    DriverRings() {
        for (size_t channel = 0; channel < fds_.size(); ++channel) {
            fds_[channel].reset(memfd_create("error-ring", MFD_CLOEXEC));
            Require(ftruncate(fds_[channel].get(), kRingBytes) == 0, "no memory for a ring");
            Require(mapped[channel].Open("/proc/self/fd/" + std::to_string(fds_[channel].get())),
                    "a ring cannot be mapped");
        }
    }

    void Write(size_t channel, size_t slot, const Bytes& bytes) {
        Require(pwrite(fds_[channel].get(), bytes.data(), bytes.size(),
                       static_cast<off_t>(slot * kSlotSize)) == static_cast<ssize_t>(bytes.size()),
                "a ring cannot be written");
    }

    // Back to what the driver starts with, so that an input finds the same rings each time.
    void Clear() {
        const Bytes zeros(kRingBytes);
        for (size_t channel = 0; channel < fds_.size(); ++channel) {
            Require(pwrite(fds_[channel].get(), zeros.data(), zeros.size(), 0) ==
                        static_cast<ssize_t>(zeros.size()),
                    "a ring cannot be cleared");
        }
    }

    Bytes Slot(size_t channel, size_t slot) const {
        Bytes bytes(kSlotSize);
        Require(pread(fds_[channel].get(), bytes.data(), kSlotSize,
                      static_cast<off_t>(slot * kSlotSize)) == kSlotSize,
                "a ring cannot be read");
        return bytes;
    }

    CanRecord::ErrorRings mapped;

  private:
    std::array<UniqueFd, 6> fds_;
};

DriverRings& Rings() {
    static DriverRings rings;
    return rings;
}

class Road {
  public:
    Road() {
        MemoryBoard::Instance().Reset();
        usb_.Reset();
        Rings().Clear();
        Drivers::UsbDriver::GetInstance();
        Drivers::CanManage::ListenstatusMask_ = 0;
        Drivers::CanManage::ListenchannelForbidden_ = 0;
        for (auto* counters : {&CanRxFrameNum, &CanTxFrameNum, &CanErrFrameNum, &CanFrameNum}) {
            for (auto& counter : *counters) {
                counter = 0;
            }
        }
        capture_.SetHandlePacketCallBack([this](const pcap_pkthdr* header, const u_char* packet,
                                                int) { record_.CanPacketCooked(header, packet); });
    }

    // The process leaves the bits to the next one when it ends.
    ~Road() { Drivers::CanManage::ListenchannelForbidden_ = 0; }
    Road(const Road&) = delete;
    Road& operator=(const Road&) = delete;

    void Run(FuzzedDataProvider& data) {
        for (int step = 0; step < kMostSteps && data.remaining_bytes() > 0; ++step) {
            Step(data);
        }
    }

  private:
    struct Counts {
        uint64_t received = 0;
        uint64_t sent = 0;
        uint64_t errors = 0;
    };

    void Step(FuzzedDataProvider& data) {
        switch (data.ConsumeIntegralInRange<int>(0, 9)) {
        case 0: {
            const int index = Index(data);
            const bool on = data.ConsumeBool();
            capture_.SetNetworkMonitor(index, on);
            if (on) {
                monitored_.insert(index);
            } else {
                monitored_.erase(index);
            }
            break;
        }
        case 1: // the driver reports an error
            Rings().Write(data.ConsumeIntegralInRange<size_t>(0, 5),
                          data.ConsumeIntegralInRange<size_t>(0, 255),
                          data.ConsumeBytes<uint8_t>(kSlotSize));
            break;
        case 2:
            Drivers::CanManage::ListenstatusMask_ = data.ConsumeIntegral<uint8_t>();
            break;
        case 3:
            Drivers::CanManage::ListenchannelForbidden_ = data.ConsumeIntegral<uint8_t>();
            break;
        case 4: // a host that has not read for long
            full_ = data.ConsumeBool();
            break;
        case 5: // bytes of no meaning
            Packet(data, data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, 300)));
            break;
        default:
            Packet(data, CanPacketBytes(data));
            break;
        }
    }

    static int Index(FuzzedDataProvider& data) {
        return data.PickValueInArray<int>({1, 2, 65, 0, -1, data.ConsumeIntegral<int>()});
    }

    static Bytes CanPacketBytes(FuzzedDataProvider& data) {
        Bytes bytes(34);
        const auto index = static_cast<uint32_t>(Index(data));
        const auto id = data.ConsumeIntegral<uint32_t>();
        for (size_t i = 0; i < 4; ++i) {
            bytes[7 - i] = static_cast<uint8_t>(index >> 8 * i);
            bytes[26 + i] = static_cast<uint8_t>(id >> 8 * i);
        }
        bytes[1] = data.PickValueInArray<uint8_t>({12, 13, 14});
        bytes[30] = data.PickValueInArray<uint8_t>(
            {0, 8, 9, 13, 64, 65, 255, data.ConsumeIntegral<uint8_t>()});
        bytes[31] = data.ConsumeIntegral<uint8_t>();
        bytes[32] = data.ConsumeIntegralInRange<uint8_t>(0, 2);
        bytes[33] = data.ConsumeIntegralInRange<uint8_t>(0, 6);
        const Bytes payload =
            data.ConsumeBytes<uint8_t>(data.ConsumeIntegralInRange<size_t>(0, 64));
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        return bytes;
    }

    void Packet(FuzzedDataProvider& data, Bytes bytes) {
        bytes.shrink_to_fit(); // a read behind the end is seen
        pcap_pkthdr header{};
        header.ts.tv_sec = data.PickValueInArray<long>(
            {0, 7, 39'999'999, 40'000'000, 40'000'001, -1, data.ConsumeIntegral<long>()});
        header.ts.tv_usec = data.ConsumeIntegralInRange<long>(0, 999'999'999);
        header.caplen = static_cast<bpf_u_int32>(bytes.size());
        header.len = header.caplen;
        const Records expected = Expect(header, bytes);
        usb_.Set(MemoryUsb::kWriteOut, usb_.Get(MemoryUsb::kWriteIn) - (full_ ? kWriteRing : 0));
        usb_.Set(MemoryUsb::kLengthOut, usb_.Get(MemoryUsb::kLengthIn));

        net::Callback(reinterpret_cast<u_char*>(&capture_), &header, bytes.data());

        Records records;
        if (!full_) {
            while (auto message = usb_.HostRead()) {
                records.push_back(std::move(*message));
            }
            Require(records == expected, "another record than the packet asks for");
        } else {
            Require(usb_.Get(MemoryUsb::kLengthOut) == usb_.Get(MemoryUsb::kLengthIn),
                    "a record in a ring without room");
        }
        for (size_t channel = 0; channel < kCanChannels; ++channel) {
            const Counts& counts = counted_[channel];
            Require(CanRxFrameNum[channel] == counts.received &&
                        CanTxFrameNum[channel] == counts.sent &&
                        CanErrFrameNum[channel] == counts.errors &&
                        CanFrameNum[channel] == counts.received + counts.sent + counts.errors,
                    "a record that was not counted, or not as what it is");
        }
    }

    // What the packet has to yield, and what it does to the state.
    Records Expect(const pcap_pkthdr& header, const Bytes& bytes) {
        if (bytes.size() < 34 || bytes[33] > 5) {
            return {};
        }
        const int index = static_cast<int>(uint32_t{bytes[4]} << 24 | uint32_t{bytes[5]} << 16 |
                                           uint32_t{bytes[6]} << 8 | uint32_t{bytes[7]});
        if (monitored_.count(index) == 0) {
            return {};
        }
        if ((bytes[29] & 0x20) != 0) {
            if (bytes.size() < 36) {
                return {};
            }
            counted_[bytes[33]].errors += bytes[35];
            return ExpectErrors(bytes);
        }
        const auto seconds = static_cast<uint64_t>(header.ts.tv_sec);
        const uint64_t ns = seconds * 1'000'000'000 + static_cast<uint64_t>(header.ts.tv_usec);
        if (seconds > 40'000'000 || ns > kLastTime) {
            return {};
        }
        const int bit = 1 << bytes[33];
        if (!heldBack_ && (Drivers::CanManage::ListenchannelForbidden_ & bit) != 0) {
            heldBack_ = true;
            return {};
        }
        Counts& counts = counted_[bytes[33]];
        ++(bytes[32] == 1 ? counts.received : counts.sent);
        return {ExpectFrame(bytes, ns)};
    }

    static Bytes ExpectFrame(const Bytes& bytes, uint64_t ns) {
        static const std::map<int, int> kDlcs{{12, 9},  {16, 10}, {20, 11}, {24, 12},
                                              {32, 13}, {48, 14}, {64, 15}};
        size_t length = bytes[30];
        const auto longer = kDlcs.find(bytes[30]);
        const int dlc = length <= 8 ? bytes[30] : longer != kDlcs.end() ? longer->second : 0;
        const bool classic = bytes[1] == 12;
        const bool fd = bytes[1] == 13;
        if (classic) {
            length = std::min<size_t>(length, 8);
        }
        Bytes record(serviceLenToMsgLen(static_cast<uint32_t>(length) + 16));
        record[1] = static_cast<uint8_t>(length + 16);
        record[2] = static_cast<uint8_t>((length + 16) >> 8);
        record[5] = 9;
        record[6] = 25;
        record[7] = static_cast<uint8_t>(bytes[33] + 8);
        std::copy(bytes.begin() + 26, bytes.begin() + 30, record.begin() + 8);
        for (size_t i = 0; i < 8; ++i) {
            record[12 + i] = static_cast<uint8_t>(ns >> 8 * i);
        }
        int flags = dlc | (bytes[32] == 1 ? 0x80 : 0);
        if (classic && (bytes[29] & 0x40) != 0) {
            flags |= 0x20;
            record[11] = static_cast<uint8_t>(record[11] & 0xBF);
        }
        if (fd) {
            flags |= 0x40 | ((bytes[31] & 1) != 0 ? 0x20 : 0) | ((bytes[31] & 2) != 0 ? 0x10 : 0);
        }
        record[20] = static_cast<uint8_t>(flags);
        const size_t captured = std::min(length, bytes.size() - 34);
        std::copy_n(bytes.begin() + 34, captured, record.begin() + 21);
        return record;
    }

    static Records ExpectErrors(const Bytes& bytes) {
        const bool listens = (Drivers::CanManage::ListenstatusMask_ >> bytes[33] & 1) != 0;
        Records records;
        for (size_t i = 0; i < bytes[35]; ++i) {
            const Bytes slot = Rings().Slot(bytes[33], (bytes[34] + i) % 256);
            const size_t length = slot[23];
            Bytes record(serviceLenToMsgLen(static_cast<uint32_t>(length) + 20));
            record[1] = static_cast<uint8_t>(length + 20);
            record[2] = static_cast<uint8_t>((length + 20) >> 8);
            record[5] = 104;
            record[6] = 6;
            std::copy_n(slot.begin(), 8, record.begin() + 7);
            record[15] = static_cast<uint8_t>(bytes[33] + 8);
            record[16] = listens && slot[9] == 0 ? 7 : slot[9];
            std::copy_n(slot.begin() + 10, 2, record.begin() + 17);
            record[19] = slot[16];
            std::copy_n(slot.begin() + 12, 4, record.begin() + 20);
            const int direction = listens ? 1 : slot[18];
            record[24] = static_cast<uint8_t>(direction << 7 | slot[17] << 6 | slot[19] << 5 |
                                              slot[21] << 4 | slot[20]);
            std::copy_n(slot.begin() + 24, std::min<size_t>(length, 64), record.begin() + 25);
            records.push_back(std::move(record));
        }
        return records;
    }

    MemoryUsb& usb_ = MemoryUsb::Instance();
    net::PacketCapture capture_{static_cast<pcap_t*>(nullptr)};
    CanRecord record_{Drivers::CanManage::GetInstance(), Rings().mapped};
    std::set<int> monitored_;
    bool full_ = false;
    bool heldBack_ = false;
    std::array<Counts, kCanChannels> counted_{};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    Road().Run(data);
    return 0;
}
