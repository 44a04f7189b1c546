#include "modules/LinSchedule/LinScheduleManager.h"

#include "utils/Console.h"

#include <algorithm>
#include <string>
#include <utility>

namespace {

constexpr uint32_t kMicrosecondsPerMillisecond = 1000;
constexpr int kNoResponse = -1;

} // namespace

LinScheduleManager& LinScheduleManager::GetInstance() {
    static LinScheduleManager instance;
    return instance;
}

LinScheduleManager::LinScheduleManager()
    : isMaster_(kLinChannels), resMsg(kLinChannels), resMsg_Map(kLinChannels) {
    for (int ch = 0; ch < kLinChannels; ++ch) {
        executor.push_back(std::make_shared<LinExecutor>(ch));
        currentTable_.push_back(std::make_shared<LinTable>(ch));
        standbyTable_.push_back(std::make_shared<LinTable>(ch));
    }
    PrintLine("LinScheduleManager has created");
}

void LinScheduleManager::startExecutor(int ch) {
    const auto& table = currentTable_[Index(ch)];
    if (!getStatus(ch) || getExecutorStatus(ch) || table->items().empty()) {
        PrintLine("LinScheduleManager::startExecutor : start failed");
        return;
    }
    executor[Index(ch)]->setTable(table);
    executor[Index(ch)]->start();
}

void LinScheduleManager::stopExecutor(int ch) {
    if (getStatus(ch) && getExecutorStatus(ch)) {
        executor[Index(ch)]->stop();
    }
}

int LinScheduleManager::setStatus(int ch, bool master) {
    if (getExecutorStatus(ch)) {
        PrintLine("LinScheduleManager::setStatus fail! executor running");
        return -1;
    }
    isMaster_[Index(ch)] = master;
    return 0;
}

int LinScheduleManager::addToStandbyTable(int ch, uint32_t delay_us, uint16_t delay_ms,
                                          const lin_tx_message* msg) {
    TableItem item;
    item.pid = msg->lin_frame.pid;
    item.dlc = msg->lin_frame.dlc;
    item.delay_us = delay_us;
    item.delay_vba = delay_ms * kMicrosecondsPerMillisecond;
    item.msg = *msg;
    if (standbyTable_[Index(ch)]->addItem(std::move(item)) < 0) {
        standbyTable_[Index(ch)]->clear();
        return -1;
    }
    return 0;
}

void LinScheduleManager::setNewTable(int ch) {
    const bool runs = getStatus(ch) && getExecutorStatus(ch);
    if (runs) {
        executor[Index(ch)]->stop();
    }
    std::swap(currentTable_[Index(ch)], standbyTable_[Index(ch)]);
    if (runs) {
        startExecutor(ch);
    }
    standbyTable_[Index(ch)]->clear(); // nobody walks it any more
}

void LinScheduleManager::clearTable(int ch) {
    if (getExecutorStatus(ch)) {
        PrintLine("LinScheduleManager::clearTable executor is running");
        return;
    }
    currentTable_[Index(ch)]->clear();
}

void LinScheduleManager::setResMsg(int ch, int pid, int length, const uint8_t* data) {
    // As long as the host says, for the length travels to the driver as it stands; what no frame
    // has is 0.
    std::vector<uint8_t> bytes(static_cast<size_t>(length));
    std::copy_n(data, std::min(bytes.size(), kLinDataBytes), bytes.begin());
    if (!resMsg[Index(ch)].insert(pid).second) {
        PrintLine("LinScheduleManager::setResMsg pid res exists, need to update data");
    }
    resMsg_Map[Index(ch)].insert_or_assign(pid, std::move(bytes));
    if (getStatus(ch) && currentTable_[Index(ch)]->hasPID(pid)) {
        currentTable_[Index(ch)]->modifyData(pid, length, data);
    }
}

void LinScheduleManager::setResMsg(int ch, int pid, lin_tx_message* msg) const {
    const auto& kept = resMsg_Map[Index(ch)];
    const auto response = kept.find(pid);
    if (response == kept.end()) {
        return;
    }
    const std::vector<uint8_t>& bytes = response->second;
    std::copy_n(bytes.begin(), std::min(bytes.size(), kLinDataBytes), msg->lin_frame.data);
    msg->lin_frame.dlc = static_cast<uint8_t>(bytes.size());
    msg->flag.ctrl_type = WITH_RESPONSE;
    msg->flag.is_active = 1;
}

void LinScheduleManager::delResMsg(int ch, int pid, bool del) {
    if (del) {
        resMsg[Index(ch)].erase(pid);
    }
    if (!getStatus(ch) || !currentTable_[Index(ch)]->hasPID(pid)) {
        PrintLine("LinScheduleManager::delResMsg not master or don't have pid:" +
                  std::to_string(pid));
        return;
    }
    currentTable_[Index(ch)]->modifyData(pid, kNoResponse, nullptr);
}

void LinScheduleManager::clearResMsg(int ch) {
    if (currentTable_[Index(ch)]->items().empty()) {
        PrintLine("LinScheduleManager::clearResMsg current table is null:");
    } else {
        for (const int pid : resMsg[Index(ch)]) {
            if (currentTable_[Index(ch)]->hasPID(pid)) {
                delResMsg(ch, pid, false);
            }
        }
    }
    resMsg[Index(ch)].clear();
    resMsg_Map[Index(ch)].clear();
}

void LinScheduleManager::checkResMsg(int ch) {
    resMsg_Map[Index(ch)].clear();
}
