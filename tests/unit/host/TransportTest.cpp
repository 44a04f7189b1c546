#include "vcihost/Transport.h"

#include "host/FakeDevice.h"

#include <cerrno>

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>

#include <gtest/gtest.h>

using namespace vcihost;
using namespace std::chrono_literals;

namespace {

// What a failing open says.
std::pair<int, std::string> OpenError(const std::string& path) {
    try {
        Transport::Open(path, Waiter());
    } catch (const TransportError& error) {
        return {error.code(), error.what()};
    }
    return {0, "none"};
}

// A character device whose other end the test holds: what one side writes at once, the other reads
// at once.
class Terminal {
  public:
    Terminal() : device_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        grantpt(device_.get());
        unlockpt(device_.get());
        char name[64];
        ptsname_r(device_.get(), name, sizeof(name));
        path_ = name;
        host_.reset(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
        termios raw{};
        tcgetattr(host_.get(), &raw);
        cfmakeraw(&raw);
        tcsetattr(host_.get(), TCSANOW, &raw);
    }

    const std::string& path() const { return path_; }

    void Say(const Bytes& message) const {
        ASSERT_EQ(write(device_.get(), message.data(), message.size()),
                  static_cast<ssize_t>(message.size()));
    }

    Bytes Heard(size_t count) const {
        Bytes bytes(count);
        const ssize_t got = read(device_.get(), bytes.data(), bytes.size());
        bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return bytes;
    }

    void Close() {
        host_.reset();
        device_.reset();
    }

