#pragma once

#include "support/BoardTest.h"

#include <algorithm>

// A test of one service: asks it over the USB link, and knows the answers that services have in
// common. The device time stands at 10,000 ns.
class ServiceTest : public BoardTest {
  protected:
    static constexpr uint32_t kHandle = 0x11223344;

    ServiceTest() { board.SetCounter(1000); }

    // Hands a request to the service, which may answer or not.
    template <typename Service> void Send(Service& service, const Bytes& request) {
        usb.HostWrite(Frame(request, kHandle));
        service.HandleReadEvent();
    }

    template <typename Service> Bytes Ask(Service& service, const Bytes& request) {
        Send(service, request);
        return Answer();
    }

    // The answer of gid and sid, and with the device time. Behind it the tail means nothing.
    static void ExpectShort(const Bytes& answer, uint8_t gid, uint8_t sid) {
        EXPECT_EQ(answer.size(), 16U);
        EXPECT_EQ(Head(answer, 7), (Bytes{0, 2, 0, 0, 0, gid, sid}));
    }
    static void ExpectTime(const Bytes& answer, uint8_t gid, uint8_t sid) {
        EXPECT_EQ(answer.size(), 24U);
        EXPECT_EQ(Head(answer, 15),
                  (Bytes{0, 10, 0, 0, 0, gid, sid, 0x10, 0x27, 0, 0, 0, 0, 0, 0}));
    }

    static void ExpectRefusal(const Bytes& answer, uint8_t code, uint8_t gid, uint8_t sid) {
        EXPECT_EQ(answer.size(), 16U);
        EXPECT_EQ(Head(answer, 14),
                  (Bytes{0, 5, 0, 0, 0, 104, 2, code, gid, sid, 0x44, 0x33, 0x22, 0x11}));
    }

    static Bytes Head(Bytes answer, size_t length) {
        answer.resize(std::min(answer.size(), length));
        return answer;
    }
};
