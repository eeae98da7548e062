// SPDX-License-Identifier: Apache-2.0
// One line of an explanation, with what belongs below it. Whoever makes it has masked it; whoever writes it down
// (text, JSON, a page) needs to know nothing of cards.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::tool {

// Mostly the program's own words, which are not copied: a pointer or a view is to a literal or a table. A string is kept.
class Title {
public:
    Title(const char* own = "") : text_(own) {}
    Title(std::string_view own) : text_(own) {}
    Title(std::string made) : kept_(std::make_shared<const std::string>(std::move(made))), text_(*kept_) {}

    operator std::string_view() const { return text_; }
    bool empty() const { return text_.empty(); }
    friend bool operator==(const Title& title, std::string_view text) { return title.text_ == text; }
    friend bool operator!=(const Title& title, std::string_view text) { return title.text_ != text; }

private:
    std::shared_ptr<const std::string> kept_;
    std::string_view text_;
};

enum class ItemKind { Object, Call, Exchange, Note };

struct Item {
    ItemKind kind = ItemKind::Object;
    std::string name; // "9F26", "TA1", "READ RECORD 1 of file 2"
    Title title;      // "Application cryptogram"
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

inline Item object(std::string name, Title title, std::string hex, std::string words = {})
{
    return {ItemKind::Object, std::move(name), std::move(title), std::move(hex), std::move(words), false, 0, {}};
}

inline Item remark(std::string words, bool failed = false)
{
    return {ItemKind::Note, {}, {}, {}, std::move(words), failed, 0, {}};
}

} // namespace vorn::tool
