// SPDX-License-Identifier: Apache-2.0
// The functions that the PC/SC daemon calls (IFD handler 3.0), over one reader.
#include "link/waiting.h"

#include "ifd/card_reader.h"
#include "ifd/channels.h"
#include "ifd/daemon_log.h"

// The daemon finds them by their names.
#pragma GCC visibility push(default)
extern "C" {
#include <ifdhandler.h>
#include <reader.h>
}
#pragma GCC visibility pop

#include <cstring>

namespace vorn::ifd {
namespace {

CardReader cardReader(monotonicMilliseconds);
Channels channels;

// ---------------------------------------------------------------- what goes out

// A caller's buffer and its length, which is the room at first and the bytes written in the end.
class Out {
public:
    Out(UCHAR* bytes, DWORD* length, DWORD room) : bytes_(bytes), length_(length), room_(bytes == nullptr ? 0 : room)
    {
        setLength(0);
    }

    RESPONSECODE put(const void* bytes, std::size_t size)
    {
        if (size > room_) {
            return IFD_ERROR_INSUFFICIENT_BUFFER;
        }
        if (size != 0) {
            std::memcpy(bytes_, bytes, size);
        }
        setLength(size);
        return IFD_SUCCESS;
    }
    RESPONSECODE put(ByteView bytes) { return put(bytes.data(), bytes.size()); }
    RESPONSECODE putByte(std::uint8_t value) { return put(&value, sizeof value); }
    RESPONSECODE putNumber(std::uint32_t value) { return put(&value, sizeof value); } // in the machine's order
    RESPONSECODE putText(const char* text) { return put(text, std::strlen(text) + 1); }

private:
    void setLength(std::size_t size)
    {
        if (length_ != nullptr) {
            *length_ = size;
        }
    }

