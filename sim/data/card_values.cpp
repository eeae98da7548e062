// SPDX-License-Identifier: Apache-2.0
#include "sim/data/card_values.h"

#include "sim/data/digits.h"
#include "sim/data/tlv.h"

#include <nlohmann/json.hpp>

#include <iconv.h>

#include <algorithm>
#include <stdexcept>

namespace vorn::sim {
namespace {

using Members = std::vector<std::pair<std::string, JsonNode>>;

constexpr std::uint64_t kAmountLimit = 1000000000000; // twelve digits
constexpr std::size_t kObjectsMax = 0xFFFF;           // what a length of two bytes can say
const std::string kGbk = "gbk:";
const std::string kText = "text:";

bool startsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

} // namespace

std::uint64_t amountOf(const JsonNode& node)
{
    std::uint64_t amount = kAmountLimit;
    if (node.value().is_number_integer() && node.value() >= 0) {
        amount = node.value().get<std::uint64_t>();
    } else if (node.isText()) {
        const std::string digits = node.text();
        if (digits.size() <= 12 && isDigits(digits)) {
            amount = std::stoull(digits);
        }
    }
    if (amount >= kAmountLimit) {
        node.expected("an amount in minor units, at most 12 digits");
    }
    return amount;
}

Bytes bytesOf(const JsonNode& node)
{
    const std::string form = "hex with two digits a byte, \"text:...\" or \"gbk:...\"";
    if (!node.isText()) {
        node.expected(form);
    }
    const std::string all = node.text();
    if (startsWith(all, kText) || startsWith(all, kGbk)) {
        return wordingOf(node);
    }
    const auto hex = fromHex(all);
    if (!hex) {
        node.expected(form);
    }
    return *hex;
}

Bytes bytesOf(const JsonNode& node, std::size_t least, std::size_t most)
{
    Bytes all = bytesOf(node);
    if (all.size() < least || all.size() > most) {
        node.expected(std::to_string(least) + (least == most ? std::string() : " to " + std::to_string(most)) +
                      " bytes");
    }
    return all;
}

Bytes wordingOf(const JsonNode& node)
{
    std::string all = node.text();
    if (startsWith(all, kGbk)) {
        try {
            return utf8ToGbk(all.substr(kGbk.size()));
        } catch (const std::invalid_argument& problem) {
            node.expected(problem.what());
        }
    }
    if (startsWith(all, kText)) {
        all.erase(0, kText.size());
    }
    return {all.begin(), all.end()};
}

Bytes objectsOf(const JsonNode& node)
{
    Bytes out;
    if (node.isArray()) {
        for (const JsonNode& item : node.items()) {
            tlv::append(out, objectsOf(item));
        }
    }
    for (const auto& [name, member] : node.isArray() ? Members() : node.members()) {
        const auto tag = tlv::tagFromHex(name);
        if (!tag) {
            member.expected("a tag in hex as the name of this object");
        }
        tlv::append(out, tlv::encode(*tag, member.isText() ? bytesOf(member) : objectsOf(member)));
    }
    if (out.size() > kObjectsMax) {
        node.expected("objects of at most " + std::to_string(kObjectsMax) + " bytes together");
    }
    return out;
}

Bytes utf8ToGbk(const std::string& text)
{
    if (std::all_of(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0x80U) == 0; })) {
        return {text.begin(), text.end()};
    }
    const iconv_t converter = iconv_open("GBK", "UTF-8");
    if (converter == iconv_t(-1)) { // NOLINT(performance-no-int-to-ptr): as iconv_open says that it failed
        throw std::invalid_argument("an ASCII text, since this system's C library has no conversion to GBK");
    }
    std::string in = text;
    Bytes out(2 * in.size() + 1);
    char* from = in.data();
    char* to = reinterpret_cast<char*>(out.data());
    std::size_t left = in.size();
    std::size_t room = out.size();
    const std::size_t result = iconv(converter, &from, &left, &to, &room);
    iconv_close(converter);
    if (result == static_cast<std::size_t>(-1)) {
        throw std::invalid_argument("a text that GBK can hold");
    }
    out.resize(out.size() - room);
    return out;
}

Bytes bcdAmount(std::uint64_t amount)
{
    Bytes digits(6);
    for (auto byte = digits.rbegin(); byte != digits.rend(); ++byte) {
        *byte = static_cast<std::uint8_t>(amount / 10 % 10 * 16 + amount % 10);
        amount /= 100;
    }
    return digits;
}

std::uint64_t amountFromBcd(const Bytes& digits)
{
    std::uint64_t amount = 0;
    for (const std::uint8_t byte : digits) {
        amount = amount * 100 + std::uint64_t{10} * (byte >> 4) + (byte & 0x0FU);
    }
    return amount;
}

} // namespace vorn::sim
