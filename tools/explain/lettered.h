// SPDX-License-Identifier: Apache-2.0
// The lettered texts that the library hands out: letter, three digits, that many characters.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vorn::tool {

// The record of a card's data.
struct CardRecord {
    // Missing altogether, or there and empty: both happen, with different meanings.
    std::optional<std::string> field(char letter) const;

    struct Field {
        char letter;
        std::string text;
    };
    std::vector<Field> fields;
    std::string problem; // empty: the text was read to its end
};

CardRecord parseCardRecord(const std::string& text);

// One transaction of the log, as far as its text can be read.
struct LoggedTransaction {
    std::string otherAmount, currency, date, type, time, country; // hex text
    std::string merchant;                                         // UTF-8
    int merchantBytes = 0; // what W says: bytes of the card's name, not of the text
    std::string counter;
};

struct TransactionList {
    std::vector<LoggedTransaction> transactions;
    std::string problem;
};

TransactionList parseTransactions(const std::string& text);

} // namespace vorn::tool
