// SPDX-License-Identifier: Apache-2.0
// The reader behind a socket of USB redirection, by the bytes of the protocol: peers that behave, and peers that ask
// without reading or read without asking.
#include <gtest/gtest.h>

#ifndef VORN_USB_REDIRECTION

TEST(SimUsbSocket, IsThere) { GTEST_SKIP() << "libusbredirparser was not found"; }

#else

#include "sim/reader/behaviour.h"
#include "sim/reader/fault.h"
#include "sim/reader/usb_redir_port.h"
#include "support/scripted_reader.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>
#include <usbredirproto.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <thread>

namespace {

std::atomic<bool> noDescriptorLeft{false};
std::atomic<int> acceptCalls{0};

} // namespace

// Stands in for the C library's in this program.
extern "C" int accept4(int fd, sockaddr* address, socklen_t* length, int flags)
{
    ++acceptCalls;
    if (noDescriptorLeft) {
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_accept4, fd, address, length, flags));
}

namespace vorn::sim {
namespace {

using test::frame;
using test::fromHex;
using test::replyFrame;
using test::toHex;

constexpr int kPatience = 60000; // milliseconds for a packet that must come; never a measure
constexpr std::uint8_t kOut = 0x01;
constexpr std::uint8_t kIn = 0x81;

struct Packet {
    std::uint32_t type = 0;
    std::uint32_t id = 0;
    Bytes body;
};

struct BulkReply {
    std::uint32_t id;
    int status;
    Bytes data;
};

template <class T>
Bytes bytesOf(const T& value)
{
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

// A machine at the other end, with no capabilities: identifiers and lengths in their short forms.
class Machine {
public:
    explicit Machine(const std::string& path) : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        connected_ = ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~Machine() { ::close(fd_); }
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    bool connected() const { return connected_; }

    // False: the device takes no more.
    bool send(std::uint32_t type, std::uint32_t id, const Bytes& body, int patience = kPatience)
    {
        Bytes bytes;
        for (const std::uint32_t word : {type, static_cast<std::uint32_t>(body.size()), id}) {
            const Bytes each = bytesOf(word);
            bytes.insert(bytes.end(), each.begin(), each.end());
        }
        bytes.insert(bytes.end(), body.begin(), body.end());
        for (std::size_t at = 0; at < bytes.size();) {
            pollfd p{fd_, POLLOUT, 0};
            if (::poll(&p, 1, patience) != 1) {
                unfinished_.assign(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end());
                return false;
            }
            const ssize_t n = ::send(fd_, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n < 0 && errno != EAGAIN) {
                return false;
            }
            at += n > 0 ? static_cast<std::size_t>(n) : 0;
        }
        return true;
    }
    bool finishSending()
    {
        return ::send(fd_, unfinished_.data(), unfinished_.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(unfinished_.size());
    }

    void hello()
    {
        Bytes body(sizeof(usb_redir_hello_header) + 4);
        std::memcpy(body.data(), "test", 4);
        ASSERT_TRUE(send(usb_redir_hello, 0, body));
        const Packet answer = receive();
        ASSERT_EQ(answer.type, usb_redir_hello);
        ASSERT_EQ(answer.body.size(), body.size());
        std::memcpy(&capabilities_, answer.body.data() + sizeof(usb_redir_hello_header), sizeof capabilities_);
        for (const std::uint32_t type : {usb_redir_ep_info, usb_redir_interface_info, usb_redir_device_connect}) {
            ASSERT_EQ(receive().type, type);
        }
    }

    // What the device's greeting says that it can do.
    bool deviceHas(int capability) const { return (capabilities_ >> capability & 1U) != 0; }

    Packet receive()
    {
        const Bytes header = read(12);
        if (header.size() < 12) {
            return {UINT32_MAX, 0, {}};
        }
        std::uint32_t words[3];
        std::memcpy(words, header.data(), sizeof words);
        return {words[0], words[2], read(words[1])};
    }

    bool bulk(std::uint8_t endpoint, std::uint32_t id, std::size_t length, const Bytes& data = {})
    {
        // Without the high half of the length, which only peers with its capability send.
        Bytes body = {
            endpoint, 0, static_cast<std::uint8_t>(length & 0xFF), static_cast<std::uint8_t>(length >> 8), 0, 0, 0, 0};
        body.insert(body.end(), data.begin(), data.end());
        return send(usb_redir_bulk_packet, id, body);
    }
    bool out(std::uint32_t id, const Bytes& data) { return bulk(kOut, id, data.size(), data); }

    BulkReply bulkReply()
    {
        const Packet packet = receive();
        if (packet.type != usb_redir_bulk_packet || packet.body.size() < 8) {
            ADD_FAILURE() << "packet of type " << packet.type;
            return {0, -1, {}};
        }
        return {packet.id, packet.body[1], Bytes(packet.body.begin() + 8, packet.body.end())};
    }

private:
    Bytes read(std::size_t count) const
    {
        Bytes bytes;
        while (bytes.size() < count) {
            pollfd p{fd_, POLLIN, 0};
            std::uint8_t buffer[4096];
            const ssize_t n = ::poll(&p, 1, kPatience) == 1
                                  ? ::recv(fd_, buffer, std::min(sizeof buffer, count - bytes.size()), 0)
                                  : -1;
            if (n <= 0) {
                break;
            }
            bytes.insert(bytes.end(), buffer, buffer + n);
        }
        return bytes;
    }

    int fd_;
    bool connected_ = false;
    std::uint32_t capabilities_ = 0;
    Bytes unfinished_; // of a packet that the device did not take whole
};

class SimUsbSocket : public ::testing::Test {
protected:
    std::string directory = ::testing::TempDir() + "usbXXXXXX";
    std::string path;
    Reader reader;
    const Bytes off = frame(fromHex("32250000"));
    const Bytes answer = replyFrame(0, {});

    void SetUp() override
    {
        ASSERT_NE(::mkdtemp(directory.data()), nullptr);
        path = directory + "/s";
    }
    void TearDown() override { ::rmdir(directory.c_str()); }
};

TEST_F(SimUsbSocket, AnExchangeThroughBulkTransfers)
{
    UsbRedirPort port(reader, path);
    Machine machine(path);
    ASSERT_TRUE(machine.connected());
    machine.hello();
    ASSERT_TRUE(machine.bulk(kIn, 1, 512));
    ASSERT_TRUE(machine.out(2, off));
    const BulkReply sent = machine.bulkReply();
    EXPECT_EQ(sent.id, 2U);
    EXPECT_EQ(sent.status, usb_redir_success);
    const BulkReply received = machine.bulkReply();
    EXPECT_EQ(received.id, 1U);
    EXPECT_EQ(toHex(received.data), toHex(answer));
}

// A reply of 12 bytes.
TEST_F(SimUsbSocket, AUnitsOwnPackets)
{
    Behaviour unit;
    unit.packetSize = 5;
    reader.behave(unit);
    UsbRedirPort port(reader, path);
    Machine machine(path);
    ASSERT_TRUE(machine.connected());
    machine.hello();
    ASSERT_TRUE(machine.out(1, off));
    EXPECT_EQ(machine.bulkReply().id, 1U);
    std::vector<std::size_t> sizes;
    Bytes all;
    for (std::uint32_t id = 2; all.size() < answer.size(); ++id) {
        ASSERT_TRUE(machine.bulk(kIn, id, 64));
        const BulkReply packet = machine.bulkReply();
        sizes.push_back(packet.data.size());
        all.insert(all.end(), packet.data.begin(), packet.data.end());
        ASSERT_LT(id, 10U);
    }
    EXPECT_EQ(sizes, (std::vector<std::size_t>{5, 5, 2}));
    EXPECT_EQ(toHex(all), toHex(answer));
}

TEST_F(SimUsbSocket, AUnitThatEndsWholePacketsWithAnEmptyOne)
{
    Behaviour unit;
    unit.packetSize = static_cast<int>(answer.size());
    unit.zeroPacket = Behaviour::ZeroPacket::AfterWholePackets;
    reader.behave(unit);
    UsbRedirPort port(reader, path);
    Machine machine(path);
    ASSERT_TRUE(machine.connected());
    machine.hello();
    ASSERT_TRUE(machine.out(1, off));
    EXPECT_EQ(machine.bulkReply().id, 1U);
    for (const Bytes& expected : {answer, Bytes()}) {
        ASSERT_TRUE(machine.bulk(kIn, 2, 64));
        EXPECT_EQ(toHex(machine.bulkReply().data), toHex(expected));
    }
}

TEST_F(SimUsbSocket, TheGreetingHasWhatVirtualMachinesAskFor)
{
    UsbRedirPort port(reader, path);
    Machine machine(path);
    machine.hello();
    EXPECT_TRUE(machine.deviceHas(usb_redir_cap_ep_info_max_packet_size));
    EXPECT_TRUE(machine.deviceHas(usb_redir_cap_64bits_ids));
    EXPECT_TRUE(machine.deviceHas(usb_redir_cap_32bits_bulk_length));
}

TEST_F(SimUsbSocket, AMachineThatGoesAwayLeavesRoomForTheNext)
{
    UsbRedirPort port(reader, path);
    for (int i = 0; i < 3; ++i) {
        Machine machine(path);
        machine.hello();
        ASSERT_TRUE(machine.out(7, off));
        EXPECT_EQ(machine.bulkReply().id, 7U);
    }
}

TEST_F(SimUsbSocket, AMachineThatDoesNotReadIsNotListenedToUntilItDoes)
{
    UsbRedirPort port(reader, path);
    Machine machine(path);
    machine.hello();
    constexpr std::uint32_t kFar = 1000000; // packets: several megabytes of answers
    constexpr int kStuck = 1000;            // milliseconds
    std::uint32_t sent = 0;
    while (sent < kFar && machine.send(usb_redir_get_configuration, sent, {}, kStuck)) {
        ++sent;
    }
    ASSERT_LT(sent, kFar) << "the device takes questions without end";
    // Nothing is lost for it: every question is answered in its turn.
    for (std::uint32_t i = 0; i < sent; ++i) {
        const Packet packet = machine.receive();
        ASSERT_EQ(packet.type, usb_redir_configuration_status) << i;
        ASSERT_EQ(packet.id, i);
    }
    ASSERT_TRUE(machine.finishSending());
    EXPECT_EQ(machine.receive().id, sent);
}

TEST_F(SimUsbSocket, ThePortEndsWhileAMachineDoesNotRead)
{
    auto port = std::make_unique<UsbRedirPort>(reader, path);
    Machine machine(path);
    machine.hello();
    for (std::uint32_t i = 0; i < 1000000 && machine.send(usb_redir_get_configuration, i, {}, 1000); ++i) {}
    port.reset();
    EXPECT_FALSE(machine.finishSending()) << "the device is gone";
}

TEST_F(SimUsbSocket, MoreTransfersThanAHostHasAreRefused)
{
    UsbRedirPort port(reader, path);
    Machine machine(path);
    machine.hello();
    constexpr std::uint32_t kMost = 64;
    for (std::uint32_t i = 0; i < kMost + 10; ++i) {
        ASSERT_TRUE(machine.bulk(kIn, i, 64));
    }
    for (std::uint32_t i = kMost; i < kMost + 10; ++i) {
        const BulkReply refused = machine.bulkReply();
        EXPECT_EQ(refused.id, i);
        EXPECT_EQ(refused.status, usb_redir_ioerror);
    }
    ASSERT_TRUE(machine.out(1000, off));
    EXPECT_EQ(machine.bulkReply().id, 1000U);
    EXPECT_EQ(machine.bulkReply().id, 0U) << "the first that waits";
}

TEST_F(SimUsbSocket, AnswersThatNobodyFetchesAreLostBehindABound)
{
    UsbRedirPort port(reader, path);
    Machine machine(path);
    machine.hello();
    constexpr std::size_t kMost = 64 * 1024;
    const auto fitting = static_cast<std::uint32_t>(kMost / answer.size());
    for (std::uint32_t i = 0; i < fitting + 100; ++i) {
        ASSERT_TRUE(machine.out(i, off));
        ASSERT_EQ(machine.bulkReply().id, i);
    }
    for (std::uint32_t i = 0; i < fitting; ++i) {
        ASSERT_TRUE(machine.bulk(kIn, i, 512));
        ASSERT_EQ(toHex(machine.bulkReply().data), toHex(answer)) << i;
    }
    ASSERT_TRUE(machine.bulk(kIn, 5, 512));
    ASSERT_TRUE(machine.send(usb_redir_cancel_data_packet, 5, {}));
    EXPECT_EQ(machine.bulkReply().status, usb_redir_cancelled) << "there is no more";
    ASSERT_TRUE(machine.bulk(kIn, 6, 512));
    ASSERT_TRUE(machine.out(7, off));
    EXPECT_EQ(machine.bulkReply().id, 7U);
    EXPECT_EQ(machine.bulkReply().id, 6U) << "and the next answer has room again";
}

// When no descriptor is left the connection still waits at the door: the port must not ask for it without pause.
TEST_F(SimUsbSocket, AConnectionThatCannotBeTakenIsNotAskedForWithoutPause)
{
    acceptCalls = 0;
    noDescriptorLeft = true;
    UsbRedirPort port(reader, path);
    Machine machine(path);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const int calls = acceptCalls;
    noDescriptorLeft = false;
    EXPECT_LE(calls, 10);
    machine.hello(); // taken in the end
}

TEST_F(SimUsbSocket, MessagesShowThePathPrintably)
{
    try {
        const UsbRedirPort port(reader, directory + "/missing/\x1B[2J");
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find("/missing/<U+001B>[2J"), std::string::npos) << error.what();
    }
}

} // namespace
} // namespace vorn::sim

#endif
