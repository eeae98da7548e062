// SPDX-License-Identifier: Apache-2.0
// What hides account numbers in hex, in words and in free text. A mask changes no length, and shows nothing that was not
// there.
#include "support/tool_output.h"
#include "tools/explain/mask.h"
#include "tools/explain/mask_scan.h"

using namespace vorn;
using namespace vorn::fuzz;

namespace {

sim::Bytes bytesOf(ByteView view) { return sim::Bytes(view.data(), view.data() + view.size()); }

void requireSameOrStars(const std::string& masked, const std::string& text)
{
    require(masked.size() == text.size(), "a mask changes no length");
    for (std::size_t i = 0; i < text.size(); ++i) {
        require(masked[i] == '*' || masked[i] == text[i], "a mask changes nothing but to stars");
    }
}

// In words, where no lettered record can begin, and in hex of any kind around it.
void requireHidden(const std::string& number, std::string text, const std::string& hex)
{
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? ' ' : c; });
    const std::string words = tool::maskText(text + " " + number + " " + text);
    require(words.find(number) == std::string::npos, "no account number is left in words");
    std::string around = hex + number + hex;
    tool::hideInHex(around);
    require(around.find(number) == std::string::npos, "no account number is left in hex");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const auto tag = static_cast<sim::tlv::Tag>(input.word());
    const sim::Bytes command = bytesOf(input.counted());
    const ByteView rest = input.rest();
    const sim::Bytes bytes = bytesOf(rest);
    const std::string text = stringOf(rest);

    requireSameOrStars(tool::hexText(bytes, false), sim::toHex(bytes));
    requireSameOrStars(tool::commandHex(command, false), sim::toHex(command));
    requireSameOrStars(tool::responseHex(command, bytes, false), sim::toHex(bytes));
    requireSameOrStars(tool::dataHex(command, bytes, false), sim::toHex(bytes));
    require(tool::hexText(bytes, true) == sim::toHex(bytes), "all of it, where all may be shown");
    tool::valueHex(tag, bytes, false);
    tool::valueWords(tag, text, false);
    requireSameOrStars(tool::maskText(text), text);
    requireHidden(accountNumber(rest), text, sim::toHex(bytes));
    tool::excerpt(text);
    tool::maskPan(text);
    tool::maskPanHex(bytes);
    tool::maskTrack2(text);
    tool::passesLuhn(text);
    return 0;
}
