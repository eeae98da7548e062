// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/log_story.h"

#include "tools/explain/apdu_view.h"
#include "tools/explain/apdu_words.h"
#include "tools/explain/frame_view.h"
#include "tools/explain/hex.h"
#include "tools/explain/object_view.h"
#include "tools/explain/present.h"
#include "tools/explain/status_words.h"
#include "tools/explain/text_view.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <sstream>
#include <thread>

namespace vorn::tool {

namespace {

constexpr std::uint8_t kSelect = 0xA4;
constexpr std::uint8_t kProcessingOptions = 0xA8;
constexpr std::uint8_t kGenerateCryptogram = 0xAE;
constexpr std::uint8_t kReadRecord = 0xB2;
constexpr std::uint8_t kGetData = 0xCA;

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

// One call, told.
class CallStory {
public:
    CallStory(const LoggedCall& call, bool show) : show_(show), view_(call.view), number_(call.first), left_(call.left)
    {
        constexpr std::size_t usual = 32;
        call_.kind = ItemKind::Call;
        call_.below.reserve(usual);
    }

    Item tell(const LoggedCall& call);

private:
    struct Sent {
        ByteSpan apdu, answer;
        bool power = false;    // power on: no APDU
        std::size_t place = 0; // among the call's items

        bool is(std::uint8_t instruction) const { return apdu.size() >= 4 && apdu[1] == instruction; }
    };

    void exchange(const LoggedExchange& logged);
    void entry(const LogEntry& entry);
    void begin(const LogEntry& entry);
    void result(const LogEntry& entry);
    void exit(const LogEntry& entry);
    void judge();
    std::string causeOf(const Sent& sent) const;
    const Sent* failing() const;
    bool harmless(std::size_t index) const;
    void attach(Item item) { call_.below.push_back(std::move(item)); }
    Item cardExchange(const LoggedExchange& logged);
    Item slotExchange(const LoggedExchange& logged);

