#include "modules/LinSchedule/LinTable.h"

#include "modules/LinSchedule/LinSlot.h"
#include "utils/Console.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

LinTable::LinTable(int index) : index_(index), linManage_(Drivers::LinManage::GetInstance()) {
    PrintLine("schedule table" + std::to_string(index_) + " has created");
}

int LinTable::addItem(TableItem item) {
    const auto [counted, isNew] = pidMap_.try_emplace(item.pid, uint8_t{1});
    if (!isNew) {
        if (counted->second == std::numeric_limits<uint8_t>::max()) {
            return -1; // more than can be counted, and than a download brings
        }
        PrintLine("LinTable::addItem ID " + std::to_string(item.pid) + " has existed");
        ++counted->second;
    }
    item.sent = std::make_unique<Published<lin_tx_message>>(item.msg);
    items_.push_back(std::move(item));
    return 0;
}

void LinTable::clear() {
    items_.clear();
    pidMap_.clear();
}

bool LinTable::hasPID(int pid) const {
    return pid >= 0 && pid <= std::numeric_limits<uint8_t>::max() &&
           pidMap_.count(static_cast<uint8_t>(pid)) != 0;
}

bool LinTable::modifyData(int pid, int dlc, const uint8_t* data) {
    if (!hasPID(pid)) {
        PrintLine("LinTable::modifyData no pid：" + std::to_string(pid));
        return false;
    }
    int left = pidMap_.at(static_cast<uint8_t>(pid));
    for (TableItem& item : items_) {
        if (item.pid != pid) {
            continue;
        }
        lin_tx_message& msg = item.msg;
        if (dlc < 0) {
            msg.flag.ctrl_type = ONLY_COMMAND;
            msg.flag.is_active = 0;
            PrintLine("LinTable::modifyData del pid :" + std::to_string(pid));
        } else {
            msg.flag.ctrl_type = WITH_RESPONSE;
            msg.flag.is_active = 1;
            msg.lin_frame.dlc = static_cast<uint8_t>(dlc);
            std::copy_n(data, std::min(static_cast<size_t>(dlc), kLinDataBytes),
                        msg.lin_frame.data);
            item.delay_us = calcDelay(dlc, item.delay_vba);
        }
        item.sent->Write(msg);
        if (--left == 0) {
            break;
        }
    }
    return true;
}

uint32_t LinTable::calcDelay(int dlc, uint32_t delay_vba) const {
    return LinSlotLength(linManage_.getBaudrate(index_), dlc, delay_vba);
}
