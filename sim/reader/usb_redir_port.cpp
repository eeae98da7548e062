// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/usb_redir_port.h"

#include "sim/data/printable.h"
#include "sim/reader/behaviour.h"

#include <usbredirparser.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <system_error>
#include <thread>
#include <utility>

namespace vorn::sim {
namespace {

using Time = std::chrono::steady_clock::time_point;

constexpr std::uint16_t kVendor = 0x3A5C;
constexpr std::uint16_t kProduct = 0x7E21;
constexpr std::uint16_t kDeviceVersion = 0x0100;
constexpr std::uint8_t kVendorClass = 0xFF;
constexpr std::uint8_t kOutEndpoint = 0x01;
constexpr std::uint8_t kInEndpoint = 0x81;
constexpr std::uint16_t kPacketSize = 64;
constexpr std::uint8_t kConfiguration = 1;

// What may wait for one machine. A peer that asks without end and reads nothing is not listened to until it reads.
constexpr int kPacketsMax = 64;            // packets for the peer
constexpr std::size_t kTransfersMax = 64;  // transfers that wait for an answer; more are refused
constexpr std::size_t kAnswersMax = 65536; // bytes of answers that wait for a transfer; more are lost
constexpr std::size_t kReadMax = 262144;   // bytes taken in one turn, so that an end is noticed
constexpr int kAcceptPause = 100;          // milliseconds, when a connection could not be taken

constexpr std::uint8_t kLanguages = 0;
const char* const kStrings[] = {nullptr, "VORN", "DK7710", "SIM00001"};

// USB 2.0, 9.4 and 9.6.
constexpr std::uint8_t kGetStatus = 0x00;
constexpr std::uint8_t kGetDescriptor = 0x06;
constexpr std::uint8_t kDirectionIn = 0x80;
enum DescriptorType { kDevice = 1, kConfigurationType = 2, kString = 3 };

Bytes stringDescriptor(std::uint8_t index)
{
    Bytes bytes{0, kString};
    if (index == kLanguages) {
        bytes.insert(bytes.end(), {0x09, 0x04});
    } else if (index < std::size(kStrings)) {
        for (const char* c = kStrings[index]; *c != '\0'; ++c) {
            bytes.push_back(static_cast<std::uint8_t>(*c));
            bytes.push_back(0);
        }
    } else {
        return {};
    }
    bytes[0] = static_cast<std::uint8_t>(bytes.size());
    return bytes;
}

Bytes descriptor(const Behaviour& unit, std::uint16_t value)
{
    switch (value >> 8) {
    case kDevice:
        return unit.deviceDescriptor;
    case kConfigurationType:
        return unit.configurationDescriptor;
    case kString:
        return stringDescriptor(static_cast<std::uint8_t>(value & 0xFF));
    default:
        return {};
    }
}

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), printable(what));
}

// The machine at the other end of the socket, for as long as it is connected.
class Guest {
public:
    Guest(Reader& reader, int socket) : reader_(reader), socket_(socket), parser_(usbredirparser_create())
    {
        setCallbacks();
        std::uint32_t capabilities[USB_REDIR_CAPS_SIZE] = {};
        // All that QEMU's USB host controller asks for: it takes no device without them.
        for (const int capability : {usb_redir_cap_connect_device_version, usb_redir_cap_ep_info_max_packet_size,
                                     usb_redir_cap_64bits_ids, usb_redir_cap_32bits_bulk_length}) {
            usbredirparser_caps_set_cap(capabilities, capability);
        }
        usbredirparser_init(parser_, "vorn simulated reader", capabilities, USB_REDIR_CAPS_SIZE,
                            usbredirparser_fl_usb_host);
    }

    ~Guest()
    {
        usbredirparser_destroy(parser_);
        ::close(socket_);
    }
    Guest(const Guest&) = delete;
    Guest& operator=(const Guest&) = delete;

