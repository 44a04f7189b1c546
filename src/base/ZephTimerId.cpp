#include "base/ZephTimerId.h"

#include "base/ZephTimerQueue.h"

#include <utility>

void ZephTimerId::ResetCallback(std::function<void()> cb) const {
    if (queue_ != nullptr) {
        queue_->resetCallback(*this, std::move(cb));
    }
}

void ZephTimerId::SetInterval(double interval) const {
    if (queue_ != nullptr) {
        queue_->setInterval(*this, interval);
    }
}
