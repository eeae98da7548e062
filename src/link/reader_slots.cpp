// SPDX-License-Identifier: Apache-2.0
// The reader's slot commands, each with its four log entries.
#include "link/reader_commands.h"
#include "link/reader_frame.h"
#include "public/bytes.h"
#include "public/local_log.h"

#include "vorn/link.h"

#include <cstdint>

unsigned char m_VrICType = VORN_INTERFACE_NONE;

namespace {

using vorn::Operation;
using vorn::ReaderCommand;
using vorn::ReaderReply;

int slotCommand(const char* marker, const ReaderCommand& command, unsigned char* out = nullptr, int* outLen = nullptr)
{
    ReaderReply reply;
    vorn::exchangeFrame(command.view(), reply);
    const int result = vorn::deliver(reply, out, outLen);
    // A reply that never came has no length, and an empty dump.
    vorn::logExchange(marker, command.view(), vorn::viewOf(reply.payload, reply.arrived ? reply.size : 0));
    return result;
}

int powerOnResult(int result) { return result == VORN_READER_REFUSED ? VORN_POWER_ON_REFUSED : result; }

int passApdu(const char* marker, std::uint8_t slot, const unsigned char* apdu, int n, unsigned char* resp, int* respLen)
{
    ReaderCommand command(Operation::Apdu, {slot});
    if (n < 0 || !command.with(vorn::viewOf(apdu, n)).complete()) {
        return VORN_BAD_ARGUMENT;
    }
    return slotCommand(marker, command, resp, respLen);
}

} // namespace

extern "C" {

int icc_poweron(int slot, unsigned char* atr, int* atrLen)
{
    const ReaderCommand command(Operation::PowerOn, {0x01, 0x80, static_cast<std::uint8_t>(slot)});
    return powerOnResult(slotCommand("icc_poweron", command, atr, atrLen));
}

int picc_Active(unsigned char* atr, int* atrLen)
{
    const ReaderCommand command(Operation::Activate, {0x01, 0x80});
    return powerOnResult(slotCommand("picc_Active", command, atr, atrLen));
}

int icc_poweroff(unsigned char slot) { return slotCommand("icc_poweroff", ReaderCommand(Operation::PowerOff, {slot})); }

int picc_Deactive() { return slotCommand("picc_Deactive", ReaderCommand(Operation::Deactivate, {0x00, 0x00})); }

int icc_sendcommand(const unsigned char* apdu, int n, unsigned char* resp, int* respLen)
{
    const std::uint8_t slot = m_VrICType == VORN_INTERFACE_CONTACT ? VORN_SLOT_CONTACT : VORN_SLOT_CONTACTLESS;
    return passApdu("capdu", slot, apdu, n, resp, respLen);
}

int samicc_sendcommand(int slot, const unsigned char* apdu, int n, unsigned char* resp, int* respLen)
{
    return passApdu("samicc_capdu", static_cast<std::uint8_t>(slot), apdu, n, resp, respLen);
}

int vr_openicc(int mode, unsigned char* atr, int* atrLen)
{
    switch (mode) {
    case VORN_OPEN_CONTACT:
        m_VrICType = VORN_INTERFACE_CONTACT;
        return icc_poweron(VORN_SLOT_CONTACT, atr, atrLen);
    case VORN_OPEN_CONTACTLESS:
        m_VrICType = VORN_INTERFACE_CONTACTLESS;
        return picc_Active(atr, atrLen);
    case VORN_OPEN_EITHER:
        break;
    default:
        return VORN_BAD_ARGUMENT;
    }
    const int contact = icc_poweron(VORN_SLOT_CONTACT, atr, atrLen);
    if (contact == VORN_OK) {
        m_VrICType = VORN_INTERFACE_CONTACT;
    } else if (contact == VORN_READER_NO_CARD) {
        m_VrICType = VORN_INTERFACE_CONTACTLESS;
        return picc_Active(atr, atrLen);
    }
    return contact;
}

int vr_closeicc() { return m_VrICType == VORN_INTERFACE_CONTACT ? icc_poweroff(VORN_SLOT_CONTACT) : picc_Deactive(); }

} // extern "C"
