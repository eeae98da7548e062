// SPDX-License-Identifier: Apache-2.0
// IC_GetTranDeta with whatever the reader and the card answer.
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
    int type = input.byte() & 0x07;
    const Text aids = input.text();

    Output detail(ICC_TX_DETAIL_CAPACITY);
    int length = -7;
    const int result = IC_GetTranDeta(c.port, "", 9600, c.timeout, &type, aids, &length, detail.text());
    requireResult(result, {VORN_OK, VORN_BAD_ARGUMENT, VORN_NO_CARD_IN_TIME, VORN_OPEN_FAILED, VORN_NO_REPLY,
                           VORN_POWER_ON_REFUSED, VORN_NO_APPLICATION, VORN_SELECT_FAILED, VORN_OBJECT_MISSING});
    if (result == VORN_OK) {
        require(length == static_cast<int>(detail.length()), "the length of the text");
    } else if (result == VORN_OBJECT_MISSING) {
        require(detail.length() == 0, "no log, no text");
    } else {
        require(detail.untouched() && length == -7, "outputs of a call that failed");
    }
    requireLinkClosed(result);
    endOfCalls();
    return 0;
}
