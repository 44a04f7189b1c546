#include "net/PacketCapture.h"

#include "base/ThreadPriority.h"

#include <cstdio>
#include <cstring>

#include <arpa/inet.h>

namespace net {

namespace {

constexpr int kSnapLength = 8192;      // bytes of a packet that are kept
constexpr int kBufferSize = 0x1000000; // bytes; what it cannot hold is lost in the kernel
constexpr int kLinkType = 276;         // LINKTYPE_LINUX_SLL2, which carries the interface index
constexpr size_t kIndexOffset = 4;     // of the interface index in that header
constexpr size_t kIndexEnd = kIndexOffset + sizeof(uint32_t);
constexpr int kNoPacketLimit = 0;

void ReportNotOpen(const std::string& device, const char* reason) {
    fprintf(stderr, "Could not open device %s: %s\n", device.c_str(), reason);
}

} // namespace

PacketCapture::PacketCapture(const std::string& device) {
    InitPcap(device);
}

PacketCapture::PacketCapture(pcap_t* capture) : handle(capture) {}

PacketCapture::~PacketCapture() {
    StopCapturer(); // the handle is closed behind it: the worker reads from it to the last
}

void PacketCapture::InitPcap(const std::string& device) {
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    handle.reset(pcap_create(device.c_str(), errbuf));
    if (!handle) {
        ReportNotOpen(device, errbuf);
        return;
    }
    // These fail on a handle that is active already, and the precision where the machine has none
    // so fine: Linux has it on every interface.
    pcap_set_snaplen(handle.get(), kSnapLength);
    pcap_set_promisc(handle.get(), 1);
    pcap_set_tstamp_precision(handle.get(), PCAP_TSTAMP_PRECISION_NANO);
    pcap_set_immediate_mode(handle.get(), 1); // a packet is delivered as soon as the kernel has it
    pcap_set_buffer_size(handle.get(), kBufferSize);
    if (pcap_activate(handle.get()) < 0) {
        // The program goes on without a recording. The host is not told: its requests are answered
        // as ever, and the device is worth having for all the rest.
        ReportNotOpen(device, pcap_geterr(handle.get()));
        return;
    }
    // The form of "any" since libpcap 1.10.1, and one that it can be asked for before. A single
    // interface, which only tests open, may refuse it.
    pcap_set_datalink(handle.get(), kLinkType);
}

void PacketCapture::StartCapturer() {
    if (workerThread_.joinable()) {
        return;
    }
    workerThread_ = std::thread([this] { PcapLoop(); });
    SetHighestPriority(workerThread_);
}

void PacketCapture::StopCapturer() {
    if (!workerThread_.joinable()) {
        return;
    }
    if (handle) {
        pcap_breakloop(handle.get());
    }
    workerThread_.join();
}

void PacketCapture::PcapLoop() {
    if (handle) { // one that could not be activated returns at once
        pcap_loop(handle.get(), kNoPacketLimit, Callback, reinterpret_cast<u_char*>(this));
    }
}

void PacketCapture::PacketHandler(const pcap_pkthdr* pkthdr, const u_char* packet) {
    if (pkthdr->caplen < kIndexEnd) {
        truncated_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    uint32_t bigEndian = 0;
    std::memcpy(&bigEndian, packet + kIndexOffset, sizeof(bigEndian));
    const auto index = static_cast<int>(ntohl(bigEndian));
    if (cb_ && indexs_.Has(index)) {
        cb_(pkthdr, packet, index);
    }
}

void Callback(u_char* user, const pcap_pkthdr* pkthdr, const u_char* packet) {
    reinterpret_cast<PacketCapture*>(user)->PacketHandler(pkthdr, packet);
}

} // namespace net
