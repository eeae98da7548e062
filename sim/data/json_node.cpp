// SPDX-License-Identifier: Apache-2.0
#include "sim/data/json_node.h"

#include "sim/data/profile_error.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace vorn::sim {

namespace {

constexpr std::size_t kShownMax = 60; // characters of what stands there instead
constexpr std::size_t kNameMax = 40;  // and of a member's name in a place: every node below carries it along

std::string found(const nlohmann::json& value)
{
    return printable(value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace), kShownMax);
}

} // namespace

JsonNode::JsonNode(const nlohmann::json& value, std::string where) : value_(&value), where_(std::move(where)) {}

void JsonNode::expected(const std::string& what) const
{
    throw ProfileError(where_ + ": expected " + what + ", found " + found(*value_));
}

bool JsonNode::isText() const { return value_->is_string(); }
bool JsonNode::isArray() const { return value_->is_array(); }
bool JsonNode::isObject() const { return value_->is_object(); }

std::string JsonNode::text() const
{
    if (!value_->is_string()) {
        expected("a text");
    }
    return value_->get<std::string>();
}

bool JsonNode::flag() const
{
    if (!value_->is_boolean()) {
        expected("true or false");
    }
    return value_->get<bool>();
}

int JsonNode::number(int least, int most) const
{
    const std::string range = "a number from " + std::to_string(least) + " to " + std::to_string(most);
    if (!value_->is_number_integer()) {
        expected(range);
    }
    if (value_->is_number_unsigned() && value_->get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX)) {
        expected(range);
    }
    const auto number = value_->get<std::int64_t>();
    if (number < least || number > most) {
        expected(range);
    }
    return static_cast<int>(number);
}

Bytes JsonNode::hex() const
{
    const auto bytes = value_->is_string() ? fromHex(value_->get<std::string>()) : std::nullopt;
    if (!bytes) {
        expected("hex text, two digits a byte");
    }
    return *bytes;
}

Bytes JsonNode::hex(std::size_t size) const
{
    Bytes bytes = hex();
    if (bytes.size() != size) {
        expected(std::to_string(size) + " bytes of hex text");
    }
    return bytes;
}

std::vector<JsonNode> JsonNode::items() const
{
    if (!value_->is_array()) {
        expected("a list");
    }
    std::vector<JsonNode> nodes;
    for (std::size_t i = 0; i < value_->size(); ++i) {
        nodes.emplace_back((*value_)[i], where_ + "[" + std::to_string(i) + "]");
    }
    return nodes;
}

std::vector<std::pair<std::string, JsonNode>> JsonNode::members() const
{
    if (!value_->is_object()) {
        expected("an object");
    }
    std::vector<std::pair<std::string, JsonNode>> nodes;
    for (const auto& [key, member] : value_->items()) {
        nodes.emplace_back(key, JsonNode(member, where_ + "." + printable(key, kNameMax)));
    }
    return nodes;
}

JsonNode JsonNode::at(const char* key) const
{
    const auto node = find(key);
    if (!node) {
        throw ProfileError(where_ + ": \"" + key + "\" is missing");
    }
    return *node;
}

std::optional<JsonNode> JsonNode::find(const char* key) const
{
    if (!value_->is_object()) {
        expected("an object");
    }
    const auto member = value_->find(key);
    if (member == value_->end()) {
        return std::nullopt;
    }
    return JsonNode(*member, where_ + "." + key);
}

void JsonNode::allow(std::initializer_list<const char*> keys) const
{
    for (const auto& [key, node] : members()) {
        if (std::find(keys.begin(), keys.end(), key) != keys.end()) {
            continue;
        }
        std::string known;
        for (const char* name : keys) {
            known += (known.empty() ? "" : ", ") + std::string(name);
        }
        throw ProfileError(node.where() + ": unknown here; known are " + known);
    }
}

} // namespace vorn::sim
