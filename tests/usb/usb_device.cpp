// SPDX-License-Identifier: Apache-2.0
#include "usb/usb_device.h"

#include <umockdev.h>

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <system_error>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace vorn::test {
namespace {

const char kNode[] = "/dev/bus/usb/001/002";
const char kDevice[] = "/sys/devices/usb1/1-2";
const char kInterface[] = "/sys/devices/usb1/1-2/1-2:1.0";
const char* const kBystanders[] = {"/sys/devices/usb1/1-1", "/sys/devices/usb1/1-3"}; // listed before and behind it

// ---------------------------------------------------------------- descriptors (USB 2.0, 9.6)

Bytes deviceDescriptor(const UsbDescription& description)
{
    const auto low = [](unsigned value) { return static_cast<std::uint8_t>(value & 0xFF); };
    const auto high = [](unsigned value) { return static_cast<std::uint8_t>(value >> 8); };
    return {0x12,
            0x01,
            0x00,
            0x02,
            0x00,
            0x00,
            0x00,
            0x40,
            low(description.vendor),
            high(description.vendor),
            low(description.product),
            high(description.product),
            0x00,
            0x01,
            0x01,
            0x02,
            0x03,
            0x01};
}

void appendInterface(Bytes& to, std::uint8_t number, std::uint8_t alternate, const UsbDescription::Endpoints& endpoints)
{
    const auto count = static_cast<std::uint8_t>(endpoints.size());
    to.insert(to.end(), {0x09, 0x04, number, alternate, count, 0xFF, 0x00, 0x00, 0x00});
    for (const std::uint8_t address : endpoints) {
        to.insert(to.end(), {0x07, 0x05, address, 0x02, UsbDevice::kPacketSize, 0x00, 0x00});
    }
}

Bytes configuration(const UsbDescription& description)
{
    Bytes interfaces;
    std::uint8_t number = 0;
    for (const UsbDescription::Alternates& alternates : description.interfaces) {
        std::uint8_t alternate = 0;
        for (const UsbDescription::Endpoints& endpoints : alternates) {
            appendInterface(interfaces, number, alternate++, endpoints);
        }
        ++number;
    }
    constexpr std::size_t kHeader = 9;
    const std::size_t total = kHeader + interfaces.size();
    const std::uint8_t header[kHeader] = {
        0x09, 0x02, static_cast<std::uint8_t>(total & 0xFF), static_cast<std::uint8_t>(total >> 8), number, 0x01, 0x00,
        0x80, 0x32};
    interfaces.insert(interfaces.begin(), header, header + kHeader);
    return interfaces;
}

std::string descriptors(const UsbDescription& description)
{
    return toHex(deviceDescriptor(description)) + toHex(configuration(description));
}

std::string hexWord(std::uint16_t word)
{
    char text[8];
    std::snprintf(text, sizeof text, "%04x", unsigned{word});
    return text;
}

// ---------------------------------------------------------------- the device's files

// `place`: "1-2" with number 2, "1-1" with number 3, "1-3" with number 4.
std::string deviceText(const std::string& place, int number, const UsbDescription& description)
{
    const std::string digit = std::to_string(number);
    const std::string vendor = hexWord(description.vendor);
    const std::string product = hexWord(description.product);
    return "P: /devices/usb1/" + place + "\nN: bus/usb/001/00" + digit +
           "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNAME=/dev/bus/usb/001/00" + digit +
           "\nE: DRIVER=usb\nE: BUSNUM=001\nE: DEVNUM=00" + digit +
           "\nE: MAJOR=189\nE: MINOR=" + std::to_string(number - 1) + "\nE: PRODUCT=" + vendor + "/" + product +
           "/100\nA: dev=189:" + std::to_string(number - 1) + "\\n\nA: busnum=1\\n\nA: devnum=" + digit +
           "\\n\nA: bConfigurationValue=1\\n\nA: speed=12\\n\nA: idVendor=" + vendor + "\\n\nA: idProduct=" + product +
           "\\n\nH: descriptors=" + descriptors(description) + "\n";
}

const char kInterfaceText[] = "P: /devices/usb1/1-2/1-2:1.0\n"
                              "E: SUBSYSTEM=usb\n"
                              "E: DEVTYPE=usb_interface\n"
                              "E: DRIVER=\n"
                              "E: INTERFACE=255/0/0\n"
                              "E: PRODUCT=3a5c/7e21/100\n"
                              "A: bInterfaceNumber=00\\n\n"
                              "A: bInterfaceClass=ff\\n\n";

const char kRootHubText[] = "P: /devices/usb1\n"
                            "N: bus/usb/001/001\n"
                            "E: SUBSYSTEM=usb\n"
                            "E: DEVTYPE=usb_device\n"
                            "E: DEVNAME=/dev/bus/usb/001/001\n"
                            "E: DRIVER=usb\n"
                            "E: BUSNUM=001\n"
                            "E: DEVNUM=001\n"
                            "E: MAJOR=189\n"
                            "E: MINOR=0\n"
                            "E: PRODUCT=1d6b/2/603\n"
                            "A: dev=189:0\\n\n"
                            "A: busnum=1\\n\n"
                            "A: devnum=1\\n\n"
                            "A: bConfigurationValue=1\\n\n"
                            "A: speed=480\\n\n"
                            "A: idVendor=1d6b\\n\n"
                            "A: idProduct=0002\\n\n"
                            "H: descriptors=12010002090001406B1D020000060302010109021900010100E00009040000010900000007"
                            "05810304000C\n";

// The node as a FIFO: usbfs says "writable" when a transfer can be reaped, and a regular file would always say so.
class Node {
public:
    explicit Node(std::string path) : path_(std::move(path)) {}
    ~Node() { close(); }
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    void make()
    {
        close();
        unlink(path_.c_str());
        if (mkfifo(path_.c_str(), 0666) != 0) {
            throw std::runtime_error("no FIFO at " + path_);
        }
        fifo_ = open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (fifo_ < 0 || fcntl(fifo_, F_SETPIPE_SZ, 4096) < 0) {
            throw std::runtime_error("the FIFO at " + path_ + " cannot be used");
        }
        setWritable(false);
    }
    void close()
    {
        if (fifo_ >= 0) {
            ::close(fifo_);
            fifo_ = -1;
        }
    }
    int descriptors() const { return fifo_ >= 0 ? 1 : 0; }
    void setWritable(bool writable)
    {
        char bytes[4096] = {};
        if (writable) {
            while (read(fifo_, bytes, sizeof bytes) > 0) {}
        } else {
            while (write(fifo_, bytes, sizeof bytes) > 0) {}
        }
    }

private:
    std::string path_;
    int fifo_ = -1;
};

// ---------------------------------------------------------------- references of GLib

struct DataDeleter {
    void operator()(UMockdevIoctlData* data) const { g_object_unref(data); }
};
using Data = std::unique_ptr<UMockdevIoctlData, DataDeleter>;

Data argumentOf(UMockdevIoctlClient* client, std::size_t size)
{
    UMockdevIoctlData* argument = umockdev_ioctl_client_get_arg(client);
    return Data(umockdev_ioctl_data_resolve(argument, 0, size, nullptr));
}

template <class T>
T valueOf(const Data& data)
{
    T value; // not value{}: some of the kernel's records end with an array of no size
    std::memset(&value, 0, sizeof value);
    std::memcpy(&value, data->data, std::min(sizeof value, static_cast<std::size_t>(data->data_len)));
    return value;
}

template <class T>
void update(const Data& data, std::size_t offset, const T& value)
{
    T copy = value;
    umockdev_ioctl_data_update(data.get(), offset, reinterpret_cast<guint8*>(&copy), int{sizeof copy});
}

struct Answer {
    long result;
    int error;
};
constexpr Answer kOk = {0, 0};
Answer failure(int error) { return {-1, error}; }

// ---------------------------------------------------------------- transfers

struct Transfer {
    Data urb;
    Data buffer;
    unsigned long address = 0; // of the urb, in the host
    std::size_t size = 0;
};

struct Packet {
    Bytes bytes;
    int status = 0;
};

void finish(Transfer& transfer, int status, std::size_t count)
{
    update(transfer.urb, offsetof(usbdevfs_urb, status), status);
    update(transfer.urb, offsetof(usbdevfs_urb, actual_length), static_cast<int>(count));
}

bool hostMayUse([[maybe_unused]] const Transfer& transfer)
{
#if defined(__SANITIZE_ADDRESS__)
    // What usbfs does with the host's buffer is out of the sanitizer's sight.
    void* const address = reinterpret_cast<void*>(transfer.buffer->client_addr);
    return __asan_region_is_poisoned(address, transfer.size) == nullptr;
#else
    return true;
#endif
}

} // namespace

// ---------------------------------------------------------------- the emulation

struct UsbDevice::State {
    explicit State(UsbDevice& owner);

    void reset();
    void removeFromSystem(const char* path);
    Answer handle(UMockdevIoctlClient* client, unsigned long request);
    Answer getCapabilities(UMockdevIoctlClient* client);
    Answer getDriver(UMockdevIoctlClient* client);
    Answer driverCommand(UMockdevIoctlClient* client);
    Answer claim(UMockdevIoctlClient* client);
    Answer release(UMockdevIoctlClient* client);
    Answer submit(UMockdevIoctlClient* client);
    Answer write(Transfer transfer);
    Answer reap(UMockdevIoctlClient* client);
    Answer discard(UMockdevIoctlClient* client);
    void match();
    void vanish();
    void done(Transfer transfer);

    // GLib's callbacks, on the emulation's thread.
    static gboolean onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer state);
    static void onVanished(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer state);

    UsbDevice& owner;
    UMockdevTestbed* testbed;
    UMockdevIoctlBase* base;
    Node node;

    mutable std::recursive_mutex mutex; // callbacks come on the emulation's thread
    bool inSystem = false, announced = false, bystandersInSystem = false;
    std::vector<std::uint8_t> endpoints;
    std::string driver;
    bool detachingRefused = false;
    bool gone = false;
    bool goneWhenAsked = false;
    int writeStatus = 0;
    std::deque<Packet> packets;
    std::deque<Transfer> waiting, reapable;
    UMockdevIoctlClient* claimer = nullptr;
    std::vector<Write> writes;
    std::vector<std::size_t> readSizes;
    std::uint8_t lastReadEndpoint = 0;
    std::vector<std::string> calls;
};

