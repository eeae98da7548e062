// SPDX-License-Identifier: Apache-2.0
// What the tool reads of the library's lettered texts.
#include "support/input.h"
#include "support/require.h"
#include "tools/explain/lettered.h"

using namespace vorn;
using namespace vorn::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = stringOf(ByteView(data, size));
    const tool::CardRecord record = tool::parseCardRecord(text);
    for (char letter = 'A'; letter <= 'L'; ++letter) {
        const auto field = record.field(letter);
        require(!field || field->size() <= size, "a field lies in its text");
    }
    const tool::TransactionList list = tool::parseTransactions(text);
    require(list.transactions.size() <= size + 1, "no more transactions than characters");
    return 0;
}
