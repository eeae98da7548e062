// SPDX-License-Identifier: Apache-2.0
// IC_CtlScriptData: the second half of an online transaction, on the card as IC_GenARQC left it.
#include "ICC/ICC_COMM_VORN/call_frame.h"
#include "ICC/ICC_COMM_VORN/cryptogram.h"
#include "ICC/ICC_COMM_VORN/lettered.h"
#include "ICC/ICC_COMM_VORN/terminal_data.h"
#include "ICC/ICC_COMM_VORN/transaction_exit.h"
#include "card/dol.h"
#include "card/tags.h"
#include "public/console.h"
#include "public/local_log.h"

#include "ICC_COMM_VORN.h"

#include <cstring>

using namespace vorn;

namespace {

constexpr int kNothingFailed = 0; // what the step before an unsuitable text left

constexpr TransactionExit kNoCdol2 = {4634, CardPower::Stays, LinkEnd::Closed, -1};
constexpr TransactionExit kCdol2NotBuilt = {4962, CardPower::Stays, LinkEnd::Closed, kDolNotBuilt};
constexpr TransactionExit kNoAnswer = {4977, CardPower::Stays, LinkEnd::Closed, -2};
constexpr TransactionExit kNoIssuerAuth = {5010, CardPower::Stays, LinkEnd::Closed, VORN_NO_ISSUER_AUTH};
constexpr TransactionExit kShortIssuerAuth = {5018, CardPower::Stays, LinkEnd::Closed, VORN_NO_ISSUER_AUTH};
constexpr TransactionExit kTcRefused = {5069, CardPower::Stays, LinkEnd::Closed, VORN_SECOND_AC_FAILED};
constexpr TransactionExit kDeclined = {5089, CardPower::Stays, LinkEnd::Closed, VORN_OK};
constexpr TransactionExit kGenerateFailed = {5099, CardPower::Stays, LinkEnd::Closed, VORN_SECOND_AC_FAILED};
// The link is left open here; the next call finds and releases it.
constexpr TransactionExit kNotTc = {kNoLogLine, CardPower::Stays, LinkEnd::StaysOpen, -2};
constexpr TransactionExit kNotFormat1 = {5115, CardPower::Stays, LinkEnd::Closed, -3};
constexpr TransactionExit kNoScript = {5411, CardPower::Stays, LinkEnd::Closed, VORN_OK};
constexpr TransactionExit kScriptFailed = {5430, CardPower::Off, LinkEnd::Closed, VORN_SCRIPT_FAILED};

// A caller's hex text, decoded; a text of odd length decodes to nothing.
class DecodedText {
public:
    explicit DecodedText(const char* text) : bytes_(std::strlen(textOf(text)) / 2 + kBehind)
    {
        if (bytes_) {
            int count = 0;
            halftochar(textOf(text), bytes_.data(), &count);
            size_ = static_cast<std::size_t>(count);
        }
    }

    explicit operator bool() const { return static_cast<bool>(bytes_); }
    ByteView view() const { return bytes_.view().first(size_); }

    // From `at` over as many bytes as the text held: the last `at` of them are zeros.
    ByteView shifted(std::size_t at) const { return bytes_.view().from(at).first(size_); }

private:
    static constexpr std::size_t kBehind = 8;

    HeapBytes bytes_;
    std::size_t size_ = 0;
};

// ---------------------------------------------------------------- the issuer's answer

struct IssuerAuthData {
    static constexpr std::size_t kArpcSize = 8;
    static constexpr std::size_t kArcSize = 2;
    static constexpr std::size_t kSize = kArpcSize + kArcSize;

    std::uint8_t bytes[kSize] = {'0', '0', '0', '0', '0', '0', '0', '0', '0', '0'}; // when the answer has none

    explicit IssuerAuthData(ByteView answer)
    {
        const TagValue value = readTag(tag::kIssuerAuthData, answer);
        if (value.found) {
            std::memcpy(bytes, value.bytes, kSize);
        }
    }