    int socket() const { return socket_; }
    bool connected() const { return connected_; }
    bool hasOutput() const { return usbredirparser_has_data_to_write(parser_) > 0; }

    bool listening() const { return usbredirparser_has_data_to_write(parser_) < kPacketsMax; }

    void read()
    {
        readNow_ = 0;
        usbredirparser_do_read(parser_);
    }

    // Answers that are due go into transfers that wait, and what is queued goes out as far as the peer takes it.
    void write()
    {
        fillTransfers();
        if (connected_ && hasOutput()) {
            usbredirparser_do_write(parser_);
        }
    }

    // Milliseconds until something is due; -1: nothing is.
    int dueIn() const
    {
        if (answers_.empty() || transfers_.empty()) {
            return -1;
        }
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(answers_.front().due - std::chrono::steady_clock::now());
        return static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, left.count()));
    }

private:
    struct Reply {
        Bytes bytes;
        Time due;
        bool ifSilent;
    };
    struct Transfer {
        std::uint64_t id;
        std::size_t size;
    };

    static Guest& of(void* self) { return *static_cast<Guest*>(self); }

    // The parser calls through every pointer it has a packet for, so every one is set.
    void setCallbacks()
    {
        parser_->priv = this;
        parser_->log_func = [](void*, int, const char*) {};
        parser_->read_func = [](void* self, std::uint8_t* data, int count) { return of(self).receive(data, count); };
        parser_->write_func = [](void* self, std::uint8_t* data, int count) { return of(self).send(data, count); };
        parser_->hello_func = [](void* self, usb_redir_hello_header*) { of(self).plugIn(); };
        parser_->set_configuration_func = [](void* self, std::uint64_t id, usb_redir_set_configuration_header*) {
            of(self).configured(id);
        };
        parser_->get_configuration_func = [](void* self, std::uint64_t id) { of(self).configured(id); };
        parser_->set_alt_setting_func = [](void* self, std::uint64_t id, usb_redir_set_alt_setting_header* header) {
            of(self).alternate(id, header->interface);
        };
        parser_->get_alt_setting_func = [](void* self, std::uint64_t id, usb_redir_get_alt_setting_header* header) {
            of(self).alternate(id, header->interface);
        };
        parser_->control_packet_func = [](void* self, std::uint64_t id, usb_redir_control_packet_header* header,
                                          std::uint8_t* data, int) {
            of(self).control(id, *header);
            usbredirparser_free_packet_data(of(self).parser_, data);
        };
        parser_->bulk_packet_func = [](void* self, std::uint64_t id, usb_redir_bulk_packet_header* header,
                                       std::uint8_t* data, int count) {
            of(self).bulk(id, *header, Bytes(data, data + count));
            usbredirparser_free_packet_data(of(self).parser_, data);
        };
        parser_->cancel_data_packet_func = [](void* self, std::uint64_t id) { of(self).cancel(id); };
        ignoreTheRest();
    }

    void ignoreTheRest()
    {
        parser_->device_connect_func = [](void*, usb_redir_device_connect_header*) {};
        parser_->device_disconnect_func = [](void*) {};
        parser_->reset_func = [](void*) {};
        parser_->interface_info_func = [](void*, usb_redir_interface_info_header*) {};
        parser_->ep_info_func = [](void*, usb_redir_ep_info_header*) {};
        parser_->configuration_status_func = [](void*, std::uint64_t, usb_redir_configuration_status_header*) {};
        parser_->alt_setting_status_func = [](void*, std::uint64_t, usb_redir_alt_setting_status_header*) {};
        parser_->start_iso_stream_func = [](void*, std::uint64_t, usb_redir_start_iso_stream_header*) {};
        parser_->stop_iso_stream_func = [](void*, std::uint64_t, usb_redir_stop_iso_stream_header*) {};
        parser_->iso_stream_status_func = [](void*, std::uint64_t, usb_redir_iso_stream_status_header*) {};
        parser_->start_interrupt_receiving_func = [](void*, std::uint64_t,
                                                     usb_redir_start_interrupt_receiving_header*) {};
        parser_->stop_interrupt_receiving_func = [](void*, std::uint64_t, usb_redir_stop_interrupt_receiving_header*) {
        };
        parser_->interrupt_receiving_status_func = [](void*, std::uint64_t,
                                                      usb_redir_interrupt_receiving_status_header*) {};
        parser_->alloc_bulk_streams_func = [](void*, std::uint64_t, usb_redir_alloc_bulk_streams_header*) {};
        parser_->free_bulk_streams_func = [](void*, std::uint64_t, usb_redir_free_bulk_streams_header*) {};
        parser_->bulk_streams_status_func = [](void*, std::uint64_t, usb_redir_bulk_streams_status_header*) {};
        parser_->start_bulk_receiving_func = [](void*, std::uint64_t, usb_redir_start_bulk_receiving_header*) {};
        parser_->stop_bulk_receiving_func = [](void*, std::uint64_t, usb_redir_stop_bulk_receiving_header*) {};
        parser_->bulk_receiving_status_func = [](void*, std::uint64_t, usb_redir_bulk_receiving_status_header*) {};
        parser_->filter_reject_func = [](void*) {};
        parser_->filter_filter_func = [](void*, usbredirfilter_rule* rules, int) { std::free(rules); };
        parser_->device_disconnect_ack_func = [](void*) {};
        parser_->iso_packet_func = [](void* self, std::uint64_t, usb_redir_iso_packet_header*, std::uint8_t* data,
                                      int) { usbredirparser_free_packet_data(of(self).parser_, data); };
        parser_->interrupt_packet_func = [](void* self, std::uint64_t, usb_redir_interrupt_packet_header*,
                                            std::uint8_t* data,
                                            int) { usbredirparser_free_packet_data(of(self).parser_, data); };
        parser_->buffered_bulk_packet_func = [](void* self, std::uint64_t, usb_redir_buffered_bulk_packet_header*,
                                                std::uint8_t* data,
                                                int) { usbredirparser_free_packet_data(of(self).parser_, data); };
    }

    // ------------------------------------------------------------ the socket

    int receive(std::uint8_t* data, int count)
    {
        if (!listening() || readNow_ >= kReadMax) {
            return 0;
        }
        const ssize_t n = ::recv(socket_, data, static_cast<std::size_t>(count), MSG_DONTWAIT);
        if (n > 0) {
            readNow_ += static_cast<std::size_t>(n);
            return static_cast<int>(n);
        }
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
            return 0;
        }
        connected_ = false;
        return -1;
    }

    int send(const std::uint8_t* data, int count)
    {
        const ssize_t n = ::send(socket_, data, static_cast<std::size_t>(count), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0 && errno != EINTR && errno != EAGAIN) {
            connected_ = false;
            return -1;
        }
        return n < 0 ? 0 : static_cast<int>(n);
    }

    // ------------------------------------------------------------ the device

    void plugIn()
    {
        constexpr int kFirstIn = 16; // where the table's endpoints IN begin
        usb_redir_ep_info_header endpoints{};
        std::fill(std::begin(endpoints.type), std::end(endpoints.type), std::uint8_t{usb_redir_type_invalid});
        for (const int index : {0, kFirstIn}) {
            endpoints.type[index] = usb_redir_type_control;
            endpoints.max_packet_size[index] = kPacketSize;
            endpoints.type[index + 1] = usb_redir_type_bulk;
            endpoints.max_packet_size[index + 1] = kPacketSize;
        }
        usbredirparser_send_ep_info(parser_, &endpoints);

        usb_redir_interface_info_header interfaces{};
        interfaces.interface_count = 1;
        interfaces.interface_class[0] = kVendorClass;
        usbredirparser_send_interface_info(parser_, &interfaces);

        usb_redir_device_connect_header device{};
        device.speed = usb_redir_speed_full;
        device.vendor_id = kVendor;
        device.product_id = kProduct;
        device.device_version_bcd = kDeviceVersion;
        usbredirparser_send_device_connect(parser_, &device);
    }

    void configured(std::uint64_t id)
    {
        usb_redir_configuration_status_header status{usb_redir_success, kConfiguration};
        usbredirparser_send_configuration_status(parser_, id, &status);
    }

    void alternate(std::uint64_t id, std::uint8_t interface)
    {
        usb_redir_alt_setting_status_header status{usb_redir_success, interface, 0};
        usbredirparser_send_alt_setting_status(parser_, id, &status);
    }

    void control(std::uint64_t id, usb_redir_control_packet_header header)
    {
        Bytes answer;
        header.status = usb_redir_success;
        if (header.request == kGetDescriptor) {
            answer = descriptor(reader_.behaviour(), header.value);
            header.status = answer.empty() ? usb_redir_stall : usb_redir_success;
        } else if (header.request == kGetStatus && (header.requesttype & kDirectionIn) != 0) {
            answer = {0, 0};
        }
        if (answer.size() > header.length) {
            answer.resize(header.length);
        }
        header.length = static_cast<std::uint16_t>(answer.size());
        usbredirparser_send_control_packet(parser_, id, &header, answer.data(), static_cast<int>(answer.size()));
    }

    void bulk(std::uint64_t id, usb_redir_bulk_packet_header header, const Bytes& data)
    {
        if (header.endpoint == kInEndpoint) {
            if (transfers_.size() < kTransfersMax) {
                transfers_.push_back({id, header.length + (std::size_t{header.length_high} << 16)});
            } else {
                finish(id, usb_redir_ioerror, {});
            }
            return;
        }
        header.status = header.endpoint == kOutEndpoint ? usb_redir_success : usb_redir_stall;
        usbredirparser_send_bulk_packet(parser_, id, &header, nullptr, 0);
        if (header.endpoint == kOutEndpoint) {
            dropIfSilent();
            const Time now = std::chrono::steady_clock::now();
            for (const Reader::Output& output : reader_.receive(data)) {
                answer(output, now);
            }
        }
    }

    // Something has come in, so what was for silence is not said.
    void dropIfSilent()
    {
        while (!answers_.empty() && answers_.back().ifSilent) {
            waiting_ -= answers_.back().bytes.size();
            answers_.pop_back();
        }
    }

    void answer(const Reader::Output& output, Time now)
    {
        using ZeroPacket = Behaviour::ZeroPacket;
        if (waiting_ + output.bytes.size() > kAnswersMax) {
            return;
        }
        waiting_ += output.bytes.size();
        answers_.push_back({output.bytes, now + output.delay, output.ifSilent});
        const ZeroPacket zero = reader_.behaviour().zeroPacket;
        const bool whole = output.bytes.size() % static_cast<std::size_t>(reader_.behaviour().packetSize) == 0;
        if (zero == ZeroPacket::Always || (zero == ZeroPacket::AfterWholePackets && whole)) {
            answers_.push_back({{}, now + output.delay, output.ifSilent});
        }
    }

    void cancel(std::uint64_t id)
    {
        const auto found = std::find_if(transfers_.begin(), transfers_.end(),
                                        [id](const Transfer& transfer) { return transfer.id == id; });
        if (found != transfers_.end()) {
            transfers_.erase(found);
            finish(id, usb_redir_cancelled, {});
        }
    }

    void fillTransfers()
    {
        while (!transfers_.empty() && !answers_.empty() && answers_.front().due <= std::chrono::steady_clock::now()) {
            Bytes& answer = answers_.front().bytes;
            const auto packet = static_cast<std::size_t>(reader_.behaviour().packetSize);
            const std::size_t size = std::min({answer.size(), transfers_.front().size, packet});
            const auto end = answer.begin() + static_cast<Bytes::difference_type>(size);
            finish(transfers_.front().id, usb_redir_success, Bytes(answer.begin(), end));
            transfers_.pop_front();
            waiting_ -= size;
            answer.erase(answer.begin(), end);
            if (answer.empty()) {
                answers_.pop_front();
            }
        }
    }

    void finish(std::uint64_t id, std::uint8_t status, Bytes bytes)
    {
        usb_redir_bulk_packet_header header{};
        header.endpoint = kInEndpoint;
        header.status = status;
        header.length = static_cast<std::uint16_t>(bytes.size());
        usbredirparser_send_bulk_packet(parser_, id, &header, bytes.data(), static_cast<int>(bytes.size()));
    }

    Reader& reader_;
    int socket_;
    usbredirparser* parser_;
    bool connected_ = true;
    std::deque<Transfer> transfers_;
    std::deque<Reply> answers_;
    std::size_t waiting_ = 0; // bytes in them
    std::size_t readNow_ = 0; // bytes in this turn
};

} // namespace