  private:
    UniqueFd device_;
    UniqueFd host_; // holds the raw mode
    std::string path_;
};

TEST(Transport, AMissingDeviceIsToldWithItsPath) {
    const auto [code, text] = OpenError("/dev/no-such-device");
    EXPECT_EQ(code, ENOENT);
    EXPECT_EQ(text, "cannot open /dev/no-such-device: No such file or directory; connect the "
                    "device, or name another path with --device");
}

TEST(Transport, AFileIsNoDevice) {
    const TempDir dir;
    dir.Write("file", "");
    const auto [code, text] = OpenError(dir / "file");
    EXPECT_EQ(code, ENOTTY);
    EXPECT_EQ(text, "cannot open " + (dir / "file") + ": neither a character device nor a socket");
}

TEST(Transport, ASocketThatNobodyServesIsRefused) {
    const TempDir dir;
    const UniqueFd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (dir / "s").c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(OpenError(dir / "s").first, ECONNREFUSED);
}

TEST(Transport, APathTooLongForASocketIsRefused) {
    const TempDir dir;
    const std::string deep = dir / std::string(100, 'd');
    std::filesystem::create_directory(deep);
    std::filesystem::current_path(deep);
    const UniqueFd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, "s", sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    std::filesystem::current_path("/");
    EXPECT_EQ(OpenError(deep + "/s").first, ENAMETOOLONG);
}

TEST(SocketTransport, KeepsMessageBoundaries) {
    FakeDevice device(FakeDevice::Table({{"0102", {"aabb", "cc"}}}));
    const auto transport = Transport::Open(device.path(), Waiter());
    transport->Send(Bytes{1, 2}, After(1s));
    EXPECT_EQ(transport->Receive(After(5s)), (Bytes{0xAA, 0xBB}));
    EXPECT_EQ(transport->Receive(After(5s)), Bytes{0xCC});
    EXPECT_EQ(device.Received(), (std::vector<Bytes>{{1, 2}}));
}

TEST(SocketTransport, NothingCameByTheDeadline) {
    FakeDevice device(FakeDevice::Silent);
    const auto transport = Transport::Open(device.path(), Waiter());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(transport->Receive(After(30ms)), std::nullopt);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
    EXPECT_EQ(transport->Receive(Deadline{}), std::nullopt);
}

TEST(SocketTransport, ADeadlineThatHasPassedStillLooksOnce) {
    FakeDevice device(FakeDevice::Table({{"01", {"0a", "0b"}}}));
    const auto transport = Transport::Open(device.path(), Waiter());
    transport->Send(Bytes{1}, After(1s));
    EXPECT_EQ(transport->Receive(After(5s)), Bytes{0x0A});
    std::optional<Bytes> second;
    for (int i = 0; i < 1000 && !second; ++i) {
        second = transport->Receive(Deadline{});
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(second, Bytes{0x0B});
}

TEST(SocketTransport, LongMessagesComeWhole) {
    const Bytes large(100'000, 0x5A);
    FakeDevice device([&](const Bytes&) { return std::vector<Bytes>{large}; });
    const auto transport = Transport::Open(device.path(), Waiter());
    transport->Send(large, After(1s));
    EXPECT_EQ(transport->Receive(After(5s)), large);
    EXPECT_EQ(device.Received(), std::vector<Bytes>{large});
}

TEST(SocketTransport, TheEndOfTheLinkIsAnError) {
    auto device = std::make_unique<FakeDevice>(FakeDevice::Silent, std::vector<Bytes>{{1}});
    const auto transport = Transport::Open(device->path(), Waiter());
    EXPECT_EQ(transport->Receive(After(5s)), Bytes{1});
    device.reset();
    try {
        transport->Receive(After(5s));
        FAIL();
    } catch (const TransportError& error) {
        EXPECT_EQ(error.code(), EPIPE);
        EXPECT_EQ(error.what(), transport->path() + " was closed by the device");
    }
    EXPECT_THROW(transport->Send(Bytes{1}, After(1s)), TransportError);
}

TEST(DeviceTransport, SendsAndReceives) {
    const Terminal terminal;
    const auto transport = Transport::Open(terminal.path(), Waiter());
    transport->Send(ParseHex("0002000000100100ff0a0d0000000000"), After(1s));
    EXPECT_EQ(ToHex(terminal.Heard(16)), "0002000000100100ff0a0d0000000000");
    terminal.Say(ParseHex("000102030a"));
    EXPECT_EQ(transport->Receive(After(5s)), ParseHex("000102030a"));
    EXPECT_EQ(transport->Receive(After(10ms)), std::nullopt);
}

TEST(DeviceTransport, BytesThatNobodyTakesRunIntoTheDeadline) {
    const Terminal terminal;
    const auto transport = Transport::Open(terminal.path(), Waiter());
    const auto start = std::chrono::steady_clock::now();
    try {
        transport->Send(Bytes(1'000'000), After(50ms));
        FAIL();
    } catch (const TransportError& error) {
        EXPECT_EQ(error.code(), ETIMEDOUT);
        EXPECT_NE(std::string(error.what())
                      .find(" of 1000000 bytes in time; does the application "
                            "on the device run?"),
                  std::string::npos);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
}

TEST(DeviceTransport, BytesThatAreTakenInPiecesAllArrive) {
    const Terminal terminal;
    const auto transport = Transport::Open(terminal.path(), Waiter());
    constexpr size_t kSize = 100'000; // more than a terminal holds
    size_t heard = 0;
    std::thread device([&] {
        while (heard < kSize) {
            heard += terminal.Heard(4096).size();
        }
    });
    transport->Send(Bytes(kSize, 7), After(20s));
    device.join();
    EXPECT_EQ(heard, kSize);
}

TEST(DeviceTransport, ADeviceThatGoesAwayIsAnError) {
    Terminal terminal;
    const auto transport = Transport::Open(terminal.path(), Waiter());
    terminal.Close();
    EXPECT_THROW(transport->Receive(After(5s)), TransportError);
}

TEST(Waiter, ACancelDescriptorEndsEveryWait) {
    const UniqueFd cancel(eventfd(0, EFD_CLOEXEC));
    const Waiter waiter(cancel.get());
    EXPECT_EQ(waiter.Wait(-1, 0, After(5ms)), 0);
    eventfd_write(cancel.get(), 1);
    EXPECT_THROW(waiter.Pause(Deadline::max()), Interrupted);
    EXPECT_THROW(waiter.Wait(cancel.get(), POLLIN, Deadline{}), Interrupted);

    FakeDevice device(FakeDevice::Silent, {{1}});
    const auto transport = Transport::Open(device.path(), waiter);
    EXPECT_THROW(transport->Receive(Deadline::max()), Interrupted);
}

TEST(Waiter, PausesUntilTheMoment) {
    const auto start = std::chrono::steady_clock::now();
    Waiter().Pause(start + 20ms);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
}

} // namespace
