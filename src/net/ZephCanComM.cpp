#include "net/ZephCanComM.h"

#include "utils/Console.h"

#include <utility>

namespace net {

namespace {

constexpr int kBadType = -0xF001;
constexpr int kBadChannel = -0xF004;
constexpr int kHighestType = 1;

} // namespace

ZephCanComM& ZephCanComM::GetInstance() {
    static ZephCanComM instance;
    return instance;
}

ZephCanComM::ZephCanComM() {
    for (size_t ch = 0; ch < kChannels; ++ch) {
        canCom_.push_back(std::make_shared<ZephCanCom>(static_cast<int>(ch)));
    }
}

int ZephCanComM::CanComMOpen(uint8_t ch) {
    if (ch >= kChannels) {
        PrintLine("CanComMOpen: dev channel is invalid");
        return kBadChannel;
    }
    canCom_[ch]->Open();
    const std::lock_guard lock(mutex_);
    canNetStatus_[ch] = 1;
    return 0;
}

int ZephCanComM::WriteCallback(uint8_t ch, void* frame, int type, int protocol, int extend) {
    if (ch >= kChannels) {
        return kBadChannel;
    }
    if (type > kHighestType) {
        return kBadType;
    }
    return canCom_[ch]->Write(frame, type, protocol, extend);
}

int ZephCanComM::CloseCallback(uint8_t ch, int mode) {
    if (ch >= kChannels) {
        return kBadChannel;
    }
    const std::lock_guard lock(mutex_);
    canNetStatus_[ch] = 0;
    return canCom_[ch]->CloseAll(mode);
}

int ZephCanComM::GetComNetStatus(uint8_t ch) const {
    return ch < kChannels ? canNetStatus_[ch].load() : kBadChannel;
}

int ZephCanComM::GetFd2(uint8_t ch) const {
    return ch < kChannels ? canCom_[ch]->getfd2() : -1;
}

void ZephCanComM::ReplaceChannel(uint8_t ch, std::shared_ptr<ZephCanCom> com) {
    canCom_.at(ch) = std::move(com);
}

} // namespace net