    UCHAR* bytes_;
    DWORD* length_;
    DWORD room_;
};

DWORD roomOf(const DWORD* length) { return length == nullptr ? 0 : *length; }

// ---------------------------------------------------------------- capabilities and attributes

constexpr DWORD kProtocolT0 = SCARD_PROTOCOL_T0;
constexpr DWORD kProtocolT1 = SCARD_PROTOCOL_T1;
constexpr std::uint32_t kShortApduMax = 4 + 1 + 255 + 1;
constexpr std::uint32_t kShortDataMax = 256;
constexpr std::uint32_t kDriverVersion =
    (VORN_VERSION_MAJOR << 24) + (VORN_VERSION_MINOR << 16) + VORN_VERSION_PATCH; // 0xMMmmbbbb
constexpr std::uint32_t kSerialChannel = 0x00010000;
constexpr std::uint32_t kUsbChannel = 0x00200000;
constexpr std::uint8_t kPresentInPlace = 2; // PC/SC: 1 is for readers that draw a card in
constexpr std::uint8_t kAsynchronousCard = 1;

struct Asked {
    Place place;
    const Channel& channel;
};

// T after the reset, as a client's protocol. Over the field there is one way for commands, whatever a client calls it.
DWORD protocolsInUse(Place place, const Atr& atr)
{
    if (place == Place::Contactless) {
        return kProtocolT0 | kProtocolT1;
    }
    switch (readAtr(atr.view()).protocol) {
    case 0:
        return kProtocolT0;
    case 1:
        return kProtocolT1;
    default:
        return 0;
    }
}

RESPONSECODE putAtr(const Asked& asked, Out& out)
{
    Atr atr;
    return cardReader.answerToReset(asked.place, atr) ? out.put(atr.view()) : RESPONSECODE{IFD_ICC_NOT_PRESENT};
}

RESPONSECODE putProtocol(const Asked& asked, Out& out)
{
    Atr atr;
    if (!cardReader.answerToReset(asked.place, atr)) {
        return IFD_ICC_NOT_PRESENT;
    }
    const DWORD agreed = asked.channel.protocol;
    const DWORD inUse = agreed != 0 ? agreed : protocolsInUse(asked.place, atr);
    return out.putNumber(static_cast<std::uint32_t>(inUse));
}

struct Capability {
    DWORD tag;
    RESPONSECODE (*put)(const Asked& asked, Out& out);
};

// What the reader does not tell (clocks, data rates, a serial number) is not answered.
constexpr Capability kCapabilities[] = {
    {TAG_IFD_ATR, putAtr},
    {SCARD_ATTR_ATR_STRING, putAtr},
    {TAG_IFD_SLOTS_NUMBER,
     [](const Asked& a, Out& out) { return out.putByte(static_cast<std::uint8_t>(a.channel.slots)); }},
    // Each place may be a reader of its own in the daemon's configuration.
    {TAG_IFD_SIMULTANEOUS_ACCESS, [](const Asked&, Out& out) { return out.putByte(kPlaces); }},
    // Calls may come at once for any slots: the reader has a lock of its own.
    {TAG_IFD_THREAD_SAFE, [](const Asked&, Out& out) { return out.putByte(1); }},
    {TAG_IFD_SLOT_THREAD_SAFE, [](const Asked&, Out& out) { return out.putByte(1); }},
    {SCARD_ATTR_VENDOR_NAME, [](const Asked&, Out& out) { return out.putText("VORN"); }},
    {SCARD_ATTR_VENDOR_IFD_TYPE, [](const Asked& a, Out& out) { return out.putText(rowOf(a.place).model); }},
    {SCARD_ATTR_VENDOR_IFD_VERSION, [](const Asked&, Out& out) { return out.putNumber(kDriverVersion); }},
    {SCARD_ATTR_CHANNEL_ID,
     [](const Asked& a, Out& out) { return out.putNumber(a.channel.usb ? kUsbChannel : kSerialChannel); }},
    {SCARD_ATTR_ASYNC_PROTOCOL_TYPES, [](const Asked&, Out& out) { return out.putNumber(kProtocolT0 | kProtocolT1); }},
    {SCARD_ATTR_SYNC_PROTOCOL_TYPES, [](const Asked&, Out& out) { return out.putNumber(0); }},
    {SCARD_ATTR_CURRENT_PROTOCOL_TYPE, putProtocol},
    {SCARD_ATTR_POWER_MGMT_SUPPORT, [](const Asked&, Out& out) { return out.putNumber(1); }},
    {SCARD_ATTR_CHARACTERISTICS, [](const Asked&, Out& out) { return out.putNumber(0); }},
    {SCARD_ATTR_MAXINPUT, [](const Asked&, Out& out) { return out.putNumber(kShortApduMax); }},
    {SCARD_ATTR_ICC_PRESENCE,
     [](const Asked& a, Out& out) {
         return out.putByte(cardReader.present(a.place) ? kPresentInPlace : std::uint8_t{0});
     }},
    {SCARD_ATTR_ICC_INTERFACE_STATUS,
     [](const Asked& a, Out& out) { return out.putByte(cardReader.powered(a.place) ? 1 : 0); }},
    {SCARD_ATTR_ICC_TYPE_PER_ATR,
     [](const Asked& a, Out& out) {
         return a.place != Place::Contactless && cardReader.powered(a.place) ? out.putByte(kAsynchronousCard)
                                                                             : out.putByte(0);
     }},
};

const Capability* capabilityOf(DWORD tag)
{
    for (const Capability& capability : kCapabilities) {
        if (capability.tag == tag) {
            return &capability;
        }
    }
    return nullptr;
}

// ---------------------------------------------------------------- control codes

// Of PC/SC's features the reader has one: to tell its properties.
constexpr DWORD kGetProperties = SCARD_CTL_CODE(3600);

RESPONSECODE putFeatures(Out& out)
{
    const std::uint8_t features[] = {FEATURE_GET_TLV_PROPERTIES,    4,
                                     (kGetProperties >> 24) & 0xFF, (kGetProperties >> 16) & 0xFF,
                                     (kGetProperties >> 8) & 0xFF,  kGetProperties & 0xFF};
    return out.put(features, sizeof features);
}

// Values in little-endian order.
RESPONSECODE putProperties(Out& out)
{
    constexpr std::uint8_t kLow = kShortDataMax & 0xFF;
    constexpr std::uint8_t kHigh = kShortDataMax >> 8;
    constexpr std::uint8_t properties[] = {PCSCv2_PART10_PROPERTY_bPPDUSupport,      1, 0, // none
                                           PCSCv2_PART10_PROPERTY_dwMaxAPDUDataSize, 4, kLow, kHigh, 0, 0};
    return out.put(properties, sizeof properties);
}

struct Control {
    DWORD code;
    RESPONSECODE (*put)(Out& out);
};
constexpr Control kControls[] = {{CM_IOCTL_GET_FEATURE_REQUEST, putFeatures}, {kGetProperties, putProperties}};

// ---------------------------------------------------------------- commands

// ISO/IEC 7816-3, 12.1: with data or an expected length in three bytes.
bool isExtended(ByteView apdu) { return apdu.size() > kShortApduMax || (apdu.size() > 6 && apdu[4] == 0); }

constexpr std::size_t kHeaderSize = 4;

RESPONSECODE codeOf(Result result)
{
    switch (result) {
    case Result::Done:
        return IFD_SUCCESS;
    case Result::NoCard:
        return IFD_ICC_NOT_PRESENT;
    default:
        return IFD_COMMUNICATION_ERROR;
    }
}

RESPONSECODE transmit(Place place, ByteView apdu, Out& out)
{
    if (apdu.size() < kHeaderSize || isExtended(apdu)) {
        logProblem("%s: a command of %zu bytes was not sent: the reader takes short APDUs, up to %u bytes",
                   rowOf(place).name, apdu.size(), unsigned{kShortApduMax});
        return IFD_NOT_SUPPORTED;
    }
    Response response;
    const Result result = cardReader.exchange(place, apdu, response);
    if (result != Result::Done) {
        logProblem("%s: a command got no answer: %s", rowOf(place).name,
                   result == Result::NoCard ? "no card, or it has no power"
                                            : (result == Result::Refused ? "refused" : "no line"));
        return codeOf(result);
    }
    const RESPONSECODE code = out.put(response.view());
    if (code != IFD_SUCCESS) {
        logProblem("%s: an answer of %d bytes is longer than the room for it", rowOf(place).name, response.size);
    }
    return code;
}

RESPONSECODE power(Place place, bool reset, Out& out)
{
    Atr atr;
    const Result result = cardReader.powerOn(place, reset, atr);
    channels.agree(place, 0);
    if (result == Result::Done) {
        return out.put(atr.view());
    }
    if (result == Result::Refused) {
        logProblem("%s: the card does not answer to its reset", rowOf(place).name);
    }
    return IFD_ERROR_POWER_ACTION;
}

// The channel behind a number, and a copy of what is known of it.
struct Found {
    explicit Found(DWORD lun) : there(channels.find(lun, place, channel)) {}

