// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/apdu_view.h"

#include "sim/data/tlv.h"
#include "tools/explain/apdu_words.h"
#include "tools/explain/hex.h"
#include "tools/explain/object_view.h"
#include "tools/explain/present.h"
#include "tools/explain/status_words.h"

#include <algorithm>

namespace vorn::tool {

namespace tlv = sim::tlv;

namespace {

enum Instruction : std::uint8_t {
    kExternalAuthenticate = 0x82,
    kGetChallenge = 0x84,
    kSelect = 0xA4,
    kProcessingOptions = 0xA8,
    kGenerateCryptogram = 0xAE,
    kReadRecord = 0xB2,
    kGetResponse = 0xC0,
    kGetData = 0xCA
};

constexpr std::size_t kHeader = 4;
constexpr std::size_t kDataAt = 5;
constexpr Tag kFormat1 = 0x80;
constexpr std::size_t kShortestCryptogram = 11; // in format 1: information data, counter, cryptogram
constexpr std::uint8_t kRecordTemplate = 0x70;
// The layout of a transaction log that was not asked for it; records of another length are not taken for one.
const Bytes kUsualLog = {0x9A, 0x03, 0x9F, 0x21, 0x03, 0x9F, 0x02, 0x06, 0x9F, 0x03, 0x06, 0x9F, 0x1A,
                         0x02, 0x5F, 0x2A, 0x02, 0x9F, 0x4E, 0x14, 0x9C, 0x01, 0x9F, 0x36, 0x02};

ByteSpan dataOfCommand(ByteSpan apdu)
{
    return apdu.size() <= kDataAt ? ByteSpan() : apdu.from(kDataAt).first(apdu[kHeader]);
}

void keep(ByteSpan data, Tag tag, Bytes& into)
{
    if (const auto value = tlv::look(data, tag)) {
        into.assign(value->begin(), value->end());
    }
}

struct Part {
    Tag tag;
    std::size_t size; // 0: the rest
};

// Format 1 has no tags inside; where each object stands is agreed.
std::vector<Item> format1(ByteSpan value, std::initializer_list<Part> parts, bool show)
{
    std::vector<Item> items;
    items.reserve(parts.size());
    std::size_t at = 0;
    for (const Part& part : parts) {
        const std::size_t end = part.size == 0 ? value.size() : at + part.size;
        if (at < value.size()) {
            items.push_back(explainObject(part.tag, value.first(end).from(at), show));
        }
        at = end;
    }
    return items;
}

struct Consequence {
    std::uint8_t instruction;
    unsigned first, last;
    const char* words;
};

const Consequence kConsequences[] = {
    {kSelect, 0x6A81, 0x6A81, "the card is blocked, or does not select by name"},
    {kSelect, 0x6283, 0x6283, "the application is blocked; its issuer may unblock it"},
    {kSelect, 0x6A82, 0x6A82, "the card does not have this application"},
    {kProcessingOptions, 0x6985, 0x6985, "the card refuses this kind of transaction, or one is under way already"},
    {kProcessingOptions, 0x6700, 0x6700, "the data are not as long as the card's list asks for"},
    {kReadRecord, 0x6A82, 0x6A83, "the card's file locator names a record that the card does not have"},
    {kGenerateCryptogram, 0x6985, 0x6985, "the card gives no (further) cryptogram in this transaction"},
    {kGenerateCryptogram, 0x6700, 0x6700, "the data are not as long as the card's list asks for"},
    {kExternalAuthenticate, 0x6300, 0x6300,
     "the card did not accept the issuer's answer: made with another key, or for another transaction"},
    {kExternalAuthenticate, 0x6985, 0x6985, "the card expects no issuer's answer now"},
    {0x20, 0x63C0, 0x63CF, "the PIN is wrong"},
    {0x20, 0x6983, 0x6983, "no PIN tries are left"},
};

// Only a name that is selected may hold what is secret.
std::string commandWords(ByteSpan apdu, bool show)
{
    return maskedUnless(show || apdu.size() < kHeader || apdu[1] != kSelect, commandInWords(apdu));
}

// Profiles, locators and cryptograms are no account numbers, whatever their digits.
std::string answerWords(ByteSpan apdu, ByteSpan response, bool show)
{
    const std::string words = answerInWords(apdu, response);
    const bool harmless = apdu.size() >= kHeader && (apdu[1] == kProcessingOptions || apdu[1] == kGenerateCryptogram);
    return maskedUnless(show || harmless, words);
}

} // namespace

std::string consequence(ByteSpan apdu, unsigned status)
{
    if (apdu.size() < kHeader) {
        return {};
    }
    for (const Consequence& row : kConsequences) {
        if (row.instruction == apdu[1] && status >= row.first && status <= row.last) {
            return row.words;
        }
    }
    return (apdu[0] & 0x04U) != 0 && status != 0x9000 ? "a command of the issuer's script was refused" : "";
}

bool looksLikeStatus(ByteSpan bytes)
{
    const unsigned first = bytes.size() == 2 ? bytes[0] : 0;
    return (first == 0x90 && bytes[1] == 0) || (first >= 0x61 && first <= 0x6F) || first == 0x93 || first == 0x94;
}

bool looksLikeCommand(ByteSpan bytes)
{
    if (bytes.size() < kHeader || !knownInstruction(bytes[1]) ||
        (bytes[0] != 0x00 && (bytes[0] & 0xF0U) != 0x80 && bytes[0] != 0x04 && bytes[0] != 0x0C)) {
        return false;
    }
    const std::size_t rest = bytes.size() - kHeader;
    return rest <= 1 || rest == 1U + bytes[kHeader] || rest == 2U + bytes[kHeader];
}

void ExchangeView::powerOn()
{
    pdol_.clear();
    cdol1_.clear();
    cdol2_.clear();
    log_.clear();
    cryptograms_ = 0;
}

void ExchangeView::learn(ByteSpan apdu, ByteSpan data)
{
    if (apdu[1] == kSelect || apdu[1] == kGetResponse) {
        keep(data, 0x9F38, pdol_);
    }
    keep(data, 0x8C, cdol1_);
    keep(data, 0x8D, cdol2_);
    keep(data, 0x9F4F, log_);
    log_ = tlv::parseDol(log_) ? log_ : Bytes();
}

Item ExchangeView::commandData(ByteSpan apdu, std::string hex) const
{
    const ByteSpan data = dataOfCommand(apdu);
    Item item = object("", "Data", std::move(hex));
    Explanation listed;
    if (apdu[1] == kGenerateCryptogram) {
        listed = explainListed(cryptograms_ == 0 ? cdol1_ : cdol2_, data, show_);
    } else if (apdu[1] == kProcessingOptions && data.size() >= 2 && data[0] == 0x83) {
        listed = explainListed(pdol_, data.from(2), show_);
    } else if (apdu[1] == kExternalAuthenticate) {
        listed.items.push_back(explainObject(0x91, data, show_));
    }
    if (listed.problem.empty()) {
        item.below = std::move(listed.items);
    }
    return item;
}

Item ExchangeView::command(ByteSpan apdu, std::string words) const
{
    Item item = object("", "Command", commandHex(apdu, show_), std::move(words));
    if (const ByteSpan data = dataOfCommand(apdu); !data.empty()) {
        item.below.push_back(commandData(apdu, item.hex.substr(2 * kDataAt, 2 * data.size())));
    }
    return item;
}

Item ExchangeView::command(ByteSpan apdu) const { return command(apdu, commandWords(apdu, show_)); }

std::vector<Item> ExchangeView::responseItems(ByteSpan apdu, ByteSpan data) const
{
    const std::uint8_t instruction = apdu.size() < kHeader ? 0 : apdu[1];
    tlv::Cursor cursor(data);
    const auto first = tlv::wellFormed(data) ? cursor.object() : std::nullopt;
    const bool plain = first && first->tag == kFormat1 && cursor.atEnd();
    // GET RESPONSE hands over what the command before it asked for; two formats tell themselves by their first object.
    if (plain && (instruction == kProcessingOptions)) {
        return format1(first->value, {{0x82, 2}, {0x94, 0}}, show_);
    }
    const bool cryptogram = plain && first->value.size() >= kShortestCryptogram;
    if (cryptogram && (instruction == kGenerateCryptogram || (instruction == kGetResponse && cryptograms_ > 0))) {
        return format1(first->value, {{0x9F27, 1}, {0x9F36, 2}, {0x9F26, 8}, {0x9F10, 0}}, show_);
    }
    if (instruction == kReadRecord && (data.empty() || data[0] != kRecordTemplate)) {
        return explainListed(log_.empty() ? kUsualLog : log_, data, show_).items;
    }
    if (!first || tagName(first->tag).empty()) {
        return {};
    }
    return explainObjects(data, show_).items;
}

Item ExchangeView::response(ByteSpan response) const
{
    Item item = object("", "Response", hexText(dataOf(response), show_), statusText(statusOf(response)));
    if (!dataOf(response).empty()) {
        item.below = explainObjects(dataOf(response), show_).items;
    }
    return item;
}

void ExchangeView::follow(ByteSpan apdu, ByteSpan response)
{
    if (apdu.size() < kHeader) {
        return;
    }
    const bool again = statusOf(response) >> 8 == 0x6C; // with another Le
    if (apdu[1] == kGenerateCryptogram && !again) {
        ++cryptograms_;
    }
    if (!dataOf(response).empty()) {
        learn(apdu, dataOf(response));
    }
}

Item ExchangeView::exchange(ByteSpan apdu, ByteSpan response)
{
    Item item;
    item.kind = ItemKind::Exchange;
    item.name = commandWords(apdu, show_);
    item.below.reserve(2); // command and answer
    item.below.push_back(command(apdu, item.name));
    follow(apdu, response);
    if (response.size() < 2) {
        item.words = "no answer";
        item.below.push_back(remark("no answer from the card or the reader"));
        return item;
    }
    const ByteSpan data = dataOf(response);
    const std::string answer = answerWords(apdu, response, show_);
    Item answered = object("", "Response", responseHex(apdu, response, show_), statusText(statusOf(response)));
    item.words = answered.words + (answer.empty() ? "" : ": " + answer);
    if (!data.empty() && apdu.size() >= kHeader) {
        answered.below = responseItems(apdu, data);
    }
    item.below.push_back(std::move(answered));
    return item;
}

} // namespace vorn::tool
