#pragma once

#include "drivers/LinManage.h"
#include "utils/Published.h"

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

// One entry of a schedule table.
struct TableItem {
    uint8_t pid = 0;        // protected identifier
    uint8_t dlc = 0;        // data length of `msg` when it was added
    uint32_t delay_us = 0;  // length of the slot in use, microseconds
    uint32_t delay_vba = 0; // length that the host asked for, microseconds
    lin_tx_message msg{};   // what is sent; of the main thread

    // What a running slot sends: `msg`, whole at any moment. Made by LinTable, and stays where it
    // is as long as the item lives.
    std::unique_ptr<Published<lin_tx_message>> sent;
};

// A schedule table of a channel. Lives on the main thread; an executor reads the items' `pid` and
// `sent` while it runs, during which nobody adds or clears.
class LinTable {
  public:
    explicit LinTable(int index); // channel; tells itself on standard output
    LinTable(const LinTable&) = delete;
    LinTable& operator=(const LinTable&) = delete;

    // Appends an item. A pid may stand several times, up to 255 times: 0, or -1 for one more. No
    // download brings that one, for it counts its entries in a byte.
    int addItem(TableItem item);

    void clear();

    // Gives all items of the pid another response of `dlc` bytes and the slot that it needs, or,
    // with a `dlc` below 0, none; the slot then stays. Of a `dlc` above 8, which is sent as it
    // stands, there are 8 bytes in `data`. May be called while the table runs. False when the pid
    // is not in the table.
    bool modifyData(int pid, int dlc, const uint8_t* data);

    bool hasPID(int pid) const;

    // The length of a slot in microseconds: `delay_vba`, but at least the time of a frame of `dlc`
    // bytes and 15 bits more. Of a channel without a bit rate nothing is known.
    uint32_t calcDelay(int dlc, uint32_t delay_vba) const;

    // In the order of the schedule.
    const std::vector<TableItem>& items() const { return items_; }

  private:
    int index_;
    Drivers::LinManage& linManage_;
    std::vector<TableItem> items_;
    std::unordered_map<uint8_t, uint8_t> pidMap_; // how many items a pid has
};
