// SPDX-License-Identifier: Apache-2.0
// One line of an explanation, with what belongs below it. Whoever makes it has masked it; whoever writes it down
// (text, JSON, a page) needs to know nothing of cards.
#pragma once

#include <string>
#include <vector>

namespace vorn::tool {

enum class ItemKind { Object, Call, Exchange, Note };

struct Item {
    ItemKind kind = ItemKind::Object;
    std::string name;  // "9F26", "TA1", "READ RECORD 1 of file 2"
    std::string title; // "Application cryptogram"
    std::string hex;
    std::string words;
    bool failed = false;
    std::size_t number = 0; // of an exchange, from 1
    std::vector<Item> below;
};

// What was read, and why the rest was not.
struct Explanation {
    std::string kind; // "objects", "answer to reset", "log"
    std::vector<Item> items;
    std::string problem;
};

inline Item object(std::string name, std::string title, std::string hex, std::string words = {})
{
    return {ItemKind::Object, std::move(name), std::move(title), std::move(hex), std::move(words), false, 0, {}};
}

inline Item remark(std::string words, bool failed = false)
{
    return {ItemKind::Note, {}, {}, {}, std::move(words), failed, 0, {}};
}

} // namespace vorn::tool
