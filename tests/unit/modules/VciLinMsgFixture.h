#pragma once

#include "modules/LinFixture.h"
#include "modules/VciLinMsgService.h"

// Reasons of refusals.
inline constexpr uint8_t kLength = 10;
inline constexpr uint8_t kOutOfRange = 11;
inline constexpr uint8_t kWrongSequence = 12;
inline constexpr uint8_t kChannelState = 19;
inline constexpr uint8_t kSendFail = 21;
inline constexpr uint8_t kUpdateConfig = 54;

// The service of group 6 over the device of LinTest.
class VciLinMsgServiceTest : public LinTest {
  protected:
    Bytes Ask(const Bytes& request) { return ServiceTest::Ask(service, request); }

    void ExpectDone(const Bytes& request) { ExpectShort(Ask(request), 6, request[1]); }
    void ExpectRefused(const Bytes& request, uint8_t code) {
        ExpectRefusal(Ask(request), code, 6, request[1]);
    }
    // Refused with a text on the console.
    void ExpectRefused(const Bytes& request, uint8_t code, const std::string& text) {
        Bytes answer;
        EXPECT_EQ(Told([&] { answer = Ask(request); }), text + "\n");
        ExpectRefusal(answer, code, 6, request[1]);
    }

    void BeCommander(uint8_t ch) { lin.schedules.setStatus(ch, true); }

    // The payload of the only frame that was sent: its message of 40 bytes.
    Bytes Message(uint8_t ch, uint8_t pid) const {
        const auto frames = Frames(ch);
        EXPECT_EQ(frames.size(), 1U);
        if (frames.size() != 1) {
            return {};
        }
        const auto& frame = frames[0];
        EXPECT_EQ(frame.size(), 72U);
        EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 8), (Bytes{pid, 0, 0, 0, 40, 0, 0, 0}));
        EXPECT_EQ(Bytes(frame.begin() + 48, frame.end()), Bytes(24));
        return {frame.begin() + 8, frame.begin() + 48};
    }

    static Bytes Record(Bytes head) {
        head.resize(128);
        return head;
    }

    // The record that the character device was handed as it stood.
    Bytes Handed(int ch) const { return lin.files.Read(ch, 0, 128); }

    ZephEventLoop loop;
    VciLinMsgService service{&loop};
};
