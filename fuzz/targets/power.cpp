// SPDX-License-Identifier: Apache-2.0
// IC_PowerOn, IC_SendAPDU and IC_PowerOff, for the user's card and the PSAMs, with the reader's answers and the command's
// text from outside.
#include "support/calls.h"
#include "support/readers.h"

using namespace vorn;
using namespace vorn::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    AnsweringReader reader(input);
    beginWorld(&reader);
    const Circumstances c(input);
    const std::uint8_t where = input.byte();
    const int type = where & 0x07;
    const int slot = where >> 3 & 0x07;
    const Text apdu = input.text();

    Output atr(ICC_ATR_CAPACITY);
    const int on = IC_PowerOn(c.port, "", 9600, c.timeout, type, slot, atr.text());
    requireResult(on, {VORN_OK, VORN_BAD_ARGUMENT, VORN_NO_CARD_IN_TIME, VORN_OPEN_FAILED, VORN_NO_REPLY,
                       VORN_POWER_ON_REFUSED, VORN_READER_NO_CARD});
    atr.length();
    requireLinkClosed(on);

    for (int i = 0; i < 3; ++i) {
        Output response(ICC_RESPONSE_CAPACITY);
        const int result = IC_SendAPDU(c.port, "", 9600, c.timeout, type, slot, apdu, response.text());
        requireResult(result, {VORN_OK, VORN_BAD_ARGUMENT, VORN_OPEN_FAILED, VORN_READER_NO_CARD, VORN_READER_REFUSED,
                               VORN_NO_REPLY});
        require(result == VORN_OK ? response.length() % 2 == 0 : response.untouched(), "the response's text");
        requireLinkClosed(result);
    }
    const int off = IC_PowerOff(c.port, "", 9600, c.timeout, type, slot);
    requireResult(off, {VORN_OK, VORN_BAD_ARGUMENT, VORN_OPEN_FAILED});
    requireLinkClosed(off);
    endOfCalls();
    return 0;
}
