// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/recognise.h"

#include "sim/data/tlv.h"
#include "sim/issuer/cryptogram_text.h"
#include "sim/reader/line_recording.h"
#include "tools/explain/apdu_view.h"
#include "tools/explain/apdu_words.h"
#include "tools/explain/atr_view.h"
#include "tools/explain/frame_view.h"
#include "tools/explain/hex.h"
#include "tools/explain/lettered.h"
#include "tools/explain/log_entries.h"
#include "tools/explain/log_story.h"
#include "tools/explain/object_view.h"
#include "tools/explain/status_words.h"
#include "tools/explain/text_view.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace vorn::tool {

namespace tlv = sim::tlv;

namespace {

struct Named {
    const char* name;
    InputKind kind;
};

const Named kNames[] = {{"log", InputKind::Log},
                        {"trace", InputKind::Trace},
                        {"recording", InputKind::Recording},
                        {"frame", InputKind::Frame},
                        {"reader", InputKind::ReaderCommand},
                        {"apdu", InputKind::Command},
                        {"exchange", InputKind::Exchange},
                        {"response", InputKind::Response},
                        {"status", InputKind::Status},
                        {"tlv", InputKind::Objects},
                        {"dol", InputKind::List},
                        {"atr", InputKind::AnswerToReset},
                        {"record", InputKind::Record},
                        {"transactions", InputKind::Transactions},
                        {"arqc", InputKind::Arqc},
                        {"tc", InputKind::Tc},
                        {"state", InputKind::State}};

std::string trimmed(const std::string& text)
{
    const std::size_t from = text.find_first_not_of(" \t\r\n\"'");
    const std::size_t to = text.find_last_not_of(" \t\r\n\"'");
    return from == std::string::npos ? "" : text.substr(from, to - from + 1);
}

// Hex as people write it: blanks, colons, hyphens, commas, 0x, either case.
std::optional<Bytes> tolerantHex(const std::string& text)
{
    std::string dense;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool prefix = c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X');
        if (prefix) {
            ++i;
        } else if (std::string(" \t\r\n:-,;.<>\\{}").find(c) == std::string::npos) {
            dense += c;
        }
    }
    const auto bytes = fromHex(dense);
    return bytes && !bytes->empty() ? bytes : std::nullopt;
}

// The lines that hold anything, without what marks a direction or says it in words behind.
std::vector<Bytes> hexLines(const std::string& text)
{
    std::vector<Bytes> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (trimmed(line).empty()) {
            continue;
        }
        const auto bytes = tolerantHex(line.substr(0, line.find("   ")));
        if (!bytes) {
            return {};
        }
        lines.push_back(*bytes);
    }
    return lines;
}

bool endsWithStatus(ByteSpan bytes) { return bytes.size() >= 2 && looksLikeStatus(bytes.last(2)); }

bool exchanges(const std::vector<Bytes>& lines)
{
    if (lines.size() < 2) {
        return false;
    }
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i % 2 == 0 ? !looksLikeCommand(lines[i]) : !endsWithStatus(lines[i])) {
            return false;
        }
    }
    return true;
}

bool wholeAnswerToReset(ByteSpan bytes)
{
    const auto parts = bytes[0] == 0x3B || bytes[0] == 0x3F ? decodeAtr(bytes) : std::vector<AtrPart>();
    return bytes.size() >= 2 && !parts.empty() && std::none_of(parts.begin(), parts.end(), [](const AtrPart& part) {
               return part.name == "missing" || part.name == "more";
           });
}

// A list's tags are all known ones; what looks like one by chance has others.
bool knownList(ByteSpan bytes)
{
    const auto list = tlv::parseDol(bytes);
    constexpr std::size_t longest = 64;
    return list && list->size() >= 2 && std::all_of(list->begin(), list->end(), [](const tlv::DolEntry& entry) {
               return !tagName(entry.tag).empty() && entry.length > 0 && entry.length <= longest &&
                      !tlv::constructed(entry.tag);
           });
}

bool knownObjects(ByteSpan bytes)
{
    const auto first = tlv::wellFormed(bytes) ? tlv::Cursor(bytes).object() : std::nullopt;
    return first && !tagName(first->tag).empty();
}

bool cryptogram(sim::CryptogramText kind, ByteSpan bytes)
{
    return sim::readCryptogramText(kind, toHex(bytes)).mistake.empty();
}

bool state(ByteSpan bytes)
{
    return bytes.size() > 3 && bytes[0] >= 1 && bytes[0] <= 3 && bytes[1] == 0x8D && knownObjects(bytes.from(1));
}

