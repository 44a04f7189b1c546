#include "net/PacketMerger.h"

#include "base/ZephEventLoop.h"
#include "drivers/DevTimestamp.h"

#include <utility>

namespace {

constexpr double kNanosecondsPerSecond = 1e9;

} // namespace

PacketMerger::PacketMerger(ZephEventLoop* loop, int channelCount, uint64_t threshold,
                           Callback callback)
    : loop_(loop),
      threshold_(threshold),
      callback_(std::move(callback)),
      packetBuckets_(channelCount) {}

void PacketMerger::Push(std::shared_ptr<Packet> packet) {
    loop_->queueInLoop([weak = std::weak_ptr(self_), packet = std::move(packet)]() mutable {
        if (const auto self = weak.lock()) {
            (*self)->Take(std::move(packet));
        }
    });
}

void PacketMerger::SetThreshold(uint64_t threshold) {
    loop_->queueInLoop([weak = std::weak_ptr(self_), threshold] {
        if (const auto self = weak.lock()) {
            (*self)->threshold_ = threshold;
        }
    });
}

void PacketMerger::Take(std::shared_ptr<Packet> packet) {
    if (!packetBuckets_.Push(std::move(packet))) {
        return;
    }
    isEmpty_ = false;
    if (!taskQueued_) {
        ArmTimer();
    }
}

void PacketMerger::ArmTimer() {
    taskQueued_ = true;
    loop_->runAfter(static_cast<double>(threshold_) / kNanosecondsPerSecond,
                    [weak = std::weak_ptr(self_)] {
                        if (const auto self = weak.lock()) {
                            (*self)->Consump();
                        }
                    });
}

void PacketMerger::Consump() {
    // One boundary for the whole run: what arrives during the callbacks waits for the next. In the
    // first `threshold_` of the device time it wraps, and everything counts as ripe.
    const uint64_t boundary = Drivers::DevTimestamp::GetInstance()->GetTimestamp() - threshold_;
    isEmpty_ = packetBuckets_.Drain(boundary, callback_);
    taskQueued_ = false;
    if (!isEmpty_) {
        ArmTimer();
    }
}