namespace {

std::string pathBelow(UMockdevTestbed* testbed, const char* path)
{
    char* root = umockdev_testbed_get_root_dir(testbed);
    std::string full = std::string(root) + path;
    g_free(root);
    return full;
}

void addFromText(UMockdevTestbed* testbed, const std::string& text)
{
    GError* error = nullptr;
    if (umockdev_testbed_add_from_string(testbed, text.c_str(), &error) == FALSE) {
        throw std::runtime_error(std::string("the device was not added: ") + error->message);
    }
}

} // namespace

UsbDevice::State::State(UsbDevice& device)
    : owner(device), testbed(umockdev_testbed_new()), base(umockdev_ioctl_base_new()), node(pathBelow(testbed, kNode))
{
    addFromText(testbed, kRootHubText);
}

void UsbDevice::State::reset()
{
    driver.clear();
    detachingRefused = gone = goneWhenAsked = false;
    writeStatus = 0;
    packets.clear();
    waiting.clear();
    reapable.clear();
    claimer = nullptr;
    writes.clear();
    readSizes.clear();
    lastReadEndpoint = 0;
    calls.clear();
}

void UsbDevice::State::removeFromSystem(const char* path)
{
    umockdev_testbed_uevent(testbed, path, "remove");
    umockdev_testbed_remove_device(testbed, path);
}

