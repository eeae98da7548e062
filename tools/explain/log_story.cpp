// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/log_story.h"

#include "tools/explain/apdu_words.h"
#include "tools/explain/atr_view.h"
#include "tools/explain/frame_view.h"
#include "tools/explain/hex.h"
#include "tools/explain/object_view.h"
#include "tools/explain/present.h"
#include "tools/explain/status_words.h"
#include "tools/explain/text_view.h"

#include <algorithm>
#include <sstream>

namespace vorn::tool {

namespace {

constexpr std::uint8_t kSelect = 0xA4;
constexpr std::uint8_t kProcessingOptions = 0xA8;
constexpr std::uint8_t kGenerateCryptogram = 0xAE;
constexpr std::uint8_t kReadRecord = 0xB2;
constexpr std::uint8_t kGetData = 0xCA;
constexpr std::size_t kReaderHeader = 3; // the reader's own bytes before an APDU

struct Call {
    const char* name;
    const char* words;
    bool tellsSuccess; // an entry of its own says that it went well
};

const Call kCalls[] = {{"IC_GetInfo", "reads the customer's data", true},
                       {"IC_GenARQC", "the card makes its request to the issuer", true},
                       {"IC_CtlScriptData", "the card gets the issuer's answer", true},
                       {"IC_GetTranDeta", "reads the card's transaction log", true},
                       {"IC_GetZzhHardWalletInfo", "reads a hard wallet", true},
                       {"IC_PowerOn", "powers a card", false},
                       {"IC_PowerOff", "powers a card off", false},
                       {"IC_SendAPDU", "sends a command to a card", true},
                       {"IC_OpenPort", "opens the port", false},
                       {"IC_ClosePort", "closes the port", false},
                       {"IC_M1ActiveCard", "activates a memory card", true},
                       {"IC_M1CheckCardPin", "authenticates a block of a memory card", true},
                       {"IC_M1ReadCard", "reads a block of a memory card", true},
                       {"IC_M1WriteCard", "writes a block of a memory card", true},
                       {"IC_M1PowerOff", "switches the field off", false},
                       {"DEV_CommCall", "asks the reader what it is", false}};

const Call* callOf(const std::string& name)
{
    const auto* const row =
        std::find_if(std::begin(kCalls), std::end(kCalls), [&](const Call& c) { return name == c.name; });
    return row == std::end(kCalls) ? nullptr : row;
}

struct WayOut {
    int number;
    const char* words;
    bool failed;
};

// By these numbers the transaction calls tell in the log where they left.
const WayOut kWaysOut[] = {{3665, "the card could not be powered", true},
                           {3681, "no application was found on the card", true},
                           {3692, "the application could not be selected", true},
                           {3720, "no application of the list, nor another one, was found on the card", true},
                           {3731, "the application could not be selected", true},
                           {4054, "GET PROCESSING OPTIONS failed", true},
                           {4070, "the card's records could not be read", true},
                           {4119, "the card has no list for the first cryptogram (CDOL1)", true},
                           {4134, "the data for the first cryptogram could not be put together", true},
                           {4162, "the card's first cryptogram is not in format 1", true},
                           {4465, "the card has no list for the second cryptogram (CDOL2)", true},
                           {4634, "the state text has no list for the second cryptogram (CDOL2)", true},
                           {4962, "the data for the second cryptogram could not be put together", true},
                           {4977, "the issuer's answer is missing", true},
                           {5010, "the issuer's answer has no authentication data (91)", true},
                           {5018, "the issuer's authentication data (91) are too short", true},
                           {5069, "the card refused the transaction in its second cryptogram", true},
                           {5089, "declined, as the issuer's answer asked", false},
                           {5099, "the second GENERATE AC failed", true},
                           {5115, "the card's second cryptogram is not in format 1", true},
                           {5411, "done; the answer brought no script", false},
                           {5430, "a command of the issuer's script failed", true}};

struct Argument {
    const char* name;
    const char* words;
};

const Argument kArguments[] = {{"nPortNo", "Port"},
                               {"extendPort", "Extension port"},
                               {"nBaudRate", "Speed"},
                               {"nTimeout", "Seconds to wait for a card"},
                               {"pnIcType", "Card"},
                               {"pszAIDlist", "Applications wanted"},
                               {"pszTaglist", "Data wanted"},
                               {"pszTxData", "Transaction data"},
                               {"pszARPC", "Issuer's answer"},
                               {"icc_tempappdata", "State from the first call"},
                               {"nCardType", "Card"},
                               {"nPSAMCardNo", "PSAM"}};

std::string interfaceWords(const std::string& text)
{
    return text == "1"   ? "with contacts"
           : text == "2" ? "contactless"
           : text == "3" ? "with contacts, else contactless"
                         : "";
}

Item withBelow(Item item, Explanation explained)
{
    item.below = std::move(explained.items);
    if (!explained.problem.empty()) {
        item.below.push_back(remark("not read to its end: " + explained.problem));
    }
    return item;
}

Item explainArgument(const std::string& name, const std::string& text, bool show)
{
    const auto* const row =
        std::find_if(std::begin(kArguments), std::end(kArguments), [&](const Argument& a) { return name == a.name; });
    Item item = object(name, row == std::end(kArguments) ? "" : row->words, printable(maskedUnless(show, text)));
    const auto bytes = fromHex(text);
    if (text.empty()) {
        item.words = "none";
    } else if (name == "pnIcType") {
        item.words = interfaceWords(text);
    } else if (name == "pszTxData") {
        return withBelow(std::move(item), explainTransactionData(text, show));
    } else if (name == "pszARPC" && bytes) {
        return withBelow(std::move(item), explainObjects(*bytes, show));
    } else if (name == "icc_tempappdata" && bytes) {
        return withBelow(std::move(item), explainState(*bytes, show));
    }
    return item;
}

bool done(unsigned status)
{
    return status == 0x9000 || status >> 8 == 0x61 || status >> 8 == 0x62 || status >> 8 == 0x6C;
}

std::string behind(const std::string& text, const std::string& mark)
{
    const std::size_t at = text.find(mark);
    return at == std::string::npos ? text : text.substr(at + mark.size());
}

} // namespace

LogStory::LogStory(bool show, Sink sink)
    : show_(show),
      sink_(std::move(sink)),
      reader_({[this](const LoggedExchange& logged) { exchange(logged); },
               [this](const std::string& line, std::size_t) { text(line); }}),
      view_(show)
{}

void LogStory::end()
{
    reader_.end();
    finish();
    if (memoryCard_) {
        sink_(remark("Memory-card calls write no exchanges to the log: what went to such a card and what it answered "
                     "cannot be told from it."));
    }
}

// ---------------------------------------------------------------- exchanges

void LogStory::attach(Item item)
{
    if (!open_) {
        call_ = Item();
        call_.kind = ItemKind::Call;
        call_.name = "outside a call";
        open_ = true;
        succeeded_ = true;
    }
    call_.below.push_back(std::move(item));
}

Item LogStory::cardExchange(const LoggedExchange& logged, Sent& sent)
{
    sent.apdu.assign(logged.command.begin() + kReaderHeader, logged.command.end());
    Item item = view_.exchange(sent.apdu, sent.answer);
    if (logged.command[2] >= 0x10 && logged.command[2] <= 0x13) {
        item.title = slotName(logged.command[2]);
    }
    return item;
}

Item LogStory::slotExchange(const LoggedExchange& logged, Sent& sent)
{
    Item item;
    item.kind = ItemKind::Exchange;
    const Item command = explainReaderCommand(logged.command, show_);
    sent.power = logged.marker == "icc_poweron" || logged.marker == "picc_Active";
    item.name = command.words;
    item.below.push_back(command);
    if (!sent.power) {
        return item;
    }
    view_.powerOn();
    item.words = logged.answer.empty() ? "no card, or no answer from the reader" : "";
    if (!logged.answer.empty()) {
        Item answer = object("", "Answer to reset", toHex(logged.answer));
        std::vector<AtrPart> parts = decodeAtr(logged.answer);
        answer.below.reserve(parts.size());
        for (AtrPart& part : parts) {
            answer.below.push_back(object(std::move(part.name), std::move(part.meaning), std::move(part.hex)));
        }
        item.below.push_back(std::move(answer));
    }
    return item;
}

void LogStory::exchange(const LoggedExchange& logged)
{
    ++number_;
    if (open_ && sent_.size() >= kMostExchanges) {
        ++left_;
        return;
    }
    Sent sent;
    sent.answer = logged.answer;
    const bool apdu = logged.marker.find("capdu") != std::string::npos && logged.command.size() > kReaderHeader;
    Item item = apdu ? cardExchange(logged, sent) : slotExchange(logged, sent);
    item.number = number_;
    if (logged.cut) {
        item.below.push_back(remark("the log does not have this exchange as a whole"));
    }
    attach(std::move(item));
    sent.place = call_.below.size() - 1;
    sent_.push_back(std::move(sent));
}

// ---------------------------------------------------------------- entries

void LogStory::text(const std::string& line)
{
    for (const LogEntry& one : entriesOf(line)) {
        entry(one);
    }
}

void LogStory::entry(const LogEntry& entry)
{
    switch (entry.kind) {
    case EntryKind::Call:
        begin(entry);
        return;
    case EntryKind::Result:
        result(entry);
        return;
    case EntryKind::Failure:
        failure_ = failure_.empty() ? entry.name : failure_;
        attach(remark(entry.name + " " + printable(maskedUnless(show_, entry.text)), true));
        return;
    case EntryKind::Other:
        if (entry.name == "exit") {
            exit(entry);
        } else if (entry.name == "APDU") {
            attach(object("APDU", "Command given", printable(maskedUnless(show_, entry.text))));
        } else {
            attach(remark(printable(maskedUnless(show_, entry.text))));
        }
        return;
    }
}

void LogStory::begin(const LogEntry& entry)
{
    finish();
    open_ = true;
    call_ = Item();
    call_.kind = ItemKind::Call;
    call_.name = entry.name;
    constexpr std::size_t usual = 32;
    call_.below.reserve(usual);
    const Call* const row = callOf(entry.name);
    call_.title = row == nullptr ? "" : row->words;
    memoryCard_ = memoryCard_ || entry.name.compare(0, 5, "IC_M1") == 0;
    Item arguments = object("", "Arguments", "");
    for (const auto& [name, text] : argumentsOf(entry.text)) {
        arguments.below.push_back(explainArgument(name, text, show_));
    }
    if (!arguments.below.empty()) {
        call_.below.push_back(std::move(arguments));
    }
}

void LogStory::result(const LogEntry& entry)
{
    succeeded_ = true;
    Item item = object(entry.name, "Result", printable(maskedUnless(show_, entry.text)));
    const std::string text = entry.name == "pszTC" ? behind(entry.text, "pszTC:") : entry.text;
    const auto bytes = fromHex(text);
    if (entry.name == "pszARQC" && bytes) {
        item = withBelow(std::move(item), explainCryptogram(false, *bytes, show_));
    } else if (entry.name == "pszTC" && bytes) {
        item = withBelow(std::move(item), explainCryptogram(true, *bytes, show_));
    } else if (entry.name == "icc_tempappdata" && bytes) {
        item = withBelow(std::move(item), explainState(*bytes, show_));
    } else if (entry.name == "pszScriptResult" && bytes) {
        item = withBelow(std::move(item), explainObjects(*bytes, show_));
        failure_ = bytes->size() > 3 && (*bytes)[3] >> 4 == 1 ? "a command of the issuer's script failed" : failure_;
    } else if (entry.name == "pnUsrInfoLen" && text.find_first_of("ABCDEFGHIJKL") == 0) {
        item = withBelow(std::move(item), explainRecord(text, show_));
    } else if (entry.name == "TxDetail") {
        item = withBelow(std::move(item), explainTransactions(text));
    } else if (!show_ && (entry.name == "recv" || entry.name == "pszAID")) {
        item.hex = std::string(entry.text.size(), '*'); // a card's answer as it is, or a wallet's identification
    }
    attach(std::move(item));
}

void LogStory::exit(const LogEntry& entry)
{
    const int number = std::atoi(entry.text.c_str());
    const auto* const row = std::find_if(std::begin(kWaysOut), std::end(kWaysOut),
                                         [number](const WayOut& w) { return w.number == number; });
    if (row == std::end(kWaysOut)) {
        attach(remark("left at " + printable(entry.text)));
        return;
    }
    failure_ = row->failed && failure_.empty() ? row->words : failure_;
    succeeded_ = succeeded_ || !row->failed;
    attach(remark(std::string("left at ") + std::to_string(number) + ": " + row->words, row->failed));
}

// ---------------------------------------------------------------- how a call ended

// What a card refuses in the ordinary course of things: records behind the last one of the directory, objects that it
// need not have, applications before the one that it has.
bool LogStory::harmless(std::size_t index) const
{
    const Sent& sent = sent_[index];
    const std::uint8_t instruction = sent.apdu.size() < 4 ? 0 : sent.apdu[1];
    const auto sentBefore = [&](std::uint8_t wanted) {
        return std::any_of(sent_.begin(), sent_.begin() + static_cast<std::ptrdiff_t>(index),
                           [wanted](const Sent& s) { return s.apdu.size() >= 4 && s.apdu[1] == wanted; });
    };
    const auto goneWellLater = [&](std::uint8_t wanted) {
        return std::any_of(sent_.begin() + static_cast<std::ptrdiff_t>(index), sent_.end(), [wanted](const Sent& s) {
            return s.apdu.size() >= 4 && s.apdu[1] == wanted && done(statusOf(s.answer));
        });
    };
    switch (instruction) {
    case kGetData:
        return true;
    case kReadRecord:
        return !sentBefore(kProcessingOptions);
    case kSelect:
        return goneWellLater(kSelect);
    default:
        return false;
    }
}

const LogStory::Sent* LogStory::failing() const
{
    for (std::size_t i = sent_.size(); i-- > 0;) {
        const Sent& sent = sent_[i];
        const bool silent = sent.answer.size() < 2 && (sent.power || !sent.apdu.empty());
        if (silent || (!sent.apdu.empty() && !done(statusOf(sent.answer)) && !harmless(i))) {
            // Power on tries the other interface when one has no card.
            const bool other = sent.power && std::any_of(sent_.begin(), sent_.end(),
                                                         [](const Sent& s) { return s.power && !s.answer.empty(); });
            if (!other) {
                return &sent;
            }
        }
    }
    const auto cryptogram = std::find_if(sent_.rbegin(), sent_.rend(), [](const Sent& s) {
        return s.apdu.size() >= 4 && s.apdu[1] == kGenerateCryptogram;
    });
    return cryptogram == sent_.rend() ? nullptr : &*cryptogram;
}

std::string LogStory::causeOf(const Sent& sent) const
{
    if (sent.power) {
        return "no card answered";
    }
    const std::string command = maskedUnless(show_, commandInWords(sent.apdu));
    if (sent.answer.size() < 2) {
        const bool second = sent.apdu[1] == kGenerateCryptogram && call_.name == "IC_CtlScriptData";
        return command + ": no answer" +
               (second ? ". Whether the card approved is unknown: the transaction has to be reversed" : "");
    }
    const unsigned status = statusOf(sent.answer);
    if (done(status)) {
        return command + ": " + maskedUnless(show_, answerInWords(sent.apdu, sent.answer));
    }
    const std::string meaning = consequence(sent.apdu, status);
    return command + ": " + statusText(status) + (meaning.empty() ? "" : ", " + meaning);
}

void LogStory::judge()
{
    const Call* const row = callOf(call_.name);
    const bool failed = !failure_.empty() || (row != nullptr && row->tellsSuccess && !succeeded_);
    if (!failed) {
        call_.words = row == nullptr || !row->tellsSuccess ? "" : "done";
        return;
    }
    call_.failed = true;
    call_.words = "failed" + (failure_.empty() ? std::string() : ": " + failure_);
    if (const Sent* const sent = failing()) {
        call_.below[sent->place].failed = true;
        call_.words += ". Exchange " + std::to_string(call_.below[sent->place].number) + ", " + causeOf(*sent);
    }
}

void LogStory::finish()
{
    if (open_) {
        judge();
        if (left_ > 0) {
            call_.below.push_back(remark(std::to_string(left_) + " more exchanges are not shown"));
        }
        sink_(call_);
    }
    open_ = false;
    call_ = Item();
    sent_.clear();
    left_ = 0;
    succeeded_ = false;
    failure_.clear();
}

// ---------------------------------------------------------------- the trace file

std::vector<Item> explainTraceFile(const std::string& text, bool show)
{
    std::vector<Item> items;
    std::istringstream in(text);
    bool name = false;
    for (std::string line; std::getline(in, line);) {
        line.erase(line.find_last_not_of("\r\n") + 1);
        if (line.compare(0, 10, "----------") == 0) {
            name = true;
            continue;
        }
        if (name) {
            const Call* const row = callOf(line);
            Item item = object(printable(maskedUnless(show, line)), row == nullptr ? "" : row->words, "");
            item.kind = ItemKind::Call;
            items.push_back(std::move(item));
        } else if (!items.empty()) {
            items.back().below.push_back(remark(printable(maskedUnless(show, line))));
        }
        name = false;
    }
    return items;
}

} // namespace vorn::tool
