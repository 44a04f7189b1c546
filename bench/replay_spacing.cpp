// How well the CAN replay keeps the spacing of a trace, for bench/replay-spacing: the service with
// its real-time thread, a host that sends the next batch when it is asked to, and sockets that lead
// nowhere and note when a frame is written.
//
//   replay_spacing spacing INTERVAL FRAMES   the error of each interval, in microseconds
//   replay_spacing rate FRAMES               the mean interval that comes out, by what was asked
//   replay_spacing percentiles               reads numbers, one a line, and prints the same figures

#include "common/Config.h"
#include "doubles/CanSockets.h"
#include "doubles/MemoryBoard.h"
#include "doubles/MemoryUsb.h"
#include "modules/VciCanReplayService.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;
using Times = std::vector<Clock::time_point>;

constexpr uint32_t kBatch = 250;
constexpr uint8_t kEndMessage = 128;
constexpr uint8_t kClassic8 = 8; // flags: DLC code

// When a frame is written, of all channels in one row, on the one thread that writes.
struct WriteTimes {
    Times times;
    std::atomic<size_t> count{0};
};

class TimedSockets : public CanSockets {
  public:
    TimedSockets(int index, WriteTimes& times) : CanSockets(index), times_(times) {}
    int Write(void* frame, int type, int protocol, int extend) override {
        const size_t at = times_.count.load(std::memory_order_relaxed);
        times_.times[at] = Clock::now();
        const int result = CanSockets::Write(frame, type, protocol, extend);
        times_.count.store(at + 1, std::memory_order_release);
        return result;
    }

  private:
    WriteTimes& times_;
};

class Host {
  public:
    Host() { Drivers::CanManage::statusMask_ = 0x3F; }

    // Plays `frames` frames, one every `interval` microseconds, dealt out to `channels` channels.
    // When each was written.
    Times Play(uint32_t frames, uint32_t interval, uint8_t channels) {
        WriteTimes written;
        written.times.resize(frames);
        std::vector<std::shared_ptr<TimedSockets>> sockets;
        for (uint8_t ch = 0; ch < channels; ++ch) {
            sockets.push_back(std::make_shared<TimedSockets>(ch, written));
            sockets.back()->Open();
            net::ZephCanComM::GetInstance().ReplaceChannel(ch, sockets.back());
        }
        VciCanReplayService service(nullptr);
        uint32_t downloaded = 0;
        bool ended = false;
        bool asked = true;
        bool finished = false;
        while (!ended) {
            // The small batches at the end are answered by more than one signal.
            const auto left = downloaded - static_cast<uint32_t>(written.count.load());
            if (asked && downloaded < frames && left < kBatch) {
                asked = false;
                const uint32_t count = std::min(kBatch, frames - downloaded);
                Send(service, Batch(downloaded, count, interval, channels));
                downloaded += count;
            } else if (downloaded == frames && !finished) {
                finished = true;
                Send(service, {CAN_REPLAY_SERVICE_GID, REPLAY_FINISH_SID});
            }
            while (const auto message = usb_.HostRead()) {
                if (message->at(5) == ERR_INFO_SERVICE_GID) {
                    std::fprintf(stderr, "replay_spacing: refused with code %d\n", message->at(7));
                    std::exit(1);
                }
                asked |= message->at(6) == UPLOAD_REPLAY_SIGNAL_SID;
                ended |= message->at(6) == kEndMessage;
            }
            for (const auto& socket : sockets) {
                socket->Frames();
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        if (written.count != frames) {
            std::fprintf(stderr, "replay_spacing: %zu of %u frames were written\n",
                         written.count.load(), frames);
            std::exit(1);
        }
        return written.times;
    }

  private:
    void Send(VciCanReplayService& service, const Bytes& section) {
        Bytes frame(serviceLenToMsgLen(static_cast<uint32_t>(section.size())));
        for (size_t i = 0; i < 4; ++i) {
            frame[1 + i] = static_cast<uint8_t>(section.size() >> 8 * i);
        }
        std::copy(section.begin(), section.end(), frame.begin() + kFrameServiceOffset);
        usb_.HostWrite(frame);
        service.HandleReadEvent();
    }

    static Bytes Batch(uint32_t first, uint32_t count, uint32_t interval, uint8_t channels) {
        Bytes batch{CAN_REPLAY_SERVICE_GID, DOWNLOAD_REPLAY_DATA_SID, static_cast<uint8_t>(count),
                    static_cast<uint8_t>(count >> 8)};
        for (uint32_t i = 0; i < count; ++i) {
            Bytes frame(18, 0x5A);
            frame[0] = static_cast<uint8_t>((first + i) % channels);
            for (size_t byte = 0; byte < 4; ++byte) {
                frame[1 + byte] = static_cast<uint8_t>(interval >> 8 * byte);
                frame[5 + byte] = 0;
            }
            frame[9] = kClassic8;
            batch.insert(batch.end(), frame.begin(), frame.end());
        }
        return batch;
    }

    MemoryBoard& board_ = MemoryBoard::Instance();
    MemoryUsb& usb_ = MemoryUsb::Instance();
};

double Microseconds(Clock::duration time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

void PrintPercentiles(std::vector<double> values) {
    if (values.empty()) {
        std::printf("not measured\n");
        return;
    }
    std::sort(values.begin(), values.end());
    const auto at = [&](double share) {
        return values[static_cast<size_t>(share * static_cast<double>(values.size() - 1))];
    };
    std::printf("median %8.1f   p99 %8.1f   max %8.1f us   (%zu)\n", at(0.5), at(0.99),
                values.back(), values.size());
}

void PrintSpacing(uint32_t interval, uint32_t frames) {
    const Times times = Host().Play(frames, interval, 1);
    std::vector<double> errors;
    for (size_t i = 1; i < times.size(); ++i) {
        errors.push_back(std::abs(Microseconds(times[i] - times[i - 1]) - interval));
    }
    PrintPercentiles(errors);
}

void PrintRates(uint32_t frames) {
    std::printf("  %-12s %30s %30s\n", "interval", "one channel", "six channels");
    for (const uint32_t interval : {1000U, 500U, 200U, 150U, 120U, 101U, 100U, 50U, 20U, 0U}) {
        // Printed when the row is whole: the service has lines of its own.
        std::string row;
        for (const uint8_t channels : {uint8_t{1}, uint8_t{6}}) {
            const Times times = Host().Play(frames, interval, channels);
            const double mean = Microseconds(times.back() - times.front()) / (frames - 1);
            char text[64];
            std::snprintf(text, sizeof(text), " %9.1f us %8.0f/s %-6s", mean, 1e6 / mean,
                          mean <= interval || interval == 0 ? "" : "behind");
            row += text;
        }
        std::printf("  %9u us%s\n", interval, row.c_str());
    }
}

uint32_t Number(const char* text) {
    return static_cast<uint32_t>(std::strtoul(text, nullptr, 10));
}

} // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "percentiles" && argc == 2) {
        std::vector<double> values;
        for (double value = 0; std::cin >> value;) {
            values.push_back(value);
        }
        PrintPercentiles(values);
    } else if (what == "spacing" && argc == 4 && Number(argv[3]) > 1) {
        PrintSpacing(Number(argv[2]), Number(argv[3]));
    } else if (what == "rate" && argc == 3 && Number(argv[2]) > 1) {
        PrintRates(Number(argv[2]));
    } else {
        std::fprintf(stderr,
                     "usage: replay_spacing spacing INTERVAL FRAMES | rate FRAMES | percentiles\n");
        return 2;
    }
    return 0;
}
