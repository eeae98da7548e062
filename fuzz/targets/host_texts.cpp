// SPDX-License-Identifier: Apache-2.0
// The texts that a host hands over, with a card that does what is asked of it: port names, lists of applications and
// tags, transaction data, the issuer's answer, the state between the two calls, APDUs.
#include "support/calls.h"
#include "support/readers.h"

using namespace vorn;
using namespace vorn::fuzz;

namespace {

void cardData(const Text& port, Input& input)
{
    const Text aids = input.text();
    const Text tags = input.text();
    Output record(ICC_USER_INFO_CAPACITY);
    Output detail(ICC_TX_DETAIL_CAPACITY);
    int type = VORN_OPEN_EITHER;
    int length = 0;
    if (IC_GetInfo(port, aids, 9600, 3, &type, aids, tags, &length, record.text()) == VORN_OK) {
        require(length == static_cast<int>(record.length()) + 1, "the length counts the NUL");
    }
    type = VORN_OPEN_EITHER;
    if (IC_GetTranDeta(port, tags, 9600, 3, &type, aids, &length, detail.text()) == VORN_OK) {
        require(length == static_cast<int>(detail.length()), "the length of the text");
    }
}

void sale(const Text& port, Input& input, bool ownState)
{
    const Text transaction = input.text();
    const Text issuer = input.text();
    const Text foreign = input.text();
    Output request(ICC_CRYPTOGRAM_CAPACITY);
    Output state(ICC_STATE_CAPACITY);
    Output certificate(ICC_CRYPTOGRAM_CAPACITY);
    Output script(ICC_SCRIPT_RESULT_CAPACITY);
    int type = VORN_OPEN_EITHER;
    int length = 0;
    IC_GenARQC(port, "", 9600, 3, &type, "", transaction, &length, request.text(), state.text());
    state.length();
    const char* const kept = ownState ? state.text() : foreign;
    if (IC_CtlScriptData(port, "", 9600, 3, &type, transaction, issuer, &length, certificate.text(), script.text(),
                         kept) == VORN_OK) {
        certificate.length();
        script.length();
    }
}

void apdu(const Text& port, Input& input)
{
    const int type = input.byte() & 0x03;
    const Text command(input.rest());
    Output response(ICC_RESPONSE_CAPACITY);
    if (IC_SendAPDU(port, "", 9600, 3, type, 1, command, response.text()) == VORN_OK) {
        response.length();
    }
}

void letters(Input& input)
{
    const ByteView rest = input.rest();
    const Exact tags(rest);
    Output list(2 * rest.size() + 1);
    ConvertFlag(reinterpret_cast<const char*>(tags.data()), tags.size(), list.bytes());
    const Text text(rest);
    Output items(std::strlen(text) + 502);
    convertFlagtoTLV(text, items.bytes());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::uint8_t how = input.byte();
    OrdinaryReader reader((how & 0x40) == 0);
    beginWorld(&reader);
    attach(readerOnUsb());
    static const Text kPort(ByteView(reinterpret_cast<const std::uint8_t*>("ttyS1"), 5));
    const Text given = input.text();
    const Text& port = (how & 0x80) != 0 ? given : kPort;
    switch (how & 0x03) {
    case 0:
        cardData(port, input);
        break;
    case 1:
        sale(port, input, (how & 0x20) == 0);
        break;
    case 2:
        apdu(port, input);
        break;
    default:
        letters(input);
        break;
    }
    endOfCalls();
    return 0;
}