Answer UsbDevice::State::handle(UMockdevIoctlClient* client, unsigned long request)
{
    if (gone && request != USBDEVFS_REAPURBNDELAY) {
        return failure(ENODEV);
    }
    switch (request) {
    case USBDEVFS_GET_CAPABILITIES:
        return getCapabilities(client);
    case USBDEVFS_GETDRIVER:
        return getDriver(client);
    case USBDEVFS_IOCTL:
        return driverCommand(client);
    case USBDEVFS_CLAIMINTERFACE:
        return claim(client);
    case USBDEVFS_RELEASEINTERFACE:
        return release(client);
    case USBDEVFS_SUBMITURB:
        return submit(client);
    case USBDEVFS_REAPURBNDELAY:
        return reap(client);
    case USBDEVFS_DISCARDURB:
        return discard(client);
    case USBDEVFS_SETCONFIGURATION:
    case USBDEVFS_SETINTERFACE:
    case USBDEVFS_CLEAR_HALT:
    case USBDEVFS_RESETEP:
    case USBDEVFS_RESET:
        return kOk;
    default:
        calls.push_back("unknown request " + std::to_string(request));
        return failure(ENOTTY);
    }
}

Answer UsbDevice::State::getCapabilities(UMockdevIoctlClient* client)
{
    const std::uint32_t capabilities = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION |
                                       USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_BULK_SCATTER_GATHER |
                                       USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
    update(argumentOf(client, sizeof capabilities), 0, capabilities);
    return kOk;
}

