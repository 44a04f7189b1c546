#pragma once

#include "drivers/LinOperation.h"
#include "modules/LinSchedule/LinExecutor.h"
#include "modules/LinSchedule/LinTable.h"

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

// The schedules of both LIN channels: for each its role, the table that runs or may run, the table
// that a download builds aside, the executor, and the responses that the host has set. Only a
// commander runs a schedule: of a responder the driver answers by itself. Tables and responses
// outlive a stop and the closing of the channel. Channels are 0 and 1, which the caller has
// checked. Lives on the main thread; what is done without effect is told on standard output.
class LinScheduleManager {
  public:
    static LinScheduleManager& GetInstance();

    LinScheduleManager();
    LinScheduleManager(const LinScheduleManager&) = delete;
    LinScheduleManager& operator=(const LinScheduleManager&) = delete;

    // Runs the current table; only of a commander that has one and is not running it.
    void startExecutor(int ch);

    // Returns at the end of the slot in progress. Without effect unless running.
    void stopExecutor(int ch);

    bool getExecutorStatus(int ch) const { return executor[Index(ch)]->getRunning(); }

    // The role: true for the commander. -1 while the executor runs, otherwise 0.
    int setStatus(int ch, bool master);
    bool getStatus(int ch) const { return isMaster_[Index(ch)]; }

    // Appends a slot to the table that is built aside: `delay_us` microseconds long, where the host
    // asked for `delay_ms` milliseconds. 0, or -1 when the table takes no more; it is then empty.
    int addToStandbyTable(int ch, uint32_t delay_us, uint16_t delay_ms, const lin_tx_message* msg);

    // Puts the table that was built aside in place of the current one, which is then empty. A
    // running schedule goes on with the new one, from its first slot.
    void setNewTable(int ch);

    void clearTable(int ch); // the current one, unless it runs

    // Keeps the response of a pid, and puts it into the current table of a commander at once.
    // `data`: `length` bytes, of which there are 8 at most.
    void setResMsg(int ch, int pid, int length, const uint8_t* data);

    // Puts the response that is kept for the pid, if any, into a message.
    void setResMsg(int ch, int pid, lin_tx_message* msg) const;

    // Takes the response out of the current table of a commander. With `del` it no longer counts as
    // set; yet its bytes are kept, so that a later download finds them again.
    void delResMsg(int ch, int pid, bool del);

    void clearResMsg(int ch); // forgets all responses, in the current table too
    void checkResMsg(int ch); // forgets what later downloads would find

  private:
    static size_t Index(int ch) { return static_cast<size_t>(ch); }

    std::vector<std::shared_ptr<LinTable>> currentTable_;
    std::vector<std::shared_ptr<LinTable>> standbyTable_;
    std::vector<bool> isMaster_;
    std::vector<std::unordered_set<int>> resMsg;                           // pids that are set
    std::vector<std::unordered_map<int, std::vector<uint8_t>>> resMsg_Map; // bytes by pid
    std::vector<std::shared_ptr<LinExecutor>> executor; // last: they walk the tables
};