struct UsbRedirPort::State {
    State(Reader& theReader, std::string socketPath) : reader(theReader), path(std::move(socketPath)) {}
    ~State()
    {
        if (listener >= 0) {
            ::close(listener);
            ::unlink(path.c_str());
        }
        if (stop >= 0) {
            ::close(stop);
        }
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void listen();
    void serve();
    bool serveGuest(Guest& guest) const;
    bool stopped(int timeoutMs, int other, short events, bool& ready) const;

    Reader& reader;
    std::string path;
    int listener = -1;
    int stop = -1;
    std::thread thread;
};

void UsbRedirPort::State::listen()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        fail("the socket " + path);
    }
    std::copy(path.begin(), path.end(), address.sun_path);
    stop = ::eventfd(0, EFD_CLOEXEC);
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (stop < 0 || descriptor < 0) {
        fail("cannot make the socket " + path);
    }
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(descriptor, 1) != 0) {
        const int error = errno;
        ::close(descriptor);
        errno = error;
        fail("cannot listen on the socket " + path);
    }
    listener = descriptor;
}

// Waits for the descriptor or the end. True: the end.
bool UsbRedirPort::State::stopped(int timeoutMs, int other, short events, bool& ready) const
{
    pollfd watched[] = {{stop, POLLIN, 0}, {other, events, 0}};
    ::poll(watched, 2, timeoutMs);
    ready = watched[1].revents != 0;
    return watched[0].revents != 0;
}