Answer UsbDevice::State::getDriver(UMockdevIoctlClient* client)
{
    calls.emplace_back("driver?");
    const std::string name = claimer != nullptr ? "usbfs" : driver;
    if (name.empty()) {
        return failure(ENODATA);
    }
    const Data argument = argumentOf(client, sizeof(usbdevfs_getdriver));
    auto driverName = valueOf<usbdevfs_getdriver>(argument);
    std::snprintf(driverName.driver, sizeof driverName.driver, "%s", name.c_str());
    update(argument, 0, driverName);
    return kOk;
}

Answer UsbDevice::State::driverCommand(UMockdevIoctlClient* client)
{
    const auto command = valueOf<usbdevfs_ioctl>(argumentOf(client, sizeof(usbdevfs_ioctl)));
    if (command.ioctl_code != int{USBDEVFS_DISCONNECT}) {
        calls.emplace_back("unknown driver command");
        return failure(ENOTTY);
    }
    calls.emplace_back("detach");
    if (driver.empty()) {
        return failure(ENODATA);
    }
    if (detachingRefused) {
        return failure(EPERM);
    }
    driver.clear();
    return kOk;
}

Answer UsbDevice::State::claim(UMockdevIoctlClient* client)
{
    const std::string number = std::to_string(valueOf<unsigned>(argumentOf(client, sizeof(unsigned))));
    if (!driver.empty() || (claimer != nullptr && claimer != client)) {
        calls.push_back("claim " + number + " busy");
        return failure(EBUSY);
    }
    calls.push_back("claim " + number);
    claimer = client;
    return kOk;
}

Answer UsbDevice::State::release(UMockdevIoctlClient* client)
{
    calls.push_back("release " + std::to_string(valueOf<unsigned>(argumentOf(client, sizeof(unsigned)))));
    if (claimer != client) {
        return failure(EINVAL);
    }
    claimer = nullptr;
    return kOk;
}

Answer UsbDevice::State::submit(UMockdevIoctlClient* client)
{
    Transfer transfer;
    transfer.urb = argumentOf(client, sizeof(usbdevfs_urb));
    const auto urb = valueOf<usbdevfs_urb>(transfer.urb);
    transfer.address = transfer.urb->client_addr;
    transfer.size = static_cast<std::size_t>(urb.buffer_length);
    transfer.buffer.reset(
        umockdev_ioctl_data_resolve(transfer.urb.get(), offsetof(usbdevfs_urb, buffer), transfer.size, nullptr));
    if (std::find(endpoints.begin(), endpoints.end(), urb.endpoint) == endpoints.end()) {
        return failure(ENOENT);
    }
    if (!transfer.buffer || !hostMayUse(transfer)) {
        calls.emplace_back("bad buffer");
        return failure(EFAULT);
    }
    if ((urb.endpoint & 0x80) == 0) {
        const std::uint8_t* bytes = transfer.buffer->data;
        writes.push_back({urb.endpoint, Bytes(bytes, bytes + transfer.size)});
        return write(std::move(transfer));
    }
    readSizes.push_back(transfer.size);
    lastReadEndpoint = urb.endpoint;
    waiting.push_back(std::move(transfer));
    match();
    if (goneWhenAsked && !waiting.empty()) {
        vanish();
    }
    return kOk;
}

