// SPDX-License-Identifier: Apache-2.0
#include "tools/verify/authorities.h"

#include "sim/data/json_node.h"
#include "sim/data/json_text.h"
#include "sim/data/profile_error.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>

namespace vorn::tool::verify {
namespace {

constexpr std::size_t kRidSize = 5, kSerialSize = 3;
constexpr std::size_t kModulusMin = 64, kModulusMax = 248; // EMV Book 2, B2.1

unsigned monthOf(const sim::JsonNode& node)
{
    const std::string text = node.text(); // 2049-12
    const bool form = text.size() == 7 && text[4] == '-' &&
                      text.find_first_not_of("0123456789-") == std::string::npos &&
                      std::count(text.begin(), text.end(), '-') == 1;
    const unsigned month = form ? static_cast<unsigned>(std::stoul(text.substr(5))) : 0;
    if (month < 1 || month > 12) {
        node.expected("a year and a month such as 2049-12");
    }
    return static_cast<unsigned>(std::stoul(text.substr(0, 4))) * 100 + month;
}

AuthorityKey keyOf(const sim::JsonNode& node)
{
    node.allow({"name", "rid", "index", "modulus", "exponent", "expires", "comment"});
    const auto name = node.find("name");
    AuthorityKey key{name ? name->text() : "", node.at("rid").hex(kRidSize), node.at("index").hex(1)[0],
                     node.at("modulus").hex(), node.at("exponent").hex(),    monthOf(node.at("expires"))};
    if (key.modulus.size() < kModulusMin || key.modulus.size() > kModulusMax) {
        node.at("modulus").expected("a modulus of 64 to 248 bytes");
    }
    if (key.exponent.empty() || key.exponent.size() > 3) {
        node.at("exponent").expected("an exponent of 1 to 3 bytes");
    }
    return key;
}

Revocation revocationOf(const sim::JsonNode& node)
{
    node.allow({"rid", "index", "serial", "comment"});
    return {node.at("rid").hex(kRidSize), node.at("index").hex(1)[0], node.at("serial").hex(kSerialSize)};
}

std::string textOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(sim::kJsonSizeMax + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!file.is_open() || file.bad()) {
        throw sim::ProfileError(path + ": cannot be read");
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

} // namespace

const AuthorityKey* Authorities::find(const Bytes& rid, std::uint8_t index) const
{
    const auto found = std::find_if(keys.begin(), keys.end(),
                                    [&](const AuthorityKey& key) { return key.rid == rid && key.index == index; });
    return found == keys.end() ? nullptr : &*found;
}

bool Authorities::revokes(const AuthorityKey& key, const Bytes& serial) const
{
    return std::any_of(revoked.begin(), revoked.end(), [&](const Revocation& each) {
        return each.rid == key.rid && each.index == key.index && each.serial == serial;
    });
}

Authorities testAuthorities()
{
    const Bytes rid = {0xA0, 0x00, 0x00, 0x03, 0x33};
    constexpr std::uint8_t kIndex = 0x80;
    const Bytes modulus = sim::fromHex(testAuthorityModulus()).value_or(Bytes());
    return {{{"the simulated cards' test key", rid, kIndex, modulus, {0x03}, 204912}},
            {{rid, kIndex, {0x00, 0x10, 0xBA}}}};
}

Authorities readAuthorities(const std::string& path)
{
    const nlohmann::json json = sim::parseJson(textOf(path), path);
    const sim::JsonNode root(json, path + ": file");
    root.allow({"keys", "revoked", "comment"});
    Authorities result;
    for (const sim::JsonNode& node : root.at("keys").items()) {
        result.keys.push_back(keyOf(node));
    }
    if (const auto list = root.find("revoked")) {
        for (const sim::JsonNode& node : list->items()) {
            result.revoked.push_back(revocationOf(node));
        }
    }
    return result;
}

} // namespace vorn::tool::verify