InputKind kindOfBytes(ByteSpan bytes)
{
    if (looksLikeStatus(bytes)) {
        return InputKind::Status;
    }
    if (parseFrame(bytes)) {
        return InputKind::Frame;
    }
    if (looksLikeReaderCommand(bytes)) {
        return InputKind::ReaderCommand;
    }
    if (wholeAnswerToReset(bytes)) {
        return InputKind::AnswerToReset;
    }
    if (state(bytes)) {
        return InputKind::State;
    }
    if (cryptogram(sim::CryptogramText::Arqc, bytes)) {
        return InputKind::Arqc;
    }
    if (cryptogram(sim::CryptogramText::Tc, bytes)) {
        return InputKind::Tc;
    }
    if (knownList(bytes)) {
        return InputKind::List;
    }
    const ByteSpan data = bytes.first(bytes.size() - std::min<std::size_t>(bytes.size(), 2));
    if (endsWithStatus(bytes) && knownObjects(data)) {
        return InputKind::Response;
    }
    if (knownObjects(bytes)) {
        return InputKind::Objects;
    }
    return looksLikeCommand(bytes)                              ? InputKind::Command
           : endsWithStatus(bytes) && tagName(bytes[0]).empty() ? InputKind::Response
                                                                : InputKind::Objects;
}

Explanation explainAnswerToReset(ByteSpan bytes)
{
    Explanation result{"answer to reset", {}, {}};
    for (const AtrPart& part : decodeAtr(bytes)) {
        result.items.push_back(object(part.name, part.meaning, part.hex));
        result.problem = part.name == "missing" ? std::string(part.meaning) + " missing" : result.problem;
    }
    return result;
}

Explanation explainExchanges(const std::vector<Bytes>& lines, bool show)
{
    Explanation result{"exchanges", {}, {}};
    ExchangeView view(show);
    for (std::size_t i = 0; i + 1 < lines.size(); i += 2) {
        result.items.push_back(view.exchange(lines[i], lines[i + 1]));
        result.items.back().number = i / 2 + 1;
    }
    if (lines.size() % 2 != 0) {
        result.items.push_back(view.exchange(lines.back(), {}));
        result.items.back().number = lines.size() / 2 + 1;
    }
    return result;
}

Explanation explainBytes(InputKind kind, ByteSpan bytes, bool show)
{
    switch (kind) {
    case InputKind::Frame:
        return explainFrame(bytes, show);
    case InputKind::ReaderCommand:
        return {"command to the reader", {explainReaderCommand(bytes, show)}, ""};
    case InputKind::Command:
        return {"command", {ExchangeView(show).command(bytes)}, ""};
    case InputKind::Response:
        return {"response", {ExchangeView(show).response(bytes)}, ""};
    case InputKind::Status:
        return {"status word", {object("", "Status word", toHex(bytes), statusMeaning(statusOf(bytes)))}, ""};
    case InputKind::List:
        return explainList(bytes);
    case InputKind::AnswerToReset:
        return explainAnswerToReset(bytes);
    case InputKind::Arqc:
    case InputKind::Tc:
        return explainCryptogram(kind == InputKind::Tc, bytes, show);
    case InputKind::State:
        return explainState(bytes, show);
    default:
        return explainObjects(bytes, show);
    }
}

} // namespace

std::optional<InputKind> kindOf(const std::string& name)
{
    const auto* const row =
        std::find_if(std::begin(kNames), std::end(kNames), [&](const Named& n) { return name == n.name; });
    return row == std::end(kNames) ? std::nullopt : std::optional(row->kind);
}

std::string kindNames(const char* between)
{
    std::string names;
    for (const Named& row : kNames) {
        names += (names.empty() ? "" : between) + std::string(row.name);
    }
    return names;
}

InputKind recognise(const std::string& text)
{
    const std::string whole = trimmed(text);
    if (whole.empty()) {
        return InputKind::Unknown;
    }
    if (sim::looksLikeRecording(whole)) {
        return InputKind::Recording;
    }
    if (looksLikeTraceFile(whole)) {
        return InputKind::Trace;
    }
    if (looksLikeServiceLog(whole)) {
        return InputKind::Log;
    }
    if (const CardRecord record = parseCardRecord(whole); record.problem.empty()) {
        return InputKind::Record;
    }
    if (const TransactionList list = parseTransactions(whole); list.problem.empty()) {
        return InputKind::Transactions;
    }
    if (exchanges(hexLines(whole))) {
        return InputKind::Exchange;
    }
    const auto bytes = tolerantHex(whole);
    return bytes ? kindOfBytes(*bytes) : InputKind::Unknown;
}

Explanation explain(InputKind kind, const std::string& text, bool show)
{
    const std::string whole = trimmed(text);
    switch (kind) {
    case InputKind::Unknown:
    case InputKind::Log:
    case InputKind::Recording:
        return {"", {}, "not understood"};
    case InputKind::Trace:
        return {"trace file", explainTraceFile(whole, show), ""};
    case InputKind::Record:
        return explainRecord(whole, show);
    case InputKind::Transactions:
        return explainTransactions(whole);
    case InputKind::Exchange: {
        const auto lines = hexLines(whole);
        return lines.empty() ? Explanation{"exchanges", {}, "not hex"} : explainExchanges(lines, show);
    }
    default:
        break;
    }
    const auto bytes = tolerantHex(whole);
    if (!bytes) {
        return {"", {}, "not hex, two digits a byte"};
    }
    return explainBytes(kind, *bytes, show);
}

} // namespace vorn::tool
