// SPDX-License-Identifier: Apache-2.0
// The calls for contactless memory cards, in any order, with whatever the reader answers.
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
    const ByteView order = input.take(8);
    const int block = input.byte();
    std::uint8_t key[ICC_M1_KEY_SIZE] = {};
    input.take(sizeof key).copyTo(key);
    std::uint8_t content[ICC_M1_BLOCK_SIZE] = {};
    input.take(sizeof content).copyTo(content);
    const Exact keyBytes(ByteView(key, sizeof key));
    const Exact blockBytes(ByteView(content, sizeof content));

    for (std::size_t i = 0; i < order.size(); ++i) {
        Output uid(ICC_ATR_CAPACITY);
        Output read(ICC_M1_BLOCK_SIZE);
        unsigned char flag = 0;
        int result = VORN_OK;
        switch (order[i] % 5) {
        case 0:
            result = IC_M1ActiveCard(c.port, "", 9600, c.timeout, &flag, uid.text());
            require(result == VORN_OK ? flag == 1 && uid.length() % 2 == 0 : uid.untouched() && flag == 0,
                    "the outputs of IC_M1ActiveCard");
            break;
        case 1:
            result = IC_M1CheckCardPin(c.port, "", 9600, c.timeout, block, "A", keyBytes.data());
            break;
        case 2:
            result = IC_M1ReadCard(c.port, "", 9600, c.timeout, block, read.bytes());
            require(result == VORN_OK || read.untouched(), "a block that was not read");
            break;
        case 3:
            result = IC_M1WriteCard(c.port, "", 9600, c.timeout, block, blockBytes.data());
            break;
        default:
            result = IC_M1PowerOff(c.port, "", 9600, c.timeout);
            requireResult(result, {VORN_OK, VORN_OPEN_FAILED});
            requireLinkClosed(result);
            break;
        }
        requireResult(result, {VORN_OK, VORN_OPEN_FAILED, VORN_READER_NO_CARD, VORN_READER_REFUSED, VORN_NO_REPLY});
        if (result != VORN_OK) {
            requireLinkClosed(result);
        }
    }
    endOfCalls();
    return 0;
}
