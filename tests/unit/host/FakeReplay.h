#pragma once

#include "host/FakeDevice.h"
#include "vcihost/CanRequest.h"
#include "vcihost/Frame.h"
#include "vcihost/ReplayRequest.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <memory>

// A device that plays: a ring of 511 frames, from which it sends, as fast as it is asked, all but
// `keep` frames, and records what it has sent at the time when it was due.
struct FakeReplay {
    size_t keep = 0;         // frames that stay in the ring until the finish
    bool late = false;       // asks for more behind the next answer, not before it
    uint64_t off = 0;        // every frame comes so many nanoseconds later than the one before
    size_t lost = SIZE_MAX;  // this frame is not sent
    std::string refuse = {}; // service and code of a refusal: "1201 0c"
    bool mute = false;       // never asks for more, and never ends

    // What it has seen.
    std::atomic<size_t> most{0}; // frames in the ring
    std::atomic<size_t> sent{0};

    using Bytes = vcihost::Bytes;

    static FakeDevice::Answers Answers(const std::shared_ptr<FakeReplay>& replay) {
        return [replay](const Bytes& packet) { return replay->Answer(packet); };
    }

    std::vector<Bytes> Answer(const Bytes& packet) {
        out_.clear();
        const auto request = vcihost::ParseRequest(packet);
        const Bytes service{request->gid, request->sid};
        if (!refuse.empty() && service == vcihost::ParseHex(refuse.substr(0, 4))) {
            Refuse(*request, vcihost::ParseHex(refuse.substr(5))[0]);
        } else if (request->gid != 18) {
            Say("time", service);
            if (asks_) {
                Ready();
            }
        } else if (request->sid == vcihost::kReplayDataSid) {
            Take(*request);
        } else {
            Say("", service);
            if (request->sid == vcihost::kReplayCancelSid) {
                ring_.clear();
            } else if (request->sid == vcihost::kReplayFinishSid && !mute) {
                Drain(0);
                out_.push_back(vcihost::BuildFrame(vcihost::ParseHex("128003")));
            }
        }
        return out_;
    }

  private:
    struct Entry {
        Bytes record;
        uint64_t interval;
    };

    void Say(const std::string& payload, Bytes service) {
        service.resize(service.size() + (payload.empty() ? 0 : 8));
        out_.push_back(vcihost::BuildFrame(service));
    }

    void Refuse(const vcihost::Request& request, uint8_t code) {
        const auto handle = static_cast<uint8_t>(request.handle);
        out_.push_back(vcihost::BuildFrame(Bytes{104, 2, code, request.gid, request.sid}));
        out_.back()[10] = handle;
    }

    void Ready() {
        asks_ = false;
        out_.push_back(vcihost::BuildFrame(vcihost::ParseHex("1202")));
    }

    void Take(const vcihost::Request& request) {
        WireReader reader(request.payload);
        const uint16_t count = reader.U16();
        for (unsigned i = 0; i < count; ++i) {
            const uint8_t channel = reader.U8();
            const uint64_t interval = reader.U32();
            const auto frame = vcihost::ReadCanFrame(reader);
            Bytes record{9, 25, static_cast<uint8_t>(channel + 8)};
            record.resize(3 + 4 + 8);
            const uint32_t bit = frame.extended ? 0x80000000 : 0;
            WireWriter(std::span(record).subspan(3)).U32(frame.id | bit);
            record.push_back(static_cast<uint8_t>((frame.fd ? 0x40 : 0) |
                                                  (frame.brs || frame.remote ? 0x20 : 0) |
                                                  vcihost::DlcOfLength(frame.Length()).value()));
            record.insert(record.end(), frame.data.begin(), frame.data.end());
            record.resize(record.size() + (frame.remote ? frame.requested : 0));
            ring_.push_back({record, interval});
        }
        most = std::max(most.load(), ring_.size());
        if (ring_.size() > 511) {
            Refuse(request, 42);
            return;
        }
        if (mute) {
            return;
        }
        if (ring_.size() < 256) {
            Ready(); // with the batch; and once more below
        }
        Drain(keep);
        asks_ = ring_.size() < 256;
        if (asks_ && !late) {
            Ready();
        }
    }

    void Drain(size_t left) {
        while (ring_.size() > left) {
            Entry entry = ring_.front();
            ring_.pop_front();
            time_ += entry.interval * 1000 + off;
            WireWriter(std::span(entry.record).subspan(7)).U64(time_);
            if (sent++ != lost) {
                out_.push_back(vcihost::BuildFrame(entry.record));
            }
        }
    }

    std::deque<Entry> ring_;
    std::vector<Bytes> out_;
    uint64_t time_ = 1'000'000'000;
    bool asks_ = false;
};
