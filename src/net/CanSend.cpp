#include "net/CanSend.h"

#include "drivers/CanManage.h"
#include "drivers/DevTimestamp.h"
#include "net/BcmMessage.h"
#include "net/CanRequest.h"
#include "utils/Console.h"

#include <cerrno>
#include <cstdio>
#include <string>

#include <unistd.h>

namespace net {

namespace {

constexpr int kHard = 1; // close at once

constexpr uint64_t kNsPerUs = 1000;
constexpr uint32_t kUsPerMs = 1000;

constexpr int kFallbackBitRate = 100; // bit/s, of a channel whose timing was never set

uint64_t getCurrentTimestampUs() {
    return Drivers::DevTimestamp::GetInstance()->GetTimestamp() / kNsPerUs;
}

// The rate of a channel; one that was never set falls back, with a message the first time.
int RateOrFallback(std::atomic<int>& rate, const char* message) {
    if (rate < 1) {
        rate = kFallbackBitRate;
        PrintLine(message);
    }
    return rate;
}

} // namespace

CanSend* CanSend::GetInstance(ZephEventLoop* loop) {
    static CanSend instance(loop, ZephCanComM::GetInstance());
    return &instance;
}

CanSend::CanSend(ZephEventLoop* loop, ZephCanComM& canComM) : loop_(loop), canComM_(canComM) {
    OpenAllSocket();
}

void CanSend::OpenAllSocket() {
    for (uint8_t ch = 0; ch < kCanChannels; ++ch) {
        canComM_.CanComMOpen(ch);
    }
}

void CanSend::CloseAllSocket() {
    for (uint8_t ch = 0; ch < kCanChannels; ++ch) {
        canComM_.CloseCallback(ch, kHard);
    }
    planner_.ForgetBaseTime();
}

void CanSend::ClearPeriodicSendTask() {
    canInfoToCanMap.clear();
}

int CanSend::WriteCallback(uint8_t canChannel, void* frame, int type, int potocol, int extend) {
    return canComM_.WriteCallback(canChannel, frame, type, potocol, extend);
}

void CanSend::SendMutiMessages(std::span<const uint8_t> pReqSrv) {
    WireReader request(pReqSrv);
    const CanRequestHead head = ReadCanRequestHead(request);
    for (int i = 0; i < head.count; ++i) {
        CanRequestFrame entry = ReadCanFrameEntry(request);
        if (!request.ok()) {
            return;
        }
        Send(head.channel, entry);
    }
}

void CanSend::SendSingleMessage(std::span<const uint8_t> pReqSrv) {
    WireReader request(pReqSrv);
    const uint8_t channel = ReadCanRequestChannel(request);
    CanRequestFrame entry = ReadCanFrameEntry(request);
    if (request.ok()) {
        Send(channel, entry);
    }
}

// A frame that the socket does not take is gone: the host has no answer that could tell.
void CanSend::Send(uint8_t channel, CanRequestFrame& entry) {
    CanFrameData& data = entry.frame_data;
    void* const frame = data.is_fd ? static_cast<void*>(&data.fd) : &data.std;
    WriteCallback(channel, frame, data.is_fd ? CAN_FD_Task : CAN_Task, entry.bit5, entry.extended);
}

void CanSend::SetPeriodicSendTask(std::span<const uint8_t> pReqSrv) {
    WireReader request(pReqSrv);
    const CanRequestHead head = ReadCanRequestHead(request);
    std::vector<CanTaskInfo> initial_tasks;
    for (int i = 0; i < head.count; ++i) {
        const CanPeriodicEntry entry = ReadCanPeriodicEntry(request);
        if (!request.ok()) {
            break;
        }
        const CanFrameData& data = entry.frame.frame_data;
        if (entry.period == 0) {
            StopTask(head.channel, data);
        } else {
            initial_tasks.push_back(
                {head.channel, data.id(), entry.frame.extended, entry.period, data});
        }
    }
    scheduleNewTasks(initial_tasks);
}

// Stops reach the kernel before any start of the same request.
void CanSend::StopTask(uint8_t channel, const CanFrameData& data) {
    if (data.is_fd) {
        SetCANFDTask(channel, data.fd, 0, 0);
    } else {
        SetCANTask(channel, data.std, 0, 0);
    }
}

void CanSend::scheduleNewTasks(const std::vector<CanTaskInfo>& new_tasks_info) {
    if (new_tasks_info.empty()) {
        return; // even an empty plan would take the safe window away
    }
    std::vector<OffsetPlanner::Task> tasks_to_schedule;
    for (size_t i = 0; i < new_tasks_info.size(); ++i) {
        const CanTaskInfo& info = new_tasks_info[i];
        planner_.Remove(info.can_id);
        OffsetPlanner::Task task;
        task.source = i;
        task.id = info.can_id;
        task.period_us = info.period_ms * kUsPerMs;
        task.transmission_time_us = FrameTimeUs(info);
        if (task.period_us == 0 || task.transmission_time_us == 0) {
            fprintf(stderr, "Warning: Invalid task parameters for CAN ID 0x%x. Skipping.\n",
                    info.can_id);
            continue;
        }
        tasks_to_schedule.push_back(task);
    }
    planner_.Plan(tasks_to_schedule, getCurrentTimestampUs, [&](const OffsetPlanner::Task& task) {
        StartTask(new_tasks_info[task.source], task);
    });
}

void CanSend::StartTask(const CanTaskInfo& info, const OffsetPlanner::Task& task) {
    // A failed write reaches only the log: the host has its answer, and the task keeps its place.
    if (info.frame_data.is_fd) {
        SetCANFDTask(info.channel, info.frame_data.fd, info.period_ms, task.kernel_offset_us);
    } else {
        SetCANTask(info.channel, info.frame_data.std, info.period_ms, task.kernel_offset_us);
    }
    // Behind the write: the console is slow, and the delay counts from the moment of planning.
    if (task.conflicts != 0) {
        fprintf(stderr,
                "Warning: No conflict-free offset found for CAN ID 0x%x. Assigning offset with %u "
                "conflicts.\n",
                task.id, task.conflicts);
    }
}

// 0 for a frame that has no time: the task is skipped.
uint32_t CanSend::FrameTimeUs(const CanTaskInfo& info) {
    const CanFrameData& data = info.frame_data;
    CanBitRates rates;
    rates.arbitration =
        RateOrFallback(Drivers::CanManage::BaudRate_[info.channel],
                       "ARBITRATION_BAUD_RATE_BPS must be defined and greater than 0.");
    if (data.is_fd) {
        rates.data = RateOrFallback(
            Drivers::CanManage::DataBaudRate_[info.channel],
            "DATA_BAUD_RATE_BPS must be defined and greater than 0 for CAN FD frames.");
    }
    // Does not throw: lengths come from DLC codes.
    return calculateFrameTransmissionTime(rates, data.is_fd ? CAN_FD_Task : CAN_Task,
                                          info.is_extended ? EXTENDED : STANDARD,
                                          data.is_fd ? data.fd.len : data.std.can_dlc);
}

int CanSend::SetCANTask(uint8_t channel, can_frame frame, uint64_t period, uint64_t offect) {
    const int error = SetTask({frame.can_id, channel, CAN_Task}, frame, period, offect);
    if (error != 0) { // the host's answer is out; only the classic tasks have a message
        PrintLine("ZephCanCom::WriteCanFrame errno =" + std::to_string(error));
    }
    return error;
}

int CanSend::SetCANFDTask(uint8_t channel, canfd_frame frame, uint64_t period, uint64_t offect) {
    return SetTask({frame.can_id, channel, CAN_FD_Task}, frame, period, offect);
}

template <typename Frame>
int CanSend::SetTask(const CanInfo& info, const Frame& frame, uint64_t period, uint64_t offect) {
    if (period == 0) {
        Stop(info);
        return 0;
    }
    const uint32_t flags = MakeRoom(info);
    const int error = Write(info.channel, BcmMessage::Start(frame, flags, offect, period));
    if (error == 0) {
        canInfoToCanMap.insert(info);
    }
    return error;
}

uint32_t CanSend::MakeRoom(const CanInfo& info) {
    const auto running = canInfoToCanMap.find(info);
    if (running != canInfoToCanMap.end()) {
        if (running->type == info.type) {
            return SETTIMER;
        }
        Stop(*running);
        return SETTIMER | STARTTIMER;
    }
    // The same id with the other value of remote cannot live beside this one. Behind an FD frame
    // it is a remote frame, which only a classic task can be.
    CanInfo flipped = info;
    flipped.canId ^= CAN_RTR_FLAG;
    if (canInfoToCanMap.count(flipped) != 0) {
        flipped.type = CAN_Task;
        Stop(flipped);
        if (info.type == CAN_Task) {
            flipped.type = CAN_FD_Task;
            Stop(flipped);
        }
    }
    return SETTIMER | STARTTIMER;
}

void CanSend::Stop(CanInfo info) {
    Write(info.channel, BcmMessage::Stop(info.canId, info.type == CAN_FD_Task));
    canInfoToCanMap.erase(info);
}

// 0 or the errno.
int CanSend::Write(uint8_t channel, const BcmMessage& message) {
    const ssize_t written = write(canComM_.GetFd2(channel), message.Data(), message.Size());
    return written < 0 ? errno : 0;
}

} // namespace net
