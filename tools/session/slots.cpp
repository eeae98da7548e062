// SPDX-License-Identifier: Apache-2.0
#include "tools/session/slots.h"

#include "tools/session/session.h"

#include "vorn/link.h"

#include <cstring>
#include <iterator>

namespace vorn::tool {

namespace {

struct Place {
    const char* name;
    int slot;
    bool user;
};
constexpr Place kPlaces[] = {
    {"contact", VORN_SLOT_CONTACT, true},  {"field", VORN_SLOT_CONTACTLESS, true},
    {"psam1", VORN_SLOT_PSAM1, false},     {"psam2", VORN_SLOT_PSAM1 + 1, false},
    {"psam3", VORN_SLOT_PSAM1 + 2, false}, {"psam4", VORN_SLOT_PSAM1 + 3, false},
};

struct PlaceCall {
    LinkTarget target;
    int slot = 0;
    bool memory = false;
    std::uint8_t answer[VORN_PAYLOAD_MAX] = {};
    int length = 0;
};

int activateMemory(PlaceCall& call)
{
    const std::uint8_t command[] = {0x32, static_cast<std::uint8_t>(Operation::ActivateMemory), 0x01, 0x00};
    return trans_icc_cmd(command, sizeof command, call.answer, &call.length);
}

int lookIntoPlace(PlaceCall& call)
{
    if (vrdk03com_handle == -1) {
        vr_comportmode = call.target.mode;
        std::memcpy(vr_comportparam, call.target.parameter, sizeof vr_comportparam);
        if (opdev() != VORN_OK) {
            return VORN_OPEN_FAILED;
        }
    }
    if (call.slot != VORN_SLOT_CONTACTLESS) {
        const int result = icc_poweron(call.slot, call.answer, &call.length);
        if (result == VORN_OK) {
            icc_poweroff(static_cast<unsigned char>(call.slot));
        }
        return result;
    }
    int result = picc_Active(call.answer, &call.length);
    if (result == VORN_READER_NO_CARD) {
        result = activateMemory(call);
        call.memory = result == VORN_OK;
    }
    if (result == VORN_OK) {
        picc_Deactive();
    }
    return result;
}

} // namespace

std::vector<SlotState> lookIntoSlots(Session& session, Slots which)
{
    std::vector<SlotState> states;
    for (const Place& place : kPlaces) {
        if (!place.user && which == Slots::User) {
            continue;
        }
        PlaceCall call{session.target(), place.slot};
        const int result = session.run("the look into the slots", lookIntoPlace, call);
        SlotState state{place.name, "", false, {}};
        if (result == VORN_OK) {
            state.kind = call.memory ? "memory card" : "card";
            state.answer.assign(call.answer, call.answer + call.length);
        } else if (session.verdict().trouble == Trouble::CardMute) {
            state.mute = true;
        } else if (result != VORN_READER_NO_CARD) {
            session.check(result);
        }
        states.push_back(state);
    }
    return states;
}

} // namespace vorn::tool
