// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/object_view.h"

#include "sim/issuer/cryptogram_text.h"
#include "tools/explain/bits.h"
#include "tools/explain/hex.h"
#include "tools/explain/present.h"

#include <algorithm>
#include <iterator>

namespace vorn::tool {

namespace tlv = sim::tlv;

namespace {

constexpr Tag kCurrency = 0x5F2A;
constexpr Tag kAmounts[] = {0x9F02, 0x9F03};

bool amount(Tag tag) { return std::find(std::begin(kAmounts), std::end(kAmounts), tag) != std::end(kAmounts); }

// The currency that stands somewhere among the objects; empty when none does.
std::string currencyIn(const std::vector<TlvNode>& nodes)
{
    for (const TlvNode& node : nodes) {
        if (node.tag == kCurrency && node.value.size() == 2) {
            return toHex(node.value);
        }
    }
    return {};
}

// From nodes in the order of the bytes to a tree: the objects of one depth, and within each what stands behind it deeper.
class Tree {
public:
    Tree(const std::vector<TlvNode>& nodes, bool show) : nodes_(nodes), show_(show), currency_(currencyIn(nodes)) {}

    std::vector<Item> level(std::size_t depth)
    {
        std::vector<Item> items;
        items.reserve(countOf(depth));
        while (at_ < nodes_.size() && nodes_[at_].depth == depth) {
            const TlvNode& node = nodes_[at_++];
            items.push_back(explainObject(node.tag, node.constructed ? ByteSpan() : node.value, show_, currency_));
            if (node.constructed) {
                items.back().below = level(depth + 1);
            }
        }
        return items;
    }

private:
    std::size_t countOf(std::size_t depth) const
    {
        std::size_t count = 0;
        for (std::size_t at = at_; at < nodes_.size() && nodes_[at].depth >= depth; ++at) {
            count += nodes_[at].depth == depth ? 1U : 0U;
        }
        return count;
    }

    const std::vector<TlvNode>& nodes_;
    bool show_;
    std::string currency_;
    std::size_t at_ = 0;
};

} // namespace

Item explainObject(Tag tag, ByteSpan value, bool show, const std::string& currency)
{
    const bool constructed = tlv::constructed(tag);
    Item item = object(tlv::toHex(tag), tagName(tag), constructed ? "" : valueHex(tag, value, show));
    if (constructed) {
        return item;
    }
    auto lines = bitsInWords(tag, value);
    if (lines.size() == 1) {
        item.words = std::move(lines[0]);
    } else if (!lines.empty()) {
        item.below.reserve(lines.size());
        for (std::string& line : lines) {
            item.below.push_back(remark(std::move(line)));
        }
    } else if (amount(tag) && !currency.empty()) {
        item.words = amountText(toHex(value), currency) + " " + currencyText(currency);
    } else {
        item.words = valueInWords({tag, 0, 0, value, false}, show);
    }
    return item;
}

Explanation explainObjects(ByteSpan bytes, bool show)
{
    const TlvWalk walk = walkTlv(bytes);
    Explanation result{"objects", Tree(walk.nodes, show).level(0), walk.problem};
    if (!walk.problem.empty()) {
        // Masked with what stands before it, so that a cut does not open what it belongs to.
        result.items.push_back(object("", "not read", hexText(bytes, show).substr(2 * walk.stoppedAt)));
    }
    return result;
}

Explanation explainList(ByteSpan bytes)
{
    const auto list = tlv::parseDol(bytes);
    if (!list) {
        return {"list", {}, "not a list of tags and lengths"};
    }
    Explanation result{"list", {}, {}};
    for (const tlv::DolEntry& entry : *list) {
        result.items.push_back(
            object(tlv::toHex(entry.tag), tagName(entry.tag), "", std::to_string(entry.length) + " bytes"));
    }
    return result;
}

Explanation explainListed(ByteSpan list, ByteSpan values, bool show)
{
    const auto entries = tlv::parseDol(list);
    Explanation result{"values of a list", {}, {}};
    if (!entries || tlv::dataLength(*entries) != values.size()) {
        result.problem = entries ? "the values are not as long as the list asks for" : "the list cannot be read";
        return result;
    }
    std::vector<TlvNode> nodes;
    nodes.reserve(entries->size());
    tlv::Cursor cursor(values);
    for (const tlv::DolEntry& entry : *entries) {
        nodes.push_back({entry.tag, 0, cursor.position(), cursor.look(entry.length).value_or(ByteSpan()), false});
    }
    const std::string currency = currencyIn(nodes);
    result.items.reserve(nodes.size());
    for (const TlvNode& node : nodes) {
        result.items.push_back(explainObject(node.tag, node.value, show, currency));
    }
    return result;
}

Explanation explainCryptogram(bool tc, ByteSpan bytes, bool show)
{
    const sim::CryptogramItems items =
        sim::readCryptogramText(tc ? sim::CryptogramText::Tc : sim::CryptogramText::Arqc, toHex(bytes));
    Explanation result{tc ? "text of a TC" : "text of an ARQC", {}, items.mistake};
    const auto currency = items.values.find(kCurrency);
    result.items.reserve(items.values.size());
    for (const auto& [tag, value] : items.values) {
        result.items.push_back(
            explainObject(tag, value, show, currency == items.values.end() ? "" : toHex(currency->second)));
    }
    return result;
}

Explanation explainState(ByteSpan bytes, bool show)
{
    if (bytes.empty()) {
        return {"state between the transaction calls", {}, "empty"};
    }
    static const char* const interfaces[] = {"", "with contacts", "contactless"};
    const std::size_t kind = bytes[0];
    Explanation result = explainObjects(bytes.from(1), show);
    result.kind = "state between the transaction calls";
    result.items.insert(result.items.begin(),
                        object("", "Card", toHex({bytes[0]}), kind < std::size(interfaces) ? interfaces[kind] : ""));
    return result;
}

} // namespace vorn::tool
