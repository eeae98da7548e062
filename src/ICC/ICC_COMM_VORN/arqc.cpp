// SPDX-License-Identifier: Apache-2.0
// IC_GenARQC: the first half of an online transaction.
#include "ICC/ICC_COMM_VORN/application.h"
#include "ICC/ICC_COMM_VORN/call_frame.h"
#include "ICC/ICC_COMM_VORN/cryptogram.h"
#include "ICC/ICC_COMM_VORN/lettered.h"
#include "ICC/ICC_COMM_VORN/terminal_data.h"
#include "ICC/ICC_COMM_VORN/transaction_exit.h"
#include "card/dol.h"
#include "card/records.h"
#include "card/tags.h"
#include "public/local_log.h"

#include "ICC_COMM_VORN.h"

#include <cstdio>
#include <cstring>
#include <initializer_list>

using namespace vorn;

namespace {

constexpr TransactionExit kNoCardInTime = {kNoLogLine, CardPower::Stays, LinkEnd::Closed, VORN_NO_CARD_IN_TIME};
constexpr TransactionExit kActivationFailed = returningStepResult(3665, CardPower::Off);
constexpr TransactionExit kNoApplication = {3681, CardPower::Off, LinkEnd::Closed, VORN_NO_APPLICATION};
constexpr TransactionExit kSelectFailed = {3692, CardPower::Off, LinkEnd::Closed, VORN_SELECT_FAILED};
constexpr TransactionExit kNoApplicationAfterList = {3720, CardPower::Off, LinkEnd::Closed, VORN_NO_APPLICATION};
constexpr TransactionExit kSelectFailedAfterList = {3731, CardPower::Off, LinkEnd::Closed, VORN_SELECT_FAILED};
constexpr TransactionExit kGpoFailed = {4054, CardPower::Off, LinkEnd::Closed, VORN_GPO_FAILED};
constexpr TransactionExit kRecordsFailed = returningStepResult(4070, CardPower::Off);
constexpr TransactionExit kNoCdol1 = {4119, CardPower::Stays, LinkEnd::Closed, -2, LogForm::WithMinusTwo};
constexpr TransactionExit kCdol1NotBuilt = returningStepResult(4134, CardPower::Stays);
constexpr TransactionExit kGenerateFailed = {
    4145, CardPower::Off, LinkEnd::Closed, VORN_FIRST_AC_FAILED, LogForm::Plain, LogTime::BeforePowerOff};
constexpr TransactionExit kNotArqc = {kNoLogLine, CardPower::Stays, LinkEnd::Closed, -2};
constexpr TransactionExit kNotFormat1 = {4162, CardPower::Stays, LinkEnd::Closed, -3};
constexpr TransactionExit kNoCdol2 = {4465, CardPower::Stays, LinkEnd::Closed, -2};

// CDOL1, PAN, PAN sequence number, CDOL2, name, document type and number, track 2.
constexpr std::uint8_t vrdk_appdatatag[] = {0x8C, 0x5A, 0x5F, 0x34, 0x8D, 0x5F, 0x20, 0x9F, 0x62, 0x9F, 0x61, 0x57};

// The data of the selected application: AID, AIP, records. It is searched over six bytes beyond, which are zeros.
class ApplicationData {
public:
    // False: no memory.
    bool build(ByteView aid, ByteView aip, ByteView records)
    {
        static constexpr std::uint8_t kBeyond[6] = {};
        putItem(tag::kAid, aid);
        putItem(tag::kAip, aip);
        data_.append(records);
        data_.append(ByteView(kBeyond, sizeof kBeyond));
        return data_.complete();
    }

    ByteView searched() const { return data_.view(); }

private:
    void putItem(Tag tag, ByteView value)
    {
        const auto length = static_cast<std::uint8_t>(value.size());
        data_.append(tag.view());
        data_.append(ByteView(&length, 1));
        data_.append(value);
    }

    GrowingBytes data_;
};

// The state that IC_CtlScriptData goes on from.
constexpr std::size_t kObjectMax = 2 + 1 + VORN_RESPONSE_MAX;
using State = ByteBuffer<1 + 4 * kObjectMax>; // the card type; CDOL2, PAN, sequence number, AIP

bool buildState(ByteView applicationData, State& state)
{
    const TagValue cdol2 = readTag(tag::kCdol2, applicationData);
    if (!cdol2.found) {
        return false;
    }
    proven(state.append(m_VrICType));
    proven(putObject(state, tag::kCdol2, cdol2.view()));
    for (const Tag item : {tag::kPan, tag::kPanSequenceNumber}) {
        const TagValue value = readTag(item, applicationData);
        if (value.found) {
            proven(putObject(state, item, value.view()));
        }
    }
    const TagValue aip = readTag(tag::kAip, applicationData); // ApplicationData puts it there
    proven(putObject(state, tag::kAip, ByteView(aip.bytes, 2)));
    return true;
}

void storeLowerCaseHex(char* out, ByteView bytes)
{
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(out + 2 * i, 3, "%02x", unsigned{bytes[i]});
    }
}

const TransactionExit& selectionExit(const Selection& selection)
{
    if (selection.outcome == Selection::Outcome::NoCandidate) {
        return selection.byList ? kNoApplicationAfterList : kNoApplication;
    }
    return selection.byList ? kSelectFailedAfterList : kSelectFailed;
}

