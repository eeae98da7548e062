// SPDX-License-Identifier: Apache-2.0
#include "tools/session/offline_reading.h"

#include "tools/cli/interrupt.h"
#include "tools/explain/hex.h"
#include "tools/explain/status_words.h"

#include "ICC_COMM_VORN.h"

#include <sys/random.h>

#include <algorithm>
#include <ctime>

namespace vorn::tool {

// One command of the library to the card, by its own function.
struct CardCall {
    std::uint8_t p1 = 0;
    std::uint8_t p2 = 0;
    std::uint8_t data[256] = {};
    std::uint8_t size = 0;
    std::uint8_t terminalData[256] = {}; // for a list: what it is filled from
    int terminalDataSize = 0;
    std::uint8_t answer[VORN_DOL_DATA_CAPACITY] = {};
    int answerSize = 0;
    int result = 0; // a status word, or what the line says
};

namespace {

constexpr unsigned kPdol = 0x9F38, kCdol1 = 0x8C;
constexpr std::uint8_t kArqcWithSignature = 0x90;
constexpr std::size_t kEntrySize = 4;
constexpr std::size_t kCommandDataMax = 250;
constexpr std::size_t kRecordsMax = 200; // far more than any card needs

// A command of the library's that answers with a length of one byte.
template <class Command>
int carry(CardCall& call, Command command)
{
    std::uint8_t size = 0;
    call.result = static_cast<int>(command(&size));
    call.answerSize = size;
    return call.result > 0 ? int{VORN_OK} : call.result; // a status word is the caller's business
}

int selectFile(CardCall& call)
{
    return carry(call,
                 [&](auto* size) { return vrdk_SelectFile(0x04, 0x00, call.data, call.size, call.answer, size); });
}

int processingOptions(CardCall& call)
{
    return carry(call, [&](auto* size) { return vrdk_GetProcessOptions(call.data, call.size, call.answer, size); });
}

int readRecord(CardCall& call)
{
    return carry(call, [&](auto* size) { return vrdk_ReadRecord(call.p1, call.p2, call.answer, size); });
}

int internalAuthenticate(CardCall& call)
{
    return carry(call, [&](auto* size) { return vrdk_InternalAuth(call.data, call.size, call.answer, size); });
}

int generateCryptogram(CardCall& call)
{
    return carry(call, [&](auto* size) { return vrdk_GenerateAC(call.p1, call.data, call.size, call.answer, size); });
}

int fillList(CardCall& call)
{
    call.result =
        vrdk_BuildDOL(call.terminalData, call.terminalDataSize, call.data, call.size, call.answer, &call.answerSize);
    return VORN_OK;
}

Bytes unpredictableNumber()
{
    Bytes number(4);
    if (::getrandom(number.data(), number.size(), 0) != static_cast<ssize_t>(number.size())) {
        throw Failure(Exit::Internal, "no random numbers are to be had");
    }
    return number;
}

std::tm today()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    return local;
}

// A transaction over nothing. The qualifiers leave out the payment that a contactless card answers in one go.
Bytes terminalDataWith(const Bytes& unpredictable)
{
    const std::tm day = today();
    const auto twoDigits = [](int number) { return std::to_string(100 + number % 100).substr(1); };
    const std::string hex = "9F0206000000000000 9F0306000000000000 9F1A020156 95050000000000 5F2A020156 9C0100 9A03" +
                            twoDigits(day.tm_year) + twoDigits(day.tm_mon + 1) + twoDigits(day.tm_mday) +
                            " 9F2103000000 9F3303E0F8C8 9F350122 9F6604D4000000 9F7A0101 9F3704" + toHex(unpredictable);
    return fromHex(hex).value_or(Bytes());
}

void append(Bytes& to, const Bytes& more) { to.insert(to.end(), more.begin(), more.end()); }

struct Options {
    Bytes aip;
    Bytes afl;
};

Options optionsIn(const Bytes& answer)
{
    if (const auto both = verify::onlyObject(answer, 0x80); both && both->size() >= 2) {
        return {Bytes(both->begin(), both->begin() + 2), Bytes(both->begin() + 2, both->end())};
    }
    verify::Objects objects;
    verify::collect(answer, objects);
    return {verify::valueOf(objects, 0x82), verify::valueOf(objects, 0x94)};
}

} // namespace

