// SPDX-License-Identifier: Apache-2.0
// IC_GetZzhHardWalletInfo with whatever the reader and the card answer.
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

    Output context(ICC_CONTEXT_ID_CAPACITY);
    Output mode(ICC_WALLET_TEXT_CAPACITY);
    Output aid(ICC_WALLET_TEXT_CAPACITY);
    const int result = IC_GetZzhHardWalletInfo(c.port, "", 9600, c.timeout, context.text(), mode.text(), aid.text());
    requireResult(result, {VORN_OK, VORN_NO_CARD_IN_TIME, VORN_OPEN_FAILED, VORN_NO_REPLY, VORN_POWER_ON_REFUSED,
                           VORN_NO_APPLICATION, VORN_SELECT_FAILED, VORN_OBJECT_MISSING});
    if (result == VORN_OK) {
        require(context.length() == 16 && mode.length() >= 4 && aid.length() >= 4, "the texts of a wallet");
    }
    requireLinkClosed(result);
    endOfCalls();
    return 0;
}