    ByteView responseCode() const { return ByteView(bytes + kArpcSize, kArcSize); }
};

// What the second GENERATE AC asks for, by the authorisation response code.
struct Decision {
    std::uint8_t referenceControl;
    const TransactionExit* ifBelowTc; // the way out when the card gives less than a TC; none: not looked at here
};

Decision decisionFor(ByteView responseCode)
{
    static constexpr std::uint8_t kTcAndCdaBits = 0xC0;
    static constexpr struct {
        char code[3];
        Decision decision;
    } kDecisions[] = {
        {"00", {kTc, &kTcRefused}},       {"10", {kTc, &kTcRefused}},       {"11", {kTc, &kTcRefused}},
        {"01", {kTcAndCdaBits, nullptr}}, {"02", {kTcAndCdaBits, nullptr}},
    };
    for (const auto& row : kDecisions) {
        if (std::memcmp(row.code, responseCode.data(), 2) == 0) {
            return row.decision;
        }
    }
    return {kAac, &kDeclined};
}

// Scripts are looked for up to the first 00 that stands for a tag: 72 before 71.
ByteView scriptTemplate(ByteView answer)
{
    const ByteView after = findObject(tag::kScriptAfterFinal, zeroEndedTlv(answer));
    return after.empty() ? findObject(tag::kScriptBeforeFinal, zeroEndedTlv(answer)) : after;
}

// ---------------------------------------------------------------- the script's result

class ScriptResult {
public:
    explicit ScriptResult(char* out) : out_(out) { storeText(out_, ""); }

    // With a script: the result as it stands before the script runs.
    void begin()
    {
        storeText(text_, "DF31050000000000");
        storeText(out_, text_);
    }

    // Each byte is written at the same place, so the fourth one and the text's end stay (compatibility: "A script's
    // identifier keeps its fourth byte").
    void setIdentifier(const TagValue& identifier)
    {
        char digits[3] = {};
        for (int i = 0; i < 4; ++i) {
            chartohalf(identifier.bytes[i], digits);
        }
        put(kIdentifierAt, digits, sizeof digits);
    }

    void setFailed(int command)
    {
        const char outcome[] = {'1', "0123456789ABCDEF"[command > 15 ? 15 : command]};
        put(kOutcomeAt, outcome, sizeof outcome);
    }

    void setDone() { put(kOutcomeAt, "2", 1); }

    const char* text() const { return text_; }

private:
    static constexpr int kOutcomeAt = 6;
    static constexpr int kIdentifierAt = 8;

    // The caller's text is touched only where it changes.
    void put(int at, const char* characters, std::size_t count)
    {
        std::memcpy(text_ + at, characters, count);
        if (out_ != nullptr) {
            std::memcpy(out_ + at, characters, count);
        }
    }

    char* out_;
    char text_[ICC_SCRIPT_RESULT_CAPACITY] = {};
};

// ---------------------------------------------------------------- the call, from the open link on

class SecondHalf {
public:
    SecondHalf(const LetteredItems& given, const DecodedText& answer, const DecodedText& state, int* pnTCLen,
               char* pszTC, char* pszScriptResult)
        : given_(given),
          answer_(answer.view()),
          state_(state.shifted(kStateTypeSize)),
          pnTCLen_(pnTCLen),
          pszTC_(pszTC),
          scriptResult_(pszScriptResult)
    {
        storeText(pszTC, "");
    }

    int run()
    {
        const TagValue cdol2 = readTag(tag::kCdol2, state_);
        if (!cdol2.found) {
            return leave(kNoCdol2, kObjectNotFound);
        }
        const IssuerAuthData issuerAuth(answer_);
        buildSecondData(given_, issuerAuth.responseCode(), terminalData_);
        DolValues values;
        if (!buildCommandData(boundedTlv(terminalData_.view()), cdol2.view(), values)) {
            return leave(kCdol2NotBuilt, kDolNotBuilt);
        }
        if (answer_.empty()) {
            return leave(kNoAnswer, kNothingFailed);
        }
        beginScriptResult();
        return authenticate(values.view());
    }

    static constexpr std::size_t kStateTypeSize = 1;

private:
    void beginScriptResult()
    {
        if (!scriptTemplate(answer_).empty()) {
            scriptResult_.begin();
        }
        const TagValue identifier = readTag(tag::kScriptIdentifier, answer_);
        if (identifier.found) {
            scriptResult_.setIdentifier(identifier);
        }
    }