bool UsbRedirPort::State::serveGuest(Guest& guest) const
{
    while (guest.connected()) {
        const auto events = static_cast<short>((guest.listening() ? POLLIN : 0) | (guest.hasOutput() ? POLLOUT : 0));
        bool ready = false;
        if (stopped(guest.dueIn(), guest.socket(), events, ready)) {
            return false;
        }
        if (ready) {
            guest.read();
        }
        guest.write();
    }
    return true;
}

void UsbRedirPort::State::serve()
{
    for (;;) {
        bool ready = false;
        if (stopped(-1, listener, POLLIN, ready)) {
            return;
        }
        const int connection = ready ? ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC) : -1;
        if (connection < 0) {
            // No descriptor left, and the machine still waits at the door: asking again at once would not help.
            if (stopped(kAcceptPause, -1, 0, ready)) {
                return;
            }
            continue;
        }
        Guest guest(reader, connection);
        guest.write();
        if (!serveGuest(guest)) {
            return;
        }
    }
}

UsbRedirPort::UsbRedirPort(Reader& reader, std::string socketPath)
    : state_(std::make_unique<State>(reader, std::move(socketPath)))
{
    state_->listen();
    state_->thread = std::thread([state = state_.get()] {
        try {
            state->serve();
        } catch (const std::exception&) { // out of memory: the device falls silent, and its process goes on
        }
    });
}

UsbRedirPort::~UsbRedirPort()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(state_->stop, &one, sizeof one);
    state_->thread.join();
}

} // namespace vorn::sim
