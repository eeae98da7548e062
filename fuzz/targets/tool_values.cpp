// SPDX-License-Identifier: Apache-2.0
// Values as the tool shows them: hex, texts, amounts, dates, commands and answers in words. What comes from a card
// must not bring a control character to a terminal.
#include "support/tool_output.h"
#include "tools/explain/apdu_words.h"
#include "tools/explain/present.h"
#include "tools/explain/status_words.h"

using namespace vorn;
using namespace vorn::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const ByteView first = input.counted();
    const ByteView second = input.rest();
    const sim::Bytes bytes(second.data(), second.data() + second.size());
    const sim::Bytes command(first.data(), first.data() + first.size());
    const std::string text = stringOf(second);
    const std::string brief = stringOf(first);

    requirePrintable(tool::printable(text));
    requirePrintable(tool::textOfGbk(bytes));
    requirePrintable(tool::commandInWords(command));
    requirePrintable(tool::answerInWords(command, bytes));
    tool::statusText(tool::statusOf(bytes));
    tool::dataOf(bytes);
    tool::amountText(brief, text);
    tool::dateText(brief);
    tool::timeText(brief);
    tool::currencyText(brief);
    tool::currencyCode(text);
    tool::currencyDecimals(brief);
    tool::countryText(brief);
    tool::transactionTypeText(brief);
    tool::columns(text);
    tool::Table table({"a", brief});
    table.row({text, brief});
    table.text();
    if (const auto hex = sim::fromHex(text)) {
        require(sim::fromHex(sim::toHex(*hex)) == hex, "hex text gives its bytes back");
    }
    return 0;
}
