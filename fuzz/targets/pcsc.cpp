// SPDX-License-Identifier: Apache-2.0
// The PC/SC driver: the daemon's functions in any order and for any slot, with any lengths and codes, over a reader whose
// answers come from outside.
#include "support/calls.h"
#include "support/readers.h"

#include "ifd/daemon_log.h"
#include "seam/world_state.h"

extern "C" {
#include <ifdhandler.h>
#include <reader.h>
}

#include <cstdarg>
#include <memory>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

constexpr DWORD kReader = 0x20000;
constexpr DWORD kSlots = 6;
constexpr int kCallsMax = 64;

enum class Op { Presence, Power, Transmit, Control, Capability, Protocol, Reopen, Time };

// A caller's buffer of just this room; its length in is the room, and out no more than that.
struct Room {
    explicit Room(unsigned size) : length(size), room(size), bytes(new UCHAR[size]) {}

    void requireResult(RESPONSECODE code) const
    {
        require(length <= room, "a length is no more than the room");
        require(code == IFD_SUCCESS || length == 0, "a call that fails gives no bytes");
    }

    DWORD length;
    DWORD room;
    std::unique_ptr<UCHAR[]> bytes;
};

void open(DWORD lun, const char* port)
{
    std::string name = port;
    require(IFDHCreateChannelByName(lun, name.data()) == IFD_SUCCESS, "a place that is free is opened");
}

void power(Input& input, DWORD lun)
{
    constexpr DWORD kActions[] = {IFD_POWER_UP, IFD_RESET, IFD_POWER_DOWN, 499};
    Room atr(MAX_ATR_SIZE);
    const std::uint8_t which = input.byte();
    const RESPONSECODE code = IFDHPowerICC(lun, kActions[which & 0x03], atr.bytes.get(), &atr.length);
    atr.requireResult(code);
    const bool gives = (which & 0x03) < 2;
    require(code != IFD_SUCCESS || (atr.length != 0) == gives, "who gets power has an answer to reset");
}

void transmit(Input& input, DWORD lun)
{
    Exact command(input.take(input.word() % 600));
    Room answer(2U * input.byte());
    SCARD_IO_HEADER send{};
    SCARD_IO_HEADER received{};
    send.Protocol = input.byte();
    const RESPONSECODE code = IFDHTransmitToICC(lun, send, command.data(), static_cast<DWORD>(command.size()),
                                                answer.bytes.get(), &answer.length, &received);
    answer.requireResult(code);
    require(code != IFD_SUCCESS || answer.length >= 2, "an answer has a status word");
    require(code != IFD_SUCCESS || (command.size() >= 4 && command.size() <= 261), "no other command is sent");
}

void control(Input& input, DWORD lun)
{
    constexpr DWORD kCodes[] = {CM_IOCTL_GET_FEATURE_REQUEST, SCARD_CTL_CODE(3600)};
    const std::uint8_t which = input.byte();
    const DWORD code = which < 2 ? kCodes[which] : SCARD_CTL_CODE(input.word());
    Exact command(input.counted());
    Room answer(input.byte());
    answer.requireResult(IFDHControl(lun, code, command.data(), static_cast<DWORD>(command.size()), answer.bytes.get(),
                                     answer.room, &answer.length));
}

void capability(Input& input, DWORD lun)
{
    constexpr DWORD kClasses[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0x7FFF};
    const std::uint8_t which = input.byte();
    const DWORD tag = (which & 0x80) != 0 ? input.word() : SCARD_ATTR_VALUE(kClasses[which % 11], input.word());
    Room value(input.byte());
    value.requireResult(IFDHGetCapabilities(lun, tag, &value.length, value.bytes.get()));
    require(IFDHSetCapabilities(lun, tag, value.length, value.bytes.get()) != IFD_SUCCESS, "nothing can be set");
}

void call(Input& input, const char* port)
{
    const std::uint8_t byte = input.byte();
    const DWORD lun = kReader + (byte >> 3) % kSlots;
    switch (static_cast<Op>(byte & 0x07)) {
    case Op::Presence:
        requireResult(static_cast<int>(IFDHICCPresence(lun)), {IFD_ICC_PRESENT, IFD_ICC_NOT_PRESENT});
        return;
    case Op::Power:
        return power(input, lun);
    case Op::Transmit:
        return transmit(input, lun);
    case Op::Control:
        return control(input, lun);
    case Op::Capability:
        return capability(input, lun);
    case Op::Protocol: {
        const DWORD protocol = input.byte();
        IFDHSetProtocolParameters(lun, protocol, input.byte(), 0, 0, 0);
        return;
    }
    case Op::Reopen:
        require(IFDHCloseChannel(lun) == IFD_SUCCESS, "an open channel is closed");
        require(IFDHICCPresence(lun) == IFD_NO_SUCH_DEVICE, "nothing is behind a closed channel");
        return open(lun, port);
    case Op::Time:
        world().nowUs += std::int64_t{input.word()} * 1000;
        return;
    }
}

// Names of devices as they come: none of them may be more than refused.
void names(Input& input)
{
    Text name(input.counted());
    const RESPONSECODE code = IFDHCreateChannelByName(kReader + kSlots, name.writable());
    require(code != IFD_SUCCESS, "a reader has six slots");
}

} // namespace

namespace vorn::ifd {

namespace {

[[gnu::format(printf, 1, 0)]] void format(const char* text, std::va_list arguments)
{
    char line[1024];
    std::vsnprintf(line, sizeof line, text, arguments);
}

} // namespace

void logNote(const char* text, ...)
{
    std::va_list arguments;
    va_start(arguments, text);
    format(text, arguments);
    va_end(arguments);
}

void logProblem(const char* text, ...)
{
    std::va_list arguments;
    va_start(arguments, text);
    format(text, arguments);
    va_end(arguments);
}

} // namespace vorn::ifd

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    AnsweringReader reader(input);
    beginWorld(&reader);
    const Circumstances c(input);
    const char* const port =
        std::strcmp(c.port, "USB") == 0 ? "usb:3a5c/7e21:libudev:0:/dev/bus/usb/001/002" : "/dev/ttyS1";
    names(input);
    for (DWORD slot = 0; slot < kSlots; ++slot) {
        open(kReader + slot, port);
    }
    for (int i = 0; i < kCallsMax && !input.atEnd(); ++i) {
        call(input, port);
    }
    for (DWORD slot = 0; slot < kSlots; ++slot) {
        require(IFDHCloseChannel(kReader + slot) == IFD_SUCCESS, "an open channel is closed");
    }
    endOfCalls();
    return 0;
}
