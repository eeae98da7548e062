// SPDX-License-Identifier: Apache-2.0
// DEV_CommCall: any request text, and whatever the reader gives as its version.
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
    const Text request = input.text();

    Output description(ICC_DEVICE_JSON_CAPACITY);
    int length = -7;
    requireResult(DEV_CommCall(request, nullptr, description.text(), &length), {VORN_OK});
    require(length == static_cast<int>(description.length()), "the length of the description");

    Output version(ICC_DEVICE_TEXT_CAPACITY);
    Output date(1);
    Output serial(1);
    const int result = GetDevInfo(c.port, version.text(), date.text(), serial.text());
    requireResult(result, {VORN_OK, VORN_OPEN_FAILED, VORN_NO_REPLY});
    require(result != VORN_OK || version.length() < ICC_DEVICE_TEXT_CAPACITY, "the version's text");
    requireLinkClosed(result);
    endOfCalls();
    return 0;
}