Answer UsbDevice::State::write(Transfer transfer)
{
    const Bytes bytes = writes.back().bytes;
    finish(transfer, writeStatus, writeStatus == 0 ? transfer.size : 0);
    done(std::move(transfer));
    if (writeStatus == 0 && owner.onWrite) {
        owner.onWrite(bytes);
    }
    return kOk;
}

Answer UsbDevice::State::reap(UMockdevIoctlClient* client)
{
    if (reapable.empty()) {
        return failure(gone ? ENODEV : EAGAIN);
    }
    const Transfer transfer = std::move(reapable.front());
    reapable.pop_front();
    node.setWritable(gone || !reapable.empty());
    const Data slot = argumentOf(client, sizeof(void*));
    umockdev_ioctl_data_set_ptr(slot.get(), 0, transfer.urb.get());
    return kOk;
}

Answer UsbDevice::State::discard(UMockdevIoctlClient* client)
{
    // Here the argument is the urb's address itself.
    unsigned long address = 0;
    std::memcpy(&address, umockdev_ioctl_client_get_arg(client)->data, sizeof address);
    const auto found = std::find_if(waiting.begin(), waiting.end(),
                                    [address](const Transfer& transfer) { return transfer.address == address; });
    if (found == waiting.end()) {
        return failure(EINVAL);
    }
    Transfer transfer = std::move(*found);
    waiting.erase(found);
    finish(transfer, -ENOENT, 0);
    done(std::move(transfer));
    return kOk;
}

// Hands the packets that are there to the transfers that wait for them.
void UsbDevice::State::match()
{
    while (!waiting.empty() && !packets.empty()) {
        Transfer transfer = std::move(waiting.front());
        waiting.pop_front();
        const Packet packet = std::move(packets.front());
        packets.pop_front();
        Bytes bytes = packet.bytes;
        const bool tooLong = bytes.size() > transfer.size;
        bytes.resize(std::min(bytes.size(), transfer.size));
        if (!bytes.empty()) {
            umockdev_ioctl_data_update(transfer.buffer.get(), 0, bytes.data(), static_cast<int>(bytes.size()));
        }
        finish(transfer, tooLong ? -EOVERFLOW : packet.status, bytes.size());
        done(std::move(transfer));
    }
}

void UsbDevice::State::vanish()
{
    gone = true;
    while (!waiting.empty()) {
        Transfer transfer = std::move(waiting.front());
        waiting.pop_front();
        finish(transfer, -ENODEV, 0);
        reapable.push_back(std::move(transfer));
    }
    node.setWritable(true);
}

void UsbDevice::State::done(Transfer transfer)
{
    reapable.push_back(std::move(transfer));
    node.setWritable(true);
}

gboolean UsbDevice::State::onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer pointer)
{
    auto& state = *static_cast<UsbDevice::State*>(pointer);
    const std::lock_guard<std::recursive_mutex> lock(state.mutex);
    const Answer answer = state.handle(client, umockdev_ioctl_client_get_request(client));
    umockdev_ioctl_client_complete(client, answer.result, answer.error);
    return TRUE;
}

// The kernel takes back what a closed handle had claimed.
void UsbDevice::State::onVanished(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer pointer)
{
    auto& state = *static_cast<UsbDevice::State*>(pointer);
    const std::lock_guard<std::recursive_mutex> lock(state.mutex);
    if (state.claimer == client) {
        state.claimer = nullptr;
    }
}

// ---------------------------------------------------------------- what the tests see

UsbDevice& UsbDevice::instance()
{
    // Its thread may outlive the end of main, so it is never destroyed; its files go.
    static UsbDevice* const device = [] {
        auto* const made = new UsbDevice;
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(pathBelow(instance().state_->testbed, ""), ignored);
        });
        return made;
    }();
    return *device;
}

