// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/render.h"

#include "tools/explain/present.h"

#include <nlohmann/json.hpp>

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

std::string_view blanks(std::size_t count)
{
    static const std::string kBlanks(256, ' '); // deeper than any tree
    return std::string_view(kBlanks).substr(0, count);
}

void addLine(std::string& text, std::string_view indent, std::string_view line)
{
    text += indent;
    text += line;
    text += '\n';
}

void addHead(std::string& text, const Item& item)
{
    if (item.number > 0) {
        text += std::to_string(item.number);
        text += ". ";
    }
    text += item.name;
    if (!item.name.empty() && !item.title.empty()) {
        text += "  ";
    }
    text += item.title;
}

void addText(std::string& text, const Item& item, std::size_t depth)
{
    const std::string_view indent = blanks(2 * depth);
    const std::string_view inner = blanks(2 * depth + 4);
    const bool headless = item.number == 0 && item.name.empty() && item.title.empty();
    text += indent;
    if (item.failed) {
        text += "!! ";
    }
    if (headless) {
        text += item.words;
    } else {
        addHead(text, item);
    }
    text += '\n';
    if (!item.hex.empty()) {
        addLine(text, inner, item.hex);
    }
    if (!headless && !item.words.empty() && item.words != item.hex) {
        addLine(text, inner, item.words);
    }
    for (const Item& below : item.below) {
        addText(text, below, depth + (below.kind == ItemKind::Note ? 2 : 1));
    }
}

} // namespace

std::string textOf(const Item& item, std::size_t depth)
{
    std::string text;
    addText(text, item, depth);
    return text;
}

nlohmann::ordered_json jsonOf(const Item& item)
{
    nlohmann::ordered_json json = {{"kind", kindName(item.kind)},
                                   {"name", item.name},
                                   {"title", item.title},
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
