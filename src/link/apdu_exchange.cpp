// SPDX-License-Identifier: Apache-2.0
#include "vorn/link.h"

#include <cstdint>
#include <cstring>

namespace {

constexpr int kGetResponseSize = 5;

enum class FollowUp { None, GetResponse, CorrectLe };

// A warning 62xx is answered with GET RESPONSE (compatibility: "A warning 62xx is followed like 61xx").
FollowUp followUpOf(std::uint8_t sw1)
{
    switch (sw1) {
    case 0x61:
    case 0x62:
        return FollowUp::GetResponse;
    case 0x6C:
        return FollowUp::CorrectLe;
    default:
        return FollowUp::None;
    }
}

// `send` passes len bytes of apdu to the card. A card may ask for follow-ups as long as it likes.
template <class Send>
int exchange(Send send, unsigned char* apdu, int len, unsigned char* resp, int* respLen, bool reportStatusLength)
{
    for (;;) {
        int received = 0;
        const int result = send(apdu, len, resp, &received);
        if (result != VORN_OK) {
            return result;
        }
        if (received < 2) {
            return VORN_READER_REFUSED; // no status word
        }
        const std::uint8_t sw1 = resp[received - 2];
        const std::uint8_t sw2 = resp[received - 1];
        if (sw1 == 0x90 && sw2 == 0x00) {
            *respLen = received;
            return VORN_OK;
        }
        const FollowUp followUp = followUpOf(sw1);
        if (followUp == FollowUp::None) {
            if (reportStatusLength) {
                *respLen = 2;
            }
            return sw1 * 256 + sw2;
        }
        if (followUp == FollowUp::GetResponse) {
            const std::uint8_t le = sw1 == 0x61 ? sw2 : std::uint8_t{0};
            const std::uint8_t getResponse[kGetResponseSize] = {0x00, 0xC0, 0x00, 0x00, le};
            std::memcpy(apdu, getResponse, sizeof getResponse);
            len = kGetResponseSize;
        } else if (len > 0) {
            apdu[len - 1] = sw2;
        }
    }
}

} // namespace

extern "C" {

int Icc_EXApdu(unsigned char* apdu, int len, unsigned char* resp, int* respLen)
{
    return exchange(icc_sendcommand, apdu, len, resp, respLen, false);
}

int SamIcc_EXApdu(int slot, unsigned char* apdu, int len, unsigned char* resp, int* respLen)
{
    const auto send = [slot](const unsigned char* command, int n, unsigned char* response, int* responseLength) {
        return samicc_sendcommand(slot, command, n, response, responseLength);
    };
    return exchange(send, apdu, len, resp, respLen, true);
}

} // extern "C"