    Place place = Place::Contact;
    Channel channel;
    bool there;
};

constexpr DWORD kSlotMask = 0xFFFF;

// A daemon that is told to end may do so without closing its channels.
[[gnu::destructor]] void leaveAtRest() { cardReader.end(); }

} // namespace
} // namespace vorn::ifd

using namespace vorn::ifd;

extern "C" {

RESPONSECODE IFDHCreateChannelByName(DWORD Lun, LPSTR DeviceName)
{
    vorn::ifd::DeviceName name;
    const DWORD slot = Lun & kSlotMask;
    if (!readDeviceName(DeviceName, name) || slot >= name.slots) {
        logProblem("a device name is a tty below /dev, with \":contact\" or another place behind it, or USB ids");
        return IFD_NO_SUCH_DEVICE;
    }
    const auto place = static_cast<Place>(static_cast<unsigned>(name.first) + slot);
    switch (channels.open(Lun, name, place)) {
    case Channels::Opened::First:
        cardReader.begin(name.port);
        return IFD_SUCCESS;
    case Channels::Opened::Further:
        return IFD_SUCCESS;
    default:
        return IFD_COMMUNICATION_ERROR;
    }
}

RESPONSECODE IFDHCreateChannel(DWORD, DWORD)
{
    logProblem("the reader's entry has no DEVICENAME");
    return IFD_NO_SUCH_DEVICE;
}

RESPONSECODE IFDHCloseChannel(DWORD Lun)
{
    const Found found(Lun);
    if (!found.there) {
        return IFD_NO_SUCH_DEVICE;
    }
    cardReader.powerOff(found.place);
    if (channels.close(Lun)) {
        cardReader.end();
    }
    return IFD_SUCCESS;
}

RESPONSECODE IFDHGetCapabilities(DWORD Lun, DWORD Tag, PDWORD Length, PUCHAR Value)
{
    Out out(Value, Length, roomOf(Length));
    const Found found(Lun);
    if (!found.there) {
        return IFD_NO_SUCH_DEVICE;
    }
    const Capability* const capability = capabilityOf(Tag);
    return capability == nullptr ? RESPONSECODE{IFD_ERROR_TAG}
                                 : capability->put(Asked{found.place, found.channel}, out);
}

RESPONSECODE IFDHSetCapabilities(DWORD, DWORD Tag, DWORD, PUCHAR)
{
    return capabilityOf(Tag) != nullptr ? IFD_ERROR_VALUE_READ_ONLY : IFD_ERROR_TAG;
}

// The reader itself agrees with the card on protocol and speed, and has no command to be told them: what is asked for
// can be had when it is what is there.
RESPONSECODE IFDHSetProtocolParameters(DWORD Lun, DWORD Protocol, UCHAR Flags, UCHAR, UCHAR, UCHAR)
{
    const Found found(Lun);
    Atr atr;
    if (!found.there || !cardReader.answerToReset(found.place, atr)) {
        return found.there ? IFD_ICC_NOT_PRESENT : IFD_NO_SUCH_DEVICE;
    }
    if (Flags != 0) {
        return IFD_ERROR_PTS_FAILURE;
    }
    if ((Protocol != kProtocolT0 && Protocol != kProtocolT1) || (Protocol & protocolsInUse(found.place, atr)) == 0) {
        return IFD_PROTOCOL_NOT_SUPPORTED;
    }
    channels.agree(found.place, Protocol);
    return IFD_SUCCESS;
}

RESPONSECODE IFDHPowerICC(DWORD Lun, DWORD Action, PUCHAR Atr, PDWORD AtrLength)
{
    Out out(Atr, AtrLength, MAX_ATR_SIZE);
    const Found found(Lun);
    if (!found.there) {
        return IFD_NO_SUCH_DEVICE;
    }
    switch (Action) {
    case IFD_POWER_UP:
        return power(found.place, false, out);
    case IFD_RESET:
        return power(found.place, true, out);
    case IFD_POWER_DOWN:
        return cardReader.powerOff(found.place) == Result::NoLine ? IFD_COMMUNICATION_ERROR : IFD_SUCCESS;
    default:
        return IFD_NOT_SUPPORTED;
    }
}

RESPONSECODE IFDHTransmitToICC(DWORD Lun, SCARD_IO_HEADER SendPci, PUCHAR TxBuffer, DWORD TxLength, PUCHAR RxBuffer,
                               PDWORD RxLength, PSCARD_IO_HEADER RecvPci)
{
    Out out(RxBuffer, RxLength, roomOf(RxLength));
    if (RecvPci != nullptr) {
        RecvPci->Protocol = SendPci.Protocol;
    }
    const Found found(Lun);
    if (!found.there) {
        return IFD_NO_SUCH_DEVICE;
    }
    return transmit(found.place, vorn::ByteView(TxBuffer, TxLength), out);
}

RESPONSECODE IFDHControl(DWORD Lun, DWORD dwControlCode, PUCHAR, DWORD, PUCHAR RxBuffer, DWORD RxLength,
                         LPDWORD pdwBytesReturned)
{
    Out out(RxBuffer, pdwBytesReturned, RxLength);
    const Found found(Lun);
    if (!found.there) {
        return IFD_NO_SUCH_DEVICE;
    }
    for (const Control& control : kControls) {
        if (control.code == dwControlCode) {
            return control.put(out);
        }
    }
    return IFD_ERROR_NOT_SUPPORTED;
}

RESPONSECODE IFDHICCPresence(DWORD Lun)
{
    const Found found(Lun);
    if (!found.there) {
        return IFD_NO_SUCH_DEVICE;
    }
    return cardReader.present(found.place) ? IFD_ICC_PRESENT : IFD_ICC_NOT_PRESENT;
}

} // extern "C"
