// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/render.h"

#include "tools/explain/present.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string_view>

namespace vorn::tool {

namespace {

const char* kindName(ItemKind kind)
{
    switch (kind) {
    case ItemKind::Object:
        return "object";
    case ItemKind::Call:
        return "call";
    case ItemKind::Exchange:
        return "exchange";
    case ItemKind::Note:
        return "note";
    }
    return "object";
}

// Counts what a writer of the same form would write.
class Counter {
public:
    void add(std::string_view text) { count_ += text.size(); }
    std::size_t count() const { return count_; }

private:
    std::size_t count_ = 0;
};

class Writer {
public:
    explicit Writer(char* to) : to_(to) {}
    void add(std::string_view text) { to_ = std::copy(text.begin(), text.end(), to_); }

private:
    char* to_;
};

template <class Out>
void addBlanks(Out& out, std::size_t count)
{
    constexpr std::string_view blanks = "                                ";
    for (; count > blanks.size(); count -= blanks.size()) {
        out.add(blanks);
    }
    out.add(blanks.substr(0, count));
}

template <class Out>
void addLine(Out& out, std::size_t indent, std::string_view line)
{
    addBlanks(out, indent);
    out.add(line);
    out.add("\n");
}

template <class Out>
void addHead(Out& out, const Item& item)
{
    if (item.number > 0) {
        out.add(std::to_string(item.number));
        out.add(". ");
    }
    out.add(item.name);
    if (!item.name.empty() && !item.title.empty()) {
        out.add("  ");
    }
    out.add(item.title);
}

template <class Out>
void addText(Out& out, const Item& item, std::size_t depth)
{
    const std::size_t indent = 2 * depth;
    const std::size_t inner = indent + 4;
    const bool headless = item.number == 0 && item.name.empty() && item.title.empty();
    addBlanks(out, indent);
    if (item.failed) {
        out.add("!! ");
    }
    if (headless) {
        out.add(item.words);
    } else {
        addHead(out, item);
    }
    out.add("\n");
    if (!item.hex.empty()) {
        addLine(out, inner, item.hex);
    }
    if (!headless && !item.words.empty() && item.words != item.hex) {
        addLine(out, inner, item.words);
    }
    for (const Item& below : item.below) {
        addText(out, below, depth + (below.kind == ItemKind::Note ? 2 : 1));
    }
}

} // namespace

std::string textOf(const Item& item, std::size_t depth)
{
    Counter counter;
    addText(counter, item, depth);
    std::string text(counter.count(), ' ');
    Writer writer(text.data());
    addText(writer, item, depth);
    return text;
}

nlohmann::ordered_json jsonOf(const Item& item)
{
    nlohmann::ordered_json json = {{"kind", kindName(item.kind)},
                                   {"name", item.name},
                                   {"title", std::string_view(item.title)},
                                   {"value", item.hex},
                                   {"words", item.words}};
    if (item.number > 0) {
        json["number"] = item.number;
    }
    if (item.failed) {
        json["failed"] = true;
    }
    if (!item.below.empty()) {
        json["objects"] = nlohmann::ordered_json::array();
        for (const Item& below : item.below) {
            json["objects"].push_back(jsonOf(below));
        }
    }
    return json;
}

} // namespace vorn::tool
