// SPDX-License-Identifier: Apache-2.0
// Reading of a profile's JSON where every complaint names the place and what is expected there.
#pragma once

#include "sim/data/bytes.h"

#include <nlohmann/json_fwd.hpp>

#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vorn::sim {

class JsonNode {
public:
    JsonNode(const nlohmann::json& value, std::string where); // where: "memory.json: cards[0]"

    const nlohmann::json& value() const { return *value_; }
    const std::string& where() const { return where_; }

    // Throw ProfileError when the node is not of that kind.
    std::string text() const;
    bool flag() const;
    int number(int least, int most) const;
    Bytes hex() const;                 // blanks are skipped
    Bytes hex(std::size_t size) const; // of just that size
    std::vector<JsonNode> items() const;
    std::vector<std::pair<std::string, JsonNode>> members() const;

    JsonNode at(const char* key) const; // must be there
    std::optional<JsonNode> find(const char* key) const;
    void allow(std::initializer_list<const char*> keys) const; // complains of any other member

    bool isText() const;
    bool isArray() const;
    bool isObject() const;

    [[noreturn]] void expected(const std::string& what) const;

private:
    const nlohmann::json* value_;
    std::string where_;
};

} // namespace vorn::sim
