#pragma once

#include "doubles/CanSockets.h"
#include "drivers/CanManage.h"
#include "net/BcmMessage.h"
#include "net/CanSend.h"
#include "support/BoardTest.h"

#include <algorithm>
#include <cstring>

// A CanSend whose sockets end in the test, at 500 kbit/s and 2 Mbit/s on all channels, and the
// words of its requests and messages.

using Drivers::CanManage;

constexpr uint8_t kRemote = 0x20; // and the bit rate switch of an FD frame
constexpr uint8_t kFd = 0x40;
constexpr uint32_t kExtended = 0x80000000;
constexpr canid_t kRtr = CAN_RTR_FLAG;

// A message to the broadcast manager, as far as the tests ask.
struct Told {
    uint32_t opcode;
    uint32_t flags;
    canid_t id;
    size_t size = 72;

    bool operator==(const Told&) const = default;
};

inline void PrintTo(const Told& told, std::ostream* out) {
    *out << "opcode " << told.opcode << " flags " << told.flags << " id " << std::hex << told.id
         << std::dec << " size " << told.size;
}

class CanSendTest : public BoardTest {
  protected:
    CanSendTest() {
        board.SetCounter(100000000); // 1 s
        for (size_t ch = 0; ch < 6; ++ch) {
            CanManage::BaudRate_[ch] = 500000;
            CanManage::DataBaudRate_[ch] = 2000000;
        }
    }

    static void Put(Bytes& to, uint64_t value, int size) {
        for (int i = 0; i < size; ++i) {
            to.push_back(static_cast<uint8_t>(value >> 8 * i));
        }
    }

    static Bytes Entry(uint32_t id, uint16_t periodMs, uint8_t flags, const Bytes& data = {}) {
        Bytes entry;
        Put(entry, id, 4);
        Put(entry, periodMs, 2);
        entry.push_back(flags);
        entry.insert(entry.end(), data.begin(), data.end());
        return entry;
    }

    // The same without a period: of a burst, and of a single request.
    static Bytes Frame(uint32_t id, uint8_t flags, const Bytes& data = {}) {
        Bytes entry = Entry(id, 0, flags, data);
        entry.erase(entry.begin() + 4, entry.begin() + 6);
        return entry;
    }

    static Bytes Request(uint8_t ch, const std::vector<Bytes>& entries) {
        Bytes request{22, 0, static_cast<uint8_t>(ch + 8), static_cast<uint8_t>(entries.size())};
        for (const Bytes& entry : entries) {
            request.insert(request.end(), entry.begin(), entry.end());
        }
        return request;
    }

    void Periodic(uint8_t ch, const std::vector<Bytes>& entries) {
        send.SetPeriodicSendTask(Request(ch, entries));
    }

    static net::BcmHead Head(const CanSockets::Message& message) {
        net::BcmHead head{};
        std::memcpy(&head, message.data(), sizeof(head));
        return head;
    }

    std::vector<Told> Messages(size_t ch = 0) {
        std::vector<Told> told;
        for (const auto& message : channels.at(ch)->Periodic()) {
            const auto head = Head(message);
            told.push_back({head.opcode, head.flags, head.can_id, message.size()});
        }
        return told;
    }

    static can_frame FrameOf(const CanSockets::Message& message) {
        can_frame frame{};
        std::memcpy(&frame, message.data() + sizeof(net::BcmHead), sizeof(frame));
        return frame;
    }

    static uint64_t FirstDelayUs(const CanSockets::Message& message) {
        const auto head = Head(message);
        return static_cast<uint64_t>(head.ival1.tv_sec) * 1000000 +
               static_cast<uint64_t>(head.ival1.tv_usec);
    }

    net::ZephCanComM sockets;
    std::array<std::shared_ptr<CanSockets>, 6> channels = CanSockets::Replace(sockets);
    net::CanSend send{nullptr, sockets};
};

inline const Bytes kEight{1, 2, 3, 4, 5, 6, 7, 8};
