// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/status_words.h"

#include "tools/explain/hex.h"

namespace vorn::tool {

namespace {

struct Row {
    unsigned first;
    unsigned last;
    const char* meaning; // "%u": the low byte, "%x": the low four bits
};

const Row kRows[] = {
    {0x9000, 0x9000, "done"},
    {0x6100, 0x61FF, "done, %u bytes more to fetch"},
    {0x6200, 0x6200, "warning: nothing changed on the card"},
    {0x6281, 0x6281, "warning: part of the data may be damaged"},
    {0x6282, 0x6282, "warning: fewer data than asked for"},
    {0x6283, 0x6283, "warning: the selected file or application is blocked"},
    {0x6284, 0x6284, "warning: control information not in the expected form"},
    {0x6285, 0x6285, "warning: file in termination state"},
    {0x6200, 0x62FF, "warning: nothing changed on the card"},
    {0x6300, 0x6300, "authentication failed"},
    {0x6381, 0x6381, "warning: file filled up by the last write"},
    {0x63C0, 0x63CF, "verification failed, %x tries left"},
    {0x6300, 0x63FF, "warning: something changed on the card"},
    {0x6400, 0x64FF, "not carried out, nothing changed on the card"},
    {0x6581, 0x6581, "memory failure on the card"},
    {0x6500, 0x65FF, "not carried out, something changed on the card"},
    {0x6600, 0x66FF, "security issue"},
    {0x6700, 0x67FF, "wrong length"},
    {0x6881, 0x6881, "logical channel not supported"},
    {0x6882, 0x6882, "secure messaging not supported"},
    {0x6883, 0x6883, "last command of the chain expected"},
    {0x6884, 0x6884, "command chaining not supported"},
    {0x6800, 0x68FF, "function of the class byte not supported"},
    {0x6900, 0x6900, "command not allowed"},
    {0x6981, 0x6981, "command does not fit the file's structure"},
    {0x6982, 0x6982, "security status not satisfied"},
    {0x6983, 0x6983, "authentication method blocked (PIN tries used up)"},
    {0x6984, 0x6984, "referenced data not usable"},
    {0x6985, 0x6985, "conditions of use not satisfied"},
    {0x6986, 0x6986, "command not allowed, no file selected"},
    {0x6987, 0x6987, "secure messaging objects missing"},
    {0x6988, 0x6988, "secure messaging objects wrong (MAC)"},
    {0x6900, 0x69FF, "command not allowed"},
    {0x6A80, 0x6A80, "wrong data in the command"},
    {0x6A81, 0x6A81, "function not supported, or card blocked"},
    {0x6A82, 0x6A82, "file or application not found"},
    {0x6A83, 0x6A83, "record not found"},
    {0x6A84, 0x6A84, "not enough memory"},
    {0x6A85, 0x6A85, "length does not fit the data's structure"},
    {0x6A86, 0x6A86, "wrong parameters P1 P2"},
    {0x6A87, 0x6A87, "length does not fit P1 P2"},
    {0x6A88, 0x6A88, "referenced data not found"},
    {0x6A00, 0x6AFF, "wrong parameters"},
    {0x6B00, 0x6BFF, "wrong parameters P1 P2"},
    {0x6C00, 0x6CFF, "wrong Le, %u bytes are there"},
    {0x6D00, 0x6DFF, "instruction not supported"},
    {0x6E00, 0x6EFF, "class not supported"},
    {0x6F00, 0x6FFF, "no precise diagnosis"},
    {0x9302, 0x9302, "MAC wrong"},
    {0x9303, 0x9303, "application permanently blocked"},
    {0x9401, 0x9401, "not enough money in the purse"},
    {0x9402, 0x9402, "transaction counter at its end"},
    {0x9403, 0x9403, "key not found"},
    {0x9406, 0x9406, "MAC not available"},
};

std::string filledIn(const char* meaning, unsigned statusWord)
{
    std::string text = meaning;
    if (text.find('%') == std::string::npos) {
        return text;
    }
    if (const auto at = text.find("%u"); at != std::string::npos) {
        const unsigned low = statusWord & 0xFF;
        text.replace(at, 2, std::to_string(low == 0 ? 256 : low));
    }
    if (const auto at = text.find("%x"); at != std::string::npos) {
        text.replace(at, 2, std::to_string(statusWord & 0x0F));
    }
    return text;
}

} // namespace

std::string statusMeaning(unsigned statusWord)
{
    for (const Row& row : kRows) {
        if (statusWord >= row.first && statusWord <= row.last) {
            return filledIn(row.meaning, statusWord);
        }
    }
    return "of the card's own";
}

std::string statusText(unsigned statusWord)
{
    const auto high = static_cast<std::uint8_t>(statusWord >> 8);
    return toHex({high, static_cast<std::uint8_t>(statusWord)}).append(" (").append(statusMeaning(statusWord)) + ")";
}

} // namespace vorn::tool
