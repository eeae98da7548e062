// SPDX-License-Identifier: Apache-2.0
// What hides account numbers in hex, in words and in free text. A mask changes no length, and shows nothing that was not
// there.
#include "support/input.h"
#include "support/require.h"
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
    tool::maskText(text);
    tool::excerpt(text);
    tool::maskPan(text);
    tool::maskPanHex(bytes);
    tool::maskTrack2(text);
    tool::passesLuhn(text);
    return 0;
}