    bool show_;
    ExchangeView view_;
    std::size_t number_; // of the next exchange
    std::size_t left_;   // exchanges that are not in the log's call
    Item call_;
    std::vector<Sent> sent_;
    bool succeeded_ = false;
    std::string failure_;
};

// ---------------------------------------------------------------- exchanges

Item CallStory::cardExchange(const LoggedExchange& logged)
{
    Item item = view_.exchange(logged.apdu(), logged.answer);
    if (logged.command[2] >= 0x10 && logged.command[2] <= 0x13) {
        item.title = slotName(logged.command[2]);
    }
    return item;
}

Item CallStory::slotExchange(const LoggedExchange& logged)
{
    Item item;
    item.kind = ItemKind::Exchange;
    const Item command = explainReaderCommand(logged.command, show_);
    item.name = command.words;
    item.below.push_back(command);
    if (!logged.powersOn()) {
        return item;
    }
    view_.powerOn();
    item.words = logged.answer.empty() ? "no card, or no answer from the reader" : "";
    if (!logged.answer.empty()) {
        item.below.push_back(explainReset(logged.answer, show_));
    }
    return item;
}

void CallStory::exchange(const LoggedExchange& logged)
{
    const ByteSpan apdu = logged.apdu();
    Item item = apdu.empty() ? slotExchange(logged) : cardExchange(logged);
    item.number = number_++;
    if (logged.cut) {
        item.below.push_back(remark("the log does not have this exchange as a whole"));
    }
    attach(std::move(item));
    sent_.push_back({apdu, logged.answer, apdu.empty() && logged.powersOn(), call_.below.size() - 1});
}

// ---------------------------------------------------------------- entries

void CallStory::entry(const LogEntry& entry)
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

void CallStory::begin(const LogEntry& entry)
{
    call_.name = entry.name;
    const Call* const row = callOf(entry.name);
    call_.title = row == nullptr ? "" : row->words;
    Item arguments = object("", "Arguments", "");
    arguments.below.reserve(std::size(kArguments));
    for (const auto& [name, text] : argumentsOf(entry.text)) {
        arguments.below.push_back(explainArgument(name, text, show_));
    }
    if (!arguments.below.empty()) {
        call_.below.push_back(std::move(arguments));
    }
}

void CallStory::result(const LogEntry& entry)
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

void CallStory::exit(const LogEntry& entry)
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
bool CallStory::harmless(std::size_t index) const
{
    const Sent& sent = sent_[index];
    const auto sentBefore = [&](std::uint8_t wanted) {
        return std::any_of(sent_.begin(), sent_.begin() + static_cast<std::ptrdiff_t>(index),
                           [wanted](const Sent& s) { return s.is(wanted); });
    };
    const auto goneWellLater = [&](std::uint8_t wanted) {
        return std::any_of(sent_.begin() + static_cast<std::ptrdiff_t>(index), sent_.end(),
                           [wanted](const Sent& s) { return s.is(wanted) && done(statusOf(s.answer)); });
    };
    return sent.is(kGetData) || (sent.is(kReadRecord) && !sentBefore(kProcessingOptions)) ||
           (sent.is(kSelect) && goneWellLater(kSelect));
}

const CallStory::Sent* CallStory::failing() const
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
    const auto cryptogram =
        std::find_if(sent_.rbegin(), sent_.rend(), [](const Sent& s) { return s.is(kGenerateCryptogram); });
    return cryptogram == sent_.rend() ? nullptr : &*cryptogram;
}

std::string CallStory::causeOf(const Sent& sent) const
{
    if (sent.power) {
        return "no card answered";
    }
    const std::string command = maskedUnless(show_, commandInWords(sent.apdu));
    if (sent.answer.size() < 2) {
        const bool second = sent.is(kGenerateCryptogram) && call_.name == "IC_CtlScriptData";
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

void CallStory::judge()
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

Item CallStory::tell(const LoggedCall& call)
{
    const LogEntry* const begins = std::get_if<LogEntry>(&call.parts.front());
    if (begins == nullptr || begins->kind != EntryKind::Call) {
        call_.name = "outside a call";
        succeeded_ = true;
    }
    for (const auto& part : call.parts) {
        if (const auto* const logged = std::get_if<LoggedExchange>(&part)) {
            exchange(*logged);
        } else {
            entry(std::get<LogEntry>(part));
        }
    }
    judge();
    if (left_ > 0) {
        attach(remark(std::to_string(left_) + " more exchanges are not shown"));
    }
    return std::move(call_);
}

} // namespace

// ---------------------------------------------------------------- the calls in their order

namespace {

// Twice as many as can be told at once: the first may be waited for while others are begun.
std::size_t piecesAtATime()
{
    constexpr unsigned most = 16; // each holds some megabytes
    return std::clamp(2 * std::thread::hardware_concurrency(), 2U, most);
}

} // namespace

LogStory::LogStory(bool show, Receiver receiver, std::launch how)
    : show_(show),
      receiver_(std::move(receiver)),
      how_(how),
      atATime_(piecesAtATime()),
      calls_(show, [this](LoggedCall call) { heard_.push_back(std::move(call)); })
{}

void LogStory::add(const char* piece, std::size_t size)
{
    calls_.add(piece, size);
    tell();
    for (const auto ready = std::chrono::seconds(0);
         !telling_.empty() &&
         (telling_.size() > atATime_ || telling_.front().wait_for(ready) == std::future_status::ready);) {
        finishFirst();
    }
}

void LogStory::settle()
{
    while (!telling_.empty()) {
        finishFirst();
    }
}

void LogStory::end()
{
    calls_.end();
    tell();
    settle();
    if (memoryCard_) {
        receiver_(remark("Memory-card calls write no exchanges to the log: what went to such a card and what it "
                         "answered cannot be told from it."))();
    }
}

// What a piece of the log brought is told beside what comes from the next ones.
void LogStory::tell()
{
    if (heard_.empty()) {
        return;
    }
    for (const LoggedCall& call : heard_) {
        const LogEntry* const entry = std::get_if<LogEntry>(&call.parts.front());
        memoryCard_ = memoryCard_ ||
                      (entry != nullptr && entry->kind == EntryKind::Call && entry->name.compare(0, 5, "IC_M1") == 0);
    }
    const auto calls = std::make_shared<const std::vector<LoggedCall>>(std::move(heard_));
    const auto task = [this, calls] {
        std::vector<InOrder> told;
        told.reserve(calls->size());
        for (const LoggedCall& call : *calls) {
            told.push_back(receiver_(CallStory(call, show_).tell(call)));
        }
        return told;
    };
    telling_.push_back(std::async(how_, task)); // copied: it is wanted a second time where no thread could be made
    heard_.clear();
}

void LogStory::finishFirst()
{
    const std::vector<InOrder> told = telling_.front().get();
    telling_.pop_front();
    for (const InOrder& one : told) {
        one();
    }
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
