// SPDX-License-Identifier: Apache-2.0
// IC_GetInfo: the customer's data as twelve lettered fields.
#include "ICC/ICC_COMM_VORN/application.h"
#include "ICC/ICC_COMM_VORN/call_frame.h"
#include "ICC/ICC_COMM_VORN/lettered.h"
#include "ICC/ICC_COMM_VORN/letters.h"
#include "ICC/ICC_COMM_VORN/terminal_data.h"
#include "card/records.h"
#include "card/tags.h"
#include "public/local_log.h"

#include "ICC_COMM_VORN.h"

#include <cstdio>
#include <cstring>

using namespace vorn;

namespace {

// How a field's text is made of the value.
enum class Form {
    Hex,       // as it is
    Digits,    // up to the first 'F'
    Track2,    // the first 'D' becomes '=', then up to the first 'F'
    PaddedText // without the blanks at its end
};

enum class From { Records, GetData };

struct Field {
    char letter;
    Tag tag;
    From from;
    Form form;
    unsigned char getDataIndex;
};

constexpr Field record(char letter, Tag tag, Form form) { return {letter, tag, From::Records, form, 0}; }
constexpr Field counter(char letter, Tag tag, unsigned char index)
{
    return {letter, tag, From::GetData, Form::Hex, index};
}

constexpr Field kFields[] = {
    record('A', tag::kPan, Form::Digits),
    record('B', tag::kTrack2, Form::Track2),
    counter('C', tag::kCashBalance, 4),
    counter('D', tag::kCashBalanceLimit, 5),
    record('E', tag::kExpirationDate, Form::Hex),
    counter('F', tag::kCashTransactionLimit, 6),
    record('G', tag::kPanSequenceNumber, Form::Hex),
    counter('H', tag::kAtc, 0),
    record('I', tag::kDocumentType, Form::Hex),
    record('J', tag::kDocumentNumber, Form::PaddedText),
    record('K', tag::kCardholderName, Form::PaddedText),
    record('L', tag::kNameExtended, Form::PaddedText),
};
static_assert(holdsInfoLetters(kFields), "one row for each letter of the record");

constexpr std::size_t kFieldTextMax = std::size_t{2} * VORN_RESPONSE_MAX;
static_assert(ICC_USER_INFO_CAPACITY == kInfoLetterCount * (4 + kFieldTextMax) + 1, "all fields at their longest");

// The record as it grows.
class Record {
public:
    void add(char letter, const char* text, std::size_t length)
    {
        char head[16];
        const int headSize = std::snprintf(head, sizeof head, "%c%03d", letter, static_cast<int>(length));
        proven(text_.append(ByteView(reinterpret_cast<const std::uint8_t*>(head), static_cast<std::size_t>(headSize))));
        proven(text_.append(ByteView(reinterpret_cast<const std::uint8_t*>(text), length)));
    }

