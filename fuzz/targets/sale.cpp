// SPDX-License-Identifier: Apache-2.0
// An online transaction, IC_GenARQC and IC_CtlScriptData, with whatever the reader, the card and the issuer answer.
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
    const std::uint8_t how = input.byte();
    int type = how & 0x07;
    const Text aids = input.text();
    const Text transaction = input.text();
    const Text issuer = input.text();

    Output request(ICC_CRYPTOGRAM_CAPACITY);
    Output state(ICC_STATE_CAPACITY);
    int length = 0;
    const int first =
        IC_GenARQC(c.port, "", 9600, c.timeout, &type, aids, transaction, &length, request.text(), state.text());
    requireResult(first, {VORN_OK, VORN_BAD_ARGUMENT, VORN_NO_CARD_IN_TIME, VORN_OPEN_FAILED, VORN_NO_REPLY,
                          VORN_POWER_ON_REFUSED, VORN_NO_APPLICATION, VORN_SELECT_FAILED, VORN_GPO_FAILED,
                          VORN_FIRST_AC_FAILED});
    request.length();
    state.length();
    require(first != VORN_OK || length == static_cast<int>(request.length()), "the length of the request's text");
    requireLinkClosed(first);

    Output certificate(ICC_CRYPTOGRAM_CAPACITY);
    Output script(ICC_SCRIPT_RESULT_CAPACITY);
    if ((how & 0x80) == 0) { // hosts may go on after a failure
        const int second = IC_CtlScriptData(c.port, "", 9600, c.timeout, &type, transaction, issuer, &length,
                                            certificate.text(), script.text(), state.text());
        requireResult(second, {VORN_OK, VORN_BAD_ARGUMENT, VORN_NO_CARD_IN_TIME, VORN_OPEN_FAILED, VORN_NO_ISSUER_AUTH,
                               VORN_SECOND_AC_FAILED, VORN_SCRIPT_FAILED});
        if (second == VORN_OK) {
            certificate.length();
            script.length();
        }
    }
    endOfCalls();
    return 0;
}