int leaveInactive(const Activation& card)
{
    return leave(card.timedOut ? kNoCardInTime : kActivationFailed, card.result);
}

// One call, from the activated card on.
class FirstHalf {
public:
    FirstHalf(const LetteredItems& given, int* pnARQCLen, char* pszARQC, char* state)
        : given_(given), pnARQCLen_(pnARQCLen), pszARQC_(pszARQC), stateText_(state)
    {}

    int run(const char* pszAIDlist)
    {
        Application application;
        const Selection selection = selectApplication(pszAIDlist, application);
        if (selection.outcome != Selection::Outcome::Selected) {
            return leave(selectionExit(selection), selection.stepResult);
        }
        buildFirstData(given_, terminalData_);
        ProcessingOptions options;
        int result = options.get(application, terminalData_.view());
        if (result != VORN_OK) {
            return leave(kGpoFailed, result);
        }
        GrowingBytes records;
        result = readRecords(options.aflView(), ByteView(vrdk_appdatatag, sizeof vrdk_appdatatag), records);
        if (result != VORN_OK) {
            return leave(kRecordsFailed, result);
        }
        storeLowerCaseHex(stateText_, records.view().first(VORN_APPDATA_CAPACITY));
        ApplicationData data;
        if (!data.build(application.aidView(), options.aipView(), records.view())) {
            return leave(kRecordsFailed, VORN_BAD_ARGUMENT);
        }
        return generate(data.searched(), ByteView(options.aip, sizeof options.aip));
    }

private:
    int generate(ByteView applicationData, ByteView aip)
    {
        const TagValue cdol1 = readTag(tag::kCdol1, applicationData);
        if (!cdol1.found) {
            return leave(kNoCdol1, kObjectNotFound);
        }
        DolValues values;
        if (!buildCommandData(boundedTlv(terminalData_.view()), cdol1.view(), values)) {
            return leave(kCdol1NotBuilt, kDolNotBuilt);
        }
        CryptogramResponse response;
        const int result = response.generate(kArqc, values.view());
        if (result != VORN_OK) {
            return leave(kGenerateFailed, result);
        }
        if (response.kind() != kArqc) {
            return leave(kNotArqc, result);
        }
        if (!response.parse()) {
            return leave(kNotFormat1, kObjectNotFound);
        }
        storeArqc(response, applicationData, aip);
        return storeState(applicationData);
    }

    void storeArqc(const CryptogramResponse& response, ByteView applicationData, ByteView aip)
    {
        CryptogramSources sources{terminalData_.view(), applicationData, {}};
        sources.aip.found = true;
        std::memcpy(sources.aip.bytes, aip.data(), aip.size());
        buildCryptogramText(CryptogramText::Arqc, response, sources, arqc_);
        storeHex(pszARQC_, arqc_.view());
        store(pnARQCLen_, arqcLength());
    }

    int arqcLength() const { return static_cast<int>(2 * arqc_.size()); }

    int storeState(ByteView applicationData)
    {
        State state;
        if (!buildState(applicationData, state)) {
            return leave(kNoCdol2, kObjectNotFound);
        }
        storeHex(stateText_, state.view());
        char arqcText[ICC_CRYPTOGRAM_CAPACITY];
        storeHex(arqcText, arqc_.view());
        logService("pnARQCLen:%d\r\n", arqcLength());
        logService("pszARQC:%s\r\n", arqcText);
        logService("icc_tempappdata:%s\r\n", stateText_);
        return endCall(CardPower::Stays, VORN_OK);
    }

    const LetteredItems& given_;
    int* pnARQCLen_;
    char* pszARQC_;
    char* stateText_;
    TerminalData terminalData_;
    CryptogramBuffer arqc_;
};

} // namespace

extern "C" int IC_GenARQC(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int* pnIcType,
                          const char* pszAIDlist, const char* pszTxData, int* pnARQCLen, char* pszARQC,
                          char* icc_tempappdata)
{
    beginTracedCall("IC_GenARQC", nPortNo, extendPort, nBaudRate, nTimeout);
    const int icType = pnIcType == nullptr ? 0 : *pnIcType;
    logService("IC_GenARQC nPortNo:%s,extendPort:%s,nBaudRate:%d,nTimeout:%d,pnIcType:%d,pszAIDlist:%s,"
               "pszTxData:%s\r\n",
               textOf(nPortNo), textOf(extendPort), nBaudRate, nTimeout, icType, textOf(pszAIDlist), textOf(pszTxData));
    if (icc_tempappdata == nullptr) {
        logService("param icc_tempappdata  is null!");
        return VORN_STATE_MISSING;
    }
    storeText(icc_tempappdata, "");
    storeText(pszARQC, "");
    const LetteredItems given(pszTxData);
    if (!given) {
        return VORN_BAD_ARGUMENT; // no memory for a text of that length
    }
    const int found = openAndAwaitCard(pnIcType, nTimeout, leaveInactive);
    return found != VORN_OK ? found : FirstHalf(given, pnARQCLen, pszARQC, icc_tempappdata).run(pszAIDlist);
}