    const char* text() const { return reinterpret_cast<const char*>(text_.data()); }
    int sizeWithNul() const { return static_cast<int>(text_.size()) + 1; }

private:
    ByteBuffer<ICC_USER_INFO_CAPACITY> text_; // full but for the NUL at the most
};

void addValue(Record& out, const Field& field, const TagValue& value)
{
    char text[kFieldTextMax + 1] = {};
    std::size_t size = value.size;
    if (field.form == Form::PaddedText) {
        while (size > 0 && value.bytes[size - 1] == ' ') {
            --size;
        }
    }
    storeHex(text, value.view().first(size));
    if (field.form == Form::Track2) {
        if (char* separator = std::strchr(text, 'D')) {
            *separator = '=';
        }
    }
    const bool digits = field.form == Form::Digits || field.form == Form::Track2;
    out.add(field.letter, text, digits ? std::strcspn(text, "F") : std::strlen(text));
}

// A card that answers GET DATA with something else gives no field at all; only a refusal gives an empty one.
void addCounter(Record& out, const Field& field)
{
    std::uint8_t object[VORN_RESPONSE_MAX] = {};
    std::uint8_t size = 0;
    if (vrdk_GetData(field.getDataIndex, object, &size) != VORN_OK) {
        out.add(field.letter, "", 0);
        return;
    }
    const TagValue value = readTag(field.tag, ByteView(object, size));
    if (value.found) {
        addValue(out, field, value);
    }
}

void addField(Record& out, const Field& field, ByteView records)
{
    if (field.from == From::GetData) {
        addCounter(out, field);
        return;
    }
    const TagValue value = readTag(field.tag, records);
    if (value.found) {
        addValue(out, field, value);
    } else {
        out.add(field.letter, "", 0);
    }
}

// The application's data of the last successful call, behind six digits that give their length.
void keepApplicationData(const Application& application, ByteView records)
{
    static unsigned char lpicappdata[4096];

    static_assert(sizeof lpicappdata > 6 + 2 + Application::kAidMax, "digits and AID have room");
    ByteBuffer<sizeof lpicappdata> data;
    char digits[12];
    const std::size_t length = application.aidSize + records.size() + 2;
    std::snprintf(digits, sizeof digits, "%06d", static_cast<int>(length % 1000000));
    proven(data.append(ByteView(reinterpret_cast<const std::uint8_t*>(digits), 6)));
    proven(data.append(tag::kAid.view()));
    proven(data.append(static_cast<std::uint8_t>(application.aidSize)));
    proven(data.append(application.aidView()));
    proven(data.append(records.first(sizeof lpicappdata - 1 - data.size())));
    std::memcpy(lpicappdata, data.data(), sizeof lpicappdata);
}

int failedActivation(const Activation& card) { return leaveWithLine(card, ""); }

int failedSelection(const Selection& selection)
{
    const bool noCandidate = selection.outcome == Selection::Outcome::NoCandidate;
    vr_closeicc();
    logService("%s fail!return=%d", noCandidate ? "vrdk_PseAppSelect" : "vrdk_FinalAppSelect", selection.stepResult);
    logService("func IC_GetInfo return %d", selection.code());
    return endCall(CardPower::Stays, selection.code());
}

int readApplication(const Application& application, const char* pszTaglist, GrowingBytes& records)
{
    TerminalData terminalData;
    buildQueryData(terminalData);
    ProcessingOptions options;
    if (options.get(application, terminalData.view()) != VORN_OK) {
        return VORN_GPO_FAILED;
    }
    const WantedTags wanted(pszTaglist);
    return readRecords(options.aflView(), ByteView(wanted.bytes, wanted.size), records);
}

} // namespace

extern "C" int IC_GetInfo(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int* pnIcType,
                          const char* pszAIDlist, const char* pszTaglist, int* pnUsrInfoLen, char* pszUsrInfo)
{
    beginTracedCall("IC_GetInfo", nPortNo, extendPort, nBaudRate, nTimeout);
    storeText(pszUsrInfo, "");
    const int icType = pnIcType == nullptr ? 0 : *pnIcType;
    logService("begin func IC_GetInfo(nPortNo:%s,extendPort:%s,nBaudRate:%d,nTimeout:%d,pnIcType:%d,pszAIDlist:%s,"
               "pszTaglist:%s\r\n",
               textOf(nPortNo), textOf(extendPort), nBaudRate, nTimeout, icType, textOf(pszAIDlist),
               textOf(pszTaglist));
    const int found = openAndAwaitCard(pnIcType, nTimeout, failedActivation);
    if (found != VORN_OK) {
        return found;
    }
    Application application;
    const Selection selection = selectApplication(pszAIDlist, application);
    if (selection.outcome != Selection::Outcome::Selected) {
        return failedSelection(selection);
    }
    GrowingBytes records;
    const int result = readApplication(application, pszTaglist, records);
    if (result != VORN_OK) {
        return endCall(CardPower::Off, result);
    }
    keepApplicationData(application, records.view());

    Record out;
    for (const Field& field : kFields) {
        addField(out, field, records.view());
    }
    storeText(pszUsrInfo, out.text());
    store(pnUsrInfoLen, out.sizeWithNul());
    logService("pnUsrInfoLen:%d\r\n", out.sizeWithNul());
    logService("pnUsrInfoLen:%s\r\n", out.text());
    return endCall(CardPower::Off, VORN_OK);
}
