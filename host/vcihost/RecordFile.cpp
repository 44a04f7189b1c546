#include "vcihost/RecordFile.h"

#include "vcihost/CandumpLog.h"
#include "vcihost/LinPacket.h"
#include "vcihost/PcapngWriter.h"
#include "vcihost/SocketCan.h"

#include <algorithm>
#include <utility>

#include <sys/utsname.h>

#include <fmt/format.h>

namespace vcihost {

namespace {

std::string OperatingSystem() {
    utsname name{};
    return uname(&name) == 0 ? fmt::format("{} {}", name.sysname, name.release) : "";
}

class PcapngRecord : public RecordWriter {
  public:
    PcapngRecord(const std::string& path, const RecordFileOptions& options)
        : clock_(options.clock),
          last_(options.clock.wall),
          file_(path),
          pcapng_(file_, {"vehicle communication interface at " + options.device, OperatingSystem(),
                          options.application, options.clock.Text()}) {
        for (const RecordChannel& channel : options.channels) {
            pcapng_.AddInterface(
                {channel.Name(), "", channel.IsLin() ? LinkType::Lin : LinkType::SocketCan});
            channels_.push_back(channel);
            dropped_.push_back(0);
        }
    }

    void Write(const CanFrameRecord& record) override {
        const SocketCanPacket packet(record);
        Add(RecordChannel::Of(record), record.time, packet.bytes(), Direction(record.received), {});
    }

    void Write(const CanErrorRecord& record) override {
        const SocketCanPacket packet(record);
        // The frame of an error has no place for most of what is known of it.
        Add(RecordChannel::Of(record), record.time, packet.bytes(), Direction(record.received),
            record.Text());
    }

    // The frame has the time of its start, since that is what a schedule plans.
    void Write(const LinFrameRecord& record) override {
        const LinPacket packet(record);
        const auto channel = RecordChannel::Of(record);
        const auto direction = Direction(record.received);
        const bool told = record.HasError() == ((record.errorCode & kNamedLinErrors) != 0) &&
                          (record.errorCode & ~kNamedLinErrors) == 0;
        // A packet has no place for the driver's own errors.
        Add(channel, record.start, packet.bytes(), direction, told ? "" : record.ErrorText());
        if (record.IsGoToSleep()) {
            Add(channel, record.end, LinPacket(LinEvent::GoToSleep).bytes(), direction, {});
        }
    }

    void Write(const LinWakeupRecord& record) override {
        const LinPacket packet(LinEvent::WakeUp);
        Add(RecordChannel::Of(record), record.start, packet.bytes(), PacketDirection::Unknown, {});
    }

    void Lost(uint64_t count) override { lost_ += count; }
    void Flush() override { file_.Flush(); }

    void Finish(const RecordCounts& counts) override {
        for (uint32_t interface = 0; interface < channels_.size(); ++interface) {
            const ChannelCounts& count = counts[channels_[interface].Index()];
            // No packet came to tell of the last losses, and whose they were is not known.
            dropped_[interface] += std::exchange(lost_, 0);
            pcapng_.AddStatistics({interface, last_, clock_.wall, last_, count.received,
                                   count.accepted, dropped_[interface]});
        }
        file_.Flush();
    }

  private:
    static PacketDirection Direction(bool received) {
        return received ? PacketDirection::Inbound : PacketDirection::Outbound;
    }

    void Add(const RecordChannel& channel, uint64_t time, std::span<const uint8_t> data,
             PacketDirection direction, std::string_view comment) {
        const auto found = std::find(channels_.begin(), channels_.end(), channel);
        if (found == channels_.end()) {
            return; // not asked for
        }
        const auto interface = static_cast<uint32_t>(found - channels_.begin());
        const uint64_t wall = clock_.ToWall(time);
        last_ = std::max(last_, wall);
        pcapng_.AddPacket({interface, wall, data, direction, lost_, comment});
        dropped_[interface] += std::exchange(lost_, 0);
    }

    ClockPair clock_;
    uint64_t last_; // wall-clock time of the latest record; before one came, that of the start
    BufferedFile file_;
    PcapngWriter pcapng_;
    std::vector<RecordChannel> channels_;
    std::vector<uint64_t> dropped_; // told so far, by interface
    uint64_t lost_ = 0;             // not told yet
};

class LogRecord : public RecordWriter {
  public:
    LogRecord(const std::string& path, const RecordFileOptions& options)
        : clock_(options.clock), file_(path) {}

    void Write(const CanFrameRecord& record) override {
        file_.Append(CandumpLogLine(record, clock_.ToWall(record.time)));
    }
    void Write(const CanErrorRecord& record) override {
        file_.Append(CandumpLogLine(record, clock_.ToWall(record.time)));
    }
    // The format has no place for these. LIN channels are refused before a log is made.
    void Write(const LinFrameRecord& /*record*/) override {}
    void Write(const LinWakeupRecord& /*record*/) override {}
    void Lost(uint64_t /*count*/) override {}
    void Flush() override { file_.Flush(); }
    void Finish(const RecordCounts& /*counts*/) override { file_.Flush(); }

  private:
    ClockPair clock_;
    BufferedFile file_;
};

} // namespace

RecordFormat FormatOfPath(const std::string& path) {
    if (path.ends_with(".pcapng")) {
        return RecordFormat::Pcapng;
    }
    if (path.ends_with(".log")) {
        return RecordFormat::Log;
    }
    throw FileError(fmt::format(
        "'{}' names no format: end it with .pcapng (capture file) or .log (text log)", path));
}

std::unique_ptr<RecordWriter> MakeRecordFile(const std::string& path,
                                             const RecordFileOptions& options) {
    if (FormatOfPath(path) == RecordFormat::Pcapng) {
        return std::make_unique<PcapngRecord>(path, options);
    }
    for (const RecordChannel& channel : options.channels) {
        if (channel.IsLin()) {
            throw FileError(fmt::format("'{}': the text log of candump cannot hold the frames of "
                                        "{}; record to a file that ends with .pcapng",
                                        path, channel.Name()));
        }
    }
    return std::make_unique<LogRecord>(path, options);
}

} // namespace vcihost
