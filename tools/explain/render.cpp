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

std::string headOf(const Item& item)
{
    const std::string number = item.number > 0 ? std::to_string(item.number) + ". " : "";
    const std::string gap = item.name.empty() || item.title.empty() ? "" : "  ";
    return number + item.name + gap + item.title;
}

} // namespace

std::string textOf(const Item& item, std::size_t depth)
{
    const std::string indent(2 * depth, ' ');
    const std::string inner = indent + "    ";
    const std::string mark = item.failed ? "!! " : "";
    const std::string head = headOf(item);
    std::string text;
    if (head.empty()) {
        text += indent + mark + item.words + "\n";
    } else {
        text += indent + mark + head + "\n";
    }
    if (!item.hex.empty()) {
        text += inner + item.hex + "\n";
    }
    if (!head.empty() && !item.words.empty() && item.words != item.hex) {
        text += inner + item.words + "\n";
    }
    for (const Item& below : item.below) {
        text += textOf(below, depth + (below.kind == ItemKind::Note ? 2 : 1));
    }
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