UsbDevice::UsbDevice() : state_(std::make_unique<State>(*this))
{
    g_signal_connect(state_->base, "handle-ioctl", G_CALLBACK(&State::onIoctl), state_.get());
    g_signal_connect(state_->base, "client-vanished", G_CALLBACK(&State::onVanished), state_.get());
    GError* error = nullptr;
    if (umockdev_testbed_attach_ioctl(state_->testbed, kNode, state_->base, &error) == FALSE) {
        throw std::runtime_error(std::string("no ioctl handler: ") + error->message);
    }
}

void UsbDevice::plug(const UsbDescription& description)
{
    unplug();
    addFromText(state_->testbed, deviceText("1-2", 2, description));
    state_->node.make();
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    state_->reset();
    state_->inSystem = true;
    state_->endpoints.clear();
    for (const UsbDescription::Alternates& alternates : description.interfaces) {
        for (const UsbDescription::Endpoints& endpoints : alternates) {
            state_->endpoints.insert(state_->endpoints.end(), endpoints.begin(), endpoints.end());
        }
    }
    onWrite = {};
}

void UsbDevice::plugBystanders(const UsbDescription& description)
{
    addFromText(state_->testbed, deviceText("1-1", 3, description));
    addFromText(state_->testbed, deviceText("1-3", 4, description));
    state_->bystandersInSystem = true;
}

void UsbDevice::announce()
{
    addFromText(state_->testbed, kInterfaceText);
    state_->announced = true;
    umockdev_testbed_uevent(state_->testbed, kDevice, "add");
    umockdev_testbed_uevent(state_->testbed, kInterface, "add");
}

void UsbDevice::unplug()
{
    if (state_->inSystem) {
        vanish();
        if (state_->announced) {
            state_->removeFromSystem(kInterface);
            state_->announced = false;
        }
        state_->removeFromSystem(kDevice);
        state_->inSystem = false;
    }
    if (state_->bystandersInSystem) {
        for (const char* const bystander : kBystanders) {
            state_->removeFromSystem(bystander);
        }
        state_->bystandersInSystem = false;
    }
}

void UsbDevice::bindDriver(const std::string& name)
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    state_->driver = name;
}

void UsbDevice::refuseDetaching(bool refuse)
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    state_->detachingRefused = refuse;
}

void UsbDevice::send(const Bytes& bytes)
{
    for (std::size_t at = 0; at < bytes.size(); at += kPacketSize) {
        const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        const std::size_t size = std::min(kPacketSize, bytes.size() - at);
        sendPacket(Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)));
    }
}

void UsbDevice::sendPacket(const Bytes& bytes)
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    state_->packets.push_back({bytes, 0});
    state_->match();
}

void UsbDevice::sendError(int urbStatus)
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    state_->packets.push_back({{}, urbStatus});
    state_->match();
}

void UsbDevice::refuseWrites(int urbStatus)
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    state_->writeStatus = urbStatus;
}

void UsbDevice::vanish()
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    state_->vanish();
}

void UsbDevice::vanishWhenAsked()
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    state_->goneWhenAsked = true;
}

std::vector<UsbDevice::Write> UsbDevice::writes() const
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    return state_->writes;
}

std::vector<std::size_t> UsbDevice::readSizes() const
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    return state_->readSizes;
}

std::uint8_t UsbDevice::lastReadEndpoint() const
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    return state_->lastReadEndpoint;
}

std::vector<std::string> UsbDevice::calls() const
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    return state_->calls;
}

std::size_t UsbDevice::packetsLeft() const
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    return state_->packets.size();
}

bool UsbDevice::claimed() const
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    return state_->claimer != nullptr;
}

int UsbDevice::openHandles() const
{
    const std::string node = pathBelow(state_->testbed, kNode); // followed by " (deleted)" once it was unplugged
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
        count += target.compare(0, node.size(), node) == 0 ? 1 : 0;
    }
    return count - state_->node.descriptors();
}

void UsbDevice::forget()
{
    const std::lock_guard<std::recursive_mutex> lock(state_->mutex);
    state_->writes.clear();
    state_->readSizes.clear();
    state_->calls.clear();
}

} // namespace vorn::test