    // Whether the card accepts the issuer is not asked: the response code alone decides.
    int authenticate(ByteView dolValues)
    {
        const TagValue issuerAuth = readTag(tag::kIssuerAuthData, answer_);
        if (!issuerAuth.found) {
            return leave(kNoIssuerAuth, kObjectNotFound);
        }
        if (issuerAuth.size < IssuerAuthData::kSize) {
            return leave(kShortIssuerAuth, kNothingFailed);
        }
        vrdk_ExternalAuth(issuerAuth.bytes, IssuerAuthData::kSize);
        return generate(dolValues,
                        decisionFor(ByteView(issuerAuth.bytes, IssuerAuthData::kSize).from(IssuerAuthData::kArpcSize)));
    }

    int generate(ByteView dolValues, const Decision& decision)
    {
        CryptogramResponse response;
        const int result = response.generate(decision.referenceControl, dolValues);
        if (decision.ifBelowTc != nullptr && response.informationData() < kTc) {
            return leave(*decision.ifBelowTc, result);
        }
        if (result != VORN_OK) {
            return leave(kGenerateFailed, result);
        }
        if (response.kind() != kTc) {
            return leave(kNotTc, result);
        }
        if (!response.parse()) {
            return leave(kNotFormat1, kObjectNotFound);
        }
        storeTc(response);
        return runScript();
    }

    void storeTc(const CryptogramResponse& response)
    {
        CryptogramBuffer tc;
        const CryptogramSources sources{terminalData_.view(), state_, readTag(tag::kAip, state_)};
        buildCryptogramText(CryptogramText::Tc, response, sources, tc);
        char text[ICC_CRYPTOGRAM_CAPACITY];
        storeHex(text, tc.view());
        storeText(pszTC_, text);
        const int length = static_cast<int>(2 * tc.size());
        store(pnTCLen_, length);
        logService("pnTCLen:%d,pszTC:%s\r\n", length, text);
    }

    int runScript()
    {
        const ByteView found = scriptTemplate(answer_);
        if (found.empty()) {
            return leave(kNoScript, kObjectNotFound);
        }
        const ByteView script = objectValue(found, 1);
        int command = 0;
        const int result = vrdk_exeicscript(script.data(), static_cast<int>(script.size()), &command);
        if (result != VORN_OK) {
            scriptResult_.setFailed(command);
            return leave(kScriptFailed, result);
        }
        scriptResult_.setDone();
        logService("pszScriptResult:%s\r\n", scriptResult_.text());
        return endCall(CardPower::Off, VORN_OK);
    }

    const LetteredItems& given_;
    ByteView answer_;
    ByteView state_;
    int* pnTCLen_;
    char* pszTC_;
    ScriptResult scriptResult_;
    TerminalData terminalData_;
};

} // namespace

extern "C" int IC_CtlScriptData(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int* pnIcType,
                                const char* pszTxData, const char* pszARPC, int* pnTCLen, char* pszTC,
                                char* pszScriptResult, const char* icc_tempappdata)
{
    beginTracedCall("IC_CtlScriptData", nPortNo, extendPort, nBaudRate, nTimeout);
    print("vr_comportparam = %s,vr_comportmode=%d\n", vr_comportparam, vr_comportmode);
    logService("IC_CtlScriptData nPortNo:%s,extendPort:%s,nBaudRate:%d,nTimeout:%d,pnIcType:%d,pszTxData:%s,"
               "pszARPC:%s,icc_tempappdata:%s\r\n",
               textOf(nPortNo), textOf(extendPort), nBaudRate, nTimeout, pnIcType == nullptr ? 0 : *pnIcType,
               textOf(pszTxData), textOf(pszARPC), textOf(icc_tempappdata));
    const LetteredItems given(pszTxData);
    const DecodedText answer(pszARPC);
    const DecodedText state(icc_tempappdata);
    if (!given || !answer || !state) {
        return VORN_BAD_ARGUMENT; // no memory for texts of that length
    }
    if (opdev() != VORN_OK) {
        return VORN_OPEN_FAILED;
    }
    SecondHalf call(given, answer, state, pnTCLen, pszTC, pszScriptResult);
    m_VrICType = state.view()[0];
    store(pnIcType, int{m_VrICType});
    return call.run();
}