OfflineReading::OfflineReading(Session& session, int interfaceMode, Bytes aid)
    : session_(session), unpredictable_(unpredictableNumber())
{
    terminalData_ = terminalDataWith(unpredictable_);
    const std::tm day = today();
    evidence_.thisMonth = static_cast<unsigned>((day.tm_year + 1900) * 100 + day.tm_mon + 1);
    evidence_.aid = std::move(aid);
    session_.powerUserCard(interfaceMode);

    verify::Objects information;
    verify::collect(need("the selection", ask("the selection", selectFile, evidence_.aid)), information);
    options_ = valuesFor(verify::valueOf(information, kPdol));
    Bytes data = {0x83, static_cast<std::uint8_t>(options_.size())};
    append(data, options_);
    const Options options =
        optionsIn(need("the processing options", ask("the processing options", processingOptions, data)));
    evidence_.aip = options.aip;
    const Bytes& afl = options.afl;
    for (std::size_t at = 0; at + kEntrySize <= afl.size(); at += kEntrySize) {
        readFile(afl[at], afl[at + 1], afl[at + 2], afl[at + 3]);
    }
}

OfflineReading::Answer OfflineReading::ask(const char* name, int (*function)(CardCall&), const Bytes& data,
                                           std::uint8_t p1, std::uint8_t p2)
{
    throwIfInterrupted();
    CardCall call;
    call.p1 = p1;
    call.p2 = p2;
    call.size = static_cast<std::uint8_t>(std::min(data.size(), kCommandDataMax));
    std::copy_n(data.begin(), call.size, call.data);
    std::copy(terminalData_.begin(), terminalData_.end(), call.terminalData);
    call.terminalDataSize = static_cast<int>(terminalData_.size());
    session_.call(name, Call::Any, function, call);
    return {static_cast<unsigned>(call.result), Bytes(call.answer, call.answer + call.answerSize)};
}

Bytes OfflineReading::need(const char* name, const Answer& answer) const
{
    if (answer.status != VORN_OK) {
        throw Failure(Exit::CardRefused, std::string("the card refused ") + name + ": " + statusText(answer.status));
    }
    return answer.data;
}

Bytes OfflineReading::valuesFor(const Bytes& list)
{
    if (list.empty()) {
        return {};
    }
    const Answer values = ask("a data object list", fillList, list);
    if (values.status != VORN_OK || values.data.size() > kCommandDataMax) {
        throw Failure(Exit::DataMissing, "a data object list of the card cannot be filled");
    }
    return values.data;
}

// EMV Book 3, 10.3: of files 1 to 10 the template's content is signed, of others the whole record.
void OfflineReading::readFile(unsigned file, unsigned first, unsigned last, unsigned marked)
{
    constexpr unsigned kLastWithoutTemplate = 10;
    const unsigned sfi = file >> 3;
    for (unsigned number = first; number <= last; ++number) {
        if (++recordsRead_ > kRecordsMax) {
            throw Failure(Exit::DataMissing, "the card names more records than any card has");
        }
        const std::string name = "record " + std::to_string(number) + " of file " + std::to_string(sfi);
        const Bytes record = need(name.c_str(), ask("READ RECORD", readRecord, {}, static_cast<std::uint8_t>(number),
                                                    static_cast<std::uint8_t>(sfi)));
        verify::collect(record, evidence_.objects);
        if (number < first + marked) {
            const auto content = verify::onlyObject(record, 0x70);
            append(evidence_.markedData, sfi <= kLastWithoutTemplate && content ? *content : record);
        }
    }
}

verify::OfflineChecks OfflineReading::check(const verify::Authorities& authorities, bool withCryptogram)
{
    verify::OfflineChecks checks(evidence_, authorities);
    checks.checkCertificates();
    if (checks.offersDynamic() && checks.knowsCardKey()) {
        signDynamically(checks);
    }
    if (checks.offersCombined() && checks.knowsCardKey() && withCryptogram) {
        signCryptogram(checks);
    }
    return checks;
}

void OfflineReading::signDynamically(verify::OfflineChecks& checks)
{
    const Bytes values = valuesFor(checks.dynamicList());
    const Answer answer = ask("INTERNAL AUTHENTICATE", internalAuthenticate, values);
    if (answer.status == VORN_OK) {
        checks.checkDynamic(values, answer.data);
    } else {
        checks.refused("dynamic signature (DDA)", "the card refused to sign: " + statusText(answer.status));
    }
}

void OfflineReading::signCryptogram(verify::OfflineChecks& checks)
{
    const Bytes values = valuesFor(verify::valueOf(evidence_.objects, kCdol1));
    Bytes lists = options_;
    append(lists, values);
    const Answer answer = ask("GENERATE AC", generateCryptogram, values, kArqcWithSignature);
    if (answer.status == VORN_OK) {
        checks.checkCombined(lists, unpredictable_, answer.data);
    } else {
        checks.refused("signed cryptogram (CDA)", "the card refused to sign: " + statusText(answer.status));
    }
}

} // namespace vorn::tool
