// SPDX-License-Identifier: Apache-2.0
// Issuer scripts (EMV Book 3, 10.10).
#include "card/tags.h"
#include "card/tlv.h"

#include "vorn/card.h"
#include "vorn/link.h"

#include <cstdint>
#include <cstring>

using namespace vorn;

extern "C" int vrdk_exeicscript(const unsigned char* script, int scriptLength, int* count)
{
    constexpr int kRoomForFollowUp = 5;
    *count = 0;
    for (ByteView object = findObject(tag::kScriptCommand, viewOf(script, scriptLength)); !object.empty();) {
        // A command's length is one byte; of a two-byte length only the low one counts.
        const ByteView value = objectValue(object, 1);
        const ByteView command = value.first(lengthField(object.from(1)).value & 0xFF);
        ++*count;
        if (!command.empty()) {
            std::uint8_t apdu[VORN_RESPONSE_MAX + kRoomForFollowUp] = {};
            std::uint8_t response[VORN_PAYLOAD_MAX] = {};
            int responseLength = 0;
            std::memcpy(apdu, command.data(), command.size());
            const int result = Icc_EXApdu(apdu, static_cast<int>(command.size()), response, &responseLength);
            if (result != VORN_OK) {
                return result;
            }
            if (responseLength == 0) {
                return VORN_READER_REFUSED; // a status word 0000, which is no success
            }
        }
        const std::size_t headerSize = 1 + lengthField(object.from(1)).size;
        object = findObject(tag::kScriptCommand, object.from(headerSize + value.size()));
    }
    return VORN_OK;
}
