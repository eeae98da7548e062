// SPDX-License-Identifier: Apache-2.0
// IC_GetInfo with whatever the reader and the card answer.
#include "support/calls.h"
#include "support/readers.h"

#include <cctype>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

// Letters A to L in their order, three digits each, and just so many characters.
void requireRecord(const char* text, std::size_t length)
{
    char last = 'A' - 1;
    int fields = 0;
    for (std::size_t at = 0; at < length; ++fields) {
        require(text[at] > last && text[at] <= 'L', "the letters come in their order");
        last = text[at];
        require(length - at >= 4, "three digits stand behind a letter");
        std::size_t count = 0;
        for (int i = 1; i <= 3; ++i) {
            require(std::isdigit(static_cast<unsigned char>(text[at + static_cast<std::size_t>(i)])) != 0, "a digit");
            count = count * 10 + static_cast<std::size_t>(text[at + static_cast<std::size_t>(i)] - '0');
        }
        require(count <= length - at - 4, "as many characters as a field says");
        at += 4 + count;
    }
    require(fields >= 8, "only C, D, F and H may be missing");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    AnsweringReader reader(input);
    beginWorld(&reader);
    const Circumstances c(input);
    int type = input.byte() & 0x07;
    const Text aids = input.text();
    const Text tags = input.text();

    Output record(ICC_USER_INFO_CAPACITY);
    int length = -7;
    const int result = IC_GetInfo(c.port, "", 9600, c.timeout, &type, aids, tags, &length, record.text());
    requireResult(result, {VORN_OK, VORN_BAD_ARGUMENT, VORN_NO_CARD_IN_TIME, VORN_OPEN_FAILED, VORN_NO_REPLY,
                           VORN_POWER_ON_REFUSED, VORN_NO_APPLICATION, VORN_SELECT_FAILED, VORN_GPO_FAILED});
    if (result == VORN_OK) {
        require(length == static_cast<int>(record.length()) + 1, "the length counts the NUL");
        requireRecord(record.text(), record.length());
    } else {
        require(record.length() == 0 && length == -7, "outputs of a call that failed");
    }
    requireLinkClosed(result);
    endOfCalls();
    return 0;
}
