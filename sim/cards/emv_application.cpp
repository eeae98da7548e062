// SPDX-License-Identifier: Apache-2.0
#include "sim/cards/emv_application.h"

#include "sim/cards/emv_words.h"
#include "sim/data/card_values.h"
#include "sim/data/digits.h"

#include <algorithm>

namespace vorn::sim {
namespace {

constexpr std::uint8_t kTypeMask = 0xC0;
constexpr std::uint8_t kCombined = 0x10; // P1 of GENERATE AC: to be signed as well
constexpr std::size_t kAccountLines = 1000;
constexpr std::size_t kArpcSize = 8;
constexpr std::size_t kPinBlockSize = 8;
constexpr std::uint8_t kEncipheredPin = 0x88; // P2 of VERIFY

constexpr tlv::Tag kAmount = 0x9F02;
constexpr tlv::Tag kCurrency = 0x5F2A, kCashIndicator = 0x9F7A, kQualifiers = 0x9F66;
constexpr tlv::Tag kBalance = 0x9F79, kBalanceLimit = 0x9F77, kSingleLimit = 0x9F78, kResetThreshold = 0x9F6D;
constexpr tlv::Tag kCounter = 0x9F36, kLastOnlineCounter = 0x9F13, kPinTries = 0x9F17;

// The terminal transaction qualifiers say what the terminal can do without contacts.
bool wantsQuickPayment(const Bytes& qualifiers) { return qualifiers.size() == 4 && (qualifiers[0] & 0x20) != 0; }

// What a log record holds, with the width of each field.
struct LogField {
    tlv::Tag tag;
    std::size_t size;
};
constexpr LogField kLogFields[] = {{0x9A, 3},   {0x9F21, 3}, {0x9F02, 6},  {0x9F03, 6},
                                   {0x9F1A, 2}, {0x5F2A, 2}, {0x9F4E, 20}, {0x9C, 1}};

} // namespace

void Account::add(std::string line)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (lines_.size() == kAccountLines) {
        lines_.erase(lines_.begin());
    }
    lines_.push_back(std::move(line));
}

std::vector<std::string> Account::lines() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
}

void Account::clear()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
}

// ---------------------------------------------------------------- the transaction

Answer EmvApplication::getProcessingOptions(const Command& command)
{
    if (command.p12() != 0) {
        return refusal(0x6A86);
    }
    if (transaction_.processing || a_.refuseProcessing || a_.state.atc == 0xFFFF) {
        account_.add("GET PROCESSING OPTIONS refused: conditions of use not satisfied");
        return refusal(0x6985);
    }
    const std::size_t expected = tlv::dataLength(a_.pdol);
    if (command.data.size() < 2 || command.data[0] != 0x83) {
        return refusal(0x6A80);
    }
    tlv::Cursor cursor(command.data, 1);
    const auto length = cursor.length();
    const auto values = length ? cursor.take(*length) : std::nullopt;
    if (!values || !cursor.atEnd() || values->size() != expected) {
        account_.add("GET PROCESSING OPTIONS refused: the data are not what the PDOL asks for");
        return refusal(0x6700);
    }
    ++a_.state.atc;
    last_ = current_;
    transaction_.processing = true;
    transaction_.terminal = tlv::split(a_.pdol, *values);
    transaction_.lists = *values;
    account_.add("transaction " + std::to_string(a_.state.atc) + " begins");

    if (a_.quick && wantsQuickPayment(said(kQualifiers))) {
        return payAtOnce();
    }
    if (a_.processingFormat == 1) {
        Bytes both = a_.aip;
        tlv::append(both, a_.afl);
        return {tlv::encode(0x80, both)};
    }
    Bytes objects = tlv::encode(0x82, a_.aip);
    tlv::append(objects, tlv::encode(0x94, a_.afl));
    return {tlv::encode(0x77, objects)};
}

std::uint64_t EmvApplication::amount() const
{
    const auto found = transaction_.terminal.find(kAmount);
    return found == transaction_.terminal.end() ? 0 : amountFromBcd(found->second);
}

Bytes EmvApplication::said(tlv::Tag tag) const
{
    const auto found = transaction_.terminal.find(tag);
    return found == transaction_.terminal.end() ? Bytes() : found->second;
}

// Electronic cash is paid where the terminal says that it takes it, in the card's own currency.
bool EmvApplication::paysWithCash() const
{
    return a_.state.electronicCash && said(kCashIndicator) == Bytes{0x01} && said(kCurrency) == a_.state.cashCurrency;
}

// What would be left must not fall below the threshold: then the card wants to be loaded again, online.
bool EmvApplication::coveredByCash() const
{
    const ApplicationState& state = a_.state;
    return amount() <= state.balance && amount() <= state.singleLimit &&
           state.balance - amount() >= state.resetThreshold.value_or(0);
}

bool EmvApplication::coveredOffline() const
{
    const bool below = a_.risk.offlineBelow && amount() <= *a_.risk.offlineBelow;
    return below && (!paysWithCash() || coveredByCash());
}

EmvApplication::Decision EmvApplication::decideFirst(std::uint8_t asked) const
{
    if (a_.risk.forceFirst) {
        return {*a_.risk.forceFirst, "the profile says so"};
    }
    if (a_.state.blocked) {
        return {kAac, "the application is blocked"};
    }
    if (asked == kAac) {
        return {kAac, "asked for"};
    }
    if (a_.risk.declineAbove && amount() > *a_.risk.declineAbove) {
        return {kAac, "the amount is above the card's limit of " + money(*a_.risk.declineAbove)};
    }
    if (asked == kTc && coveredOffline()) {
        return {kTc, paysWithCash() ? "electronic cash, within the card's offline limit"
                                    : "within the card's offline limit"};
    }
    if (a_.risk.refuseOnline) {
        return {kAac, "the card does not go online"};
    }
    return {kArqc, asked == kTc ? "the card wants its issuer asked" : "asked for"};
}

EmvApplication::Decision EmvApplication::decideSecond(std::uint8_t asked) const
{
    if (a_.risk.forceSecond) {
        return {*a_.risk.forceSecond, "the profile says so"};
    }
    if (a_.state.blocked) {
        return {kAac, "the application is blocked"};
    }
    if (asked == kAac) {
        return {kAac, "asked for"};
    }
    if (!transaction_.issuerAuthentic.value_or(false) && (a_.risk.requireIssuerAuth || asked == kTypeMask)) {
        return {kAac, transaction_.issuerAuthentic ? "TC refused, issuer authentication failed"
                                                   : "TC refused, no issuer authentication"};
    }
    if (a_.risk.declineAbove && amount() > *a_.risk.declineAbove) {
        return {kAac, "the amount is above the card's limit of " + money(*a_.risk.declineAbove)};
    }
    return {kTc, asked == kTc ? "asked for" : "the card's own choice after a referral"};
}

// Length, then: what the two cryptograms were and what happened in this transaction; what the card remembers of
// earlier ones; the script commands after the last one.
Bytes EmvApplication::verificationResults() const
{
    const auto code = [](const std::optional<std::uint8_t>& type) {
        return static_cast<unsigned>(type.value_or(kArqc)) >> 6; // 10: ARQC, or not yet asked for
    };
    const unsigned now = code(transaction_.second) << 6 | code(transaction_.first) << 4 |
                         (transaction_.issuerAuthentic && !*transaction_.issuerAuthentic ? 0x08U : 0U) |
                         (transaction_.pinTried ? 0x04U : 0U) | (transaction_.pinFailed ? 0x02U : 0U);
    const unsigned before = (last_.notCompleted ? 0x80U : 0U) |
                            (!a_.state.pin.empty() && a_.state.pinTries == 0 ? 0x40U : 0U) |
                            (a_.state.lastOnlineAtc == 0 ? 0x10U : 0U) | (last_.issuerAuthFailed ? 0x08U : 0U) |
                            (last_.issuerAuthMissing ? 0x04U : 0U);
    const unsigned scripts = std::min(last_.scripts, 15U) << 4 | (last_.scriptFailed ? 0x08U : 0U);
    Bytes results = {0x03, static_cast<std::uint8_t>(now), static_cast<std::uint8_t>(before),
                     static_cast<std::uint8_t>(scripts)};
    for (std::size_t i = 1; i < results.size(); ++i) {
        results[i] = static_cast<std::uint8_t>(results[i] | a_.verificationResults[i - 1]);
    }
    return results;
}

// Seven bytes behind their length: key index, cryptogram version, verification results, algorithm. With electronic
// cash eleven more behind their length: which kind, the balance's last ten digits and their MAC.
Bytes EmvApplication::issuerApplicationData() const
{
    Bytes data = {0x07, a_.keyIndex, 0x01};
    tlv::append(data, verificationResults());
    data.push_back(0x01);
    if (a_.state.electronicCash) {
        const Bytes digits = bcdAmount(a_.state.balance - transaction_.pending);
        const Bytes balance(digits.begin() + 1, digits.end());
        const crypto::Block mac = crypto::balanceMac(transaction_.keys.mac, a_.state.atc, balance);
        tlv::append(data, {0x0A, 0x01});
        tlv::append(data, balance);
        data.insert(data.end(), mac.begin(), mac.begin() + crypto::kBalanceMacSize);
    }
    return data;
}

Answer EmvApplication::generateCryptogram(const Command& command)
{
    const auto asked = static_cast<std::uint8_t>(command.p1 & kTypeMask);
    const bool second = transaction_.first.has_value();
    if (!transaction_.processing || transaction_.quick || !a_.keys || transaction_.second ||
        (second && *transaction_.first != kArqc)) {
        return refusal(0x6985);
    }
    const bool combined = a_.offline.combined && (command.p1 & kCombined) != 0;
    if (command.p1 != (asked | (combined ? kCombined : 0)) || command.p2 != 0 ||
        asked == (second ? kArqc : kTypeMask)) {
        return refusal(0x6A86);
    }
    const tlv::Dol dol = (second ? a_.cdol2 : a_.cdol1).value_or(tlv::Dol());
    if (command.data.size() != tlv::dataLength(dol)) {
        account_.add("GENERATE AC refused: " + std::to_string(command.data.size()) + " bytes where the CDOL asks for " +
                     std::to_string(tlv::dataLength(dol)));
        return refusal(0x6700);
    }
    const auto sent = tlv::split(dol, command.data);
    for (const auto& [tag, value] : sent) {
        transaction_.terminal[tag] = value;
    }
    tlv::append(transaction_.lists, command.data);
    const Decision decision = second ? decideSecond(asked) : decideFirst(asked);
    (second ? transaction_.second : transaction_.first) = decision.type;
    transaction_.keys = crypto::sessionKeys(*a_.keys, a_.state.atc);
    account_.add(std::string(second ? "second" : "first") + " cryptogram: " + typeName(decision.type) + " over " +
                 money(amount()) + " (" + decision.why + ")");
    return answerCryptogram(sent, combined);
}

std::uint8_t EmvApplication::type() const { return transaction_.second.value_or(transaction_.first.value_or(kAac)); }

// Only what this very command carried goes into the cryptogram: an issuer verifies it from the terminal's words. An AAC
// is never signed: the terminal declines, whoever has sent it.
Answer EmvApplication::answerCryptogram(const std::map<tlv::Tag, Bytes>& cdol, bool combined)
{
    auto objects = cdol;
    objects[0x82] = a_.aip;
    objects[kCounter] = counter(a_.state.atc);
    const crypto::Block cryptogram =
        crypto::applicationCryptogram(transaction_.keys.ac, objects, verificationResults());
    if (!transaction_.second) {
        payWithCash(); // the issuer is told of the balance that is left
    }
    const Bytes data = issuerApplicationData();
    if (transaction_.second) {
        completeSecond();
    } else {
        transaction_.firstCryptogram = cryptogram;
        completeFirst();
    }
    return combined && type() != kAac ? signCryptogram(cryptogram, data) : formatCryptogram(cryptogram, data);
}

Answer EmvApplication::formatCryptogram(const crypto::Block& cryptogram, const Bytes& data) const
{
    const Bytes cryptogramBytes(cryptogram.begin(), cryptogram.end());
    if (a_.cryptogramFormat == 1) {
        Bytes value = {type()};
        tlv::append(value, counter(a_.state.atc));
        tlv::append(value, cryptogramBytes);
        tlv::append(value, data);
        return {tlv::encode(0x80, value)};
    }
    Bytes value = tlv::encode(0x9F27, {type()});
    tlv::append(value, tlv::encode(kCounter, counter(a_.state.atc)));
    tlv::append(value, tlv::encode(0x9F26, cryptogramBytes));
    tlv::append(value, tlv::encode(0x9F10, data));
    return {tlv::encode(0x77, value)};
}

void EmvApplication::payWithCash()
{
    if (*transaction_.first == kTc && paysWithCash()) {
        a_.state.balance -= std::min(amount(), a_.state.balance);
        account_.add("electronic cash paid, " + money(a_.state.balance) + " left");
    }
}

void EmvApplication::completeFirst()
{
    if (*transaction_.first == kArqc) {
        current_ = {};
        current_.notCompleted = true; // until the second cryptogram
        return;
    }
    if (*transaction_.first == kTc) {
        writeLog();
    }
}

void EmvApplication::completeSecond()
{
    current_.notCompleted = false;
    current_.issuerAuthFailed = transaction_.issuerAuthentic && !*transaction_.issuerAuthentic;
    current_.issuerAuthMissing = !transaction_.issuerAuthentic;
    if (transaction_.issuerAuthentic.value_or(false)) {
        a_.state.lastOnlineAtc = a_.state.atc;
    }
    if (*transaction_.second == kTc) {
        writeLog();
    }
}

void EmvApplication::writeLog()
{
    if (!a_.log) {
        return;
    }
    Bytes record;
    for (const LogField& field : kLogFields) {
        const auto found = transaction_.terminal.find(field.tag);
        Bytes value = found == transaction_.terminal.end() ? Bytes() : found->second;
        value.resize(field.size);
        tlv::append(record, value);
    }
    tlv::append(record, counter(a_.state.atc));
    auto& records = a_.file.records[a_.log->sfi];
    records.insert(records.begin(), record);
    records.resize(std::min(records.size(), a_.log->capacity));
}

Answer EmvApplication::externalAuthenticate(const Command& command)
{
    if (command.p12() != 0) {
        return refusal(0x6A86);
    }
    const bool awaited = transaction_.first == kArqc && !transaction_.second && !transaction_.issuerAuthentic;
    if (!awaited) {
        account_.add("EXTERNAL AUTHENTICATE refused: only one after the ARQC");
        return refusal(0x6985);
    }
    if (command.data.size() < kArpcSize + 2 || command.data.size() > 16) {
        return refusal(0x6700);
    }
    const crypto::Block expected = crypto::arpc(transaction_.keys.ac, transaction_.firstCryptogram,
                                                {command.data[kArpcSize], command.data[kArpcSize + 1]});
    const bool authentic = std::equal(expected.begin(), expected.end(), command.data.begin());
    transaction_.issuerAuthentic = authentic;
    account_.add(authentic ? "ARPC right: issuer authenticated" : "ARPC wrong: issuer authentication failed");
    return refusal(authentic ? 0x9000 : 0x6300);
}

// ---------------------------------------------------------------- data and PIN

Answer EmvApplication::getData(const Command& command) const
{
    const tlv::Tag tag = command.p1 == 0 ? command.p2 : command.p12();
    if (const auto raw = a_.rawAnswers.find(tag); raw != a_.rawAnswers.end()) {
        const Bytes& all = raw->second;
        return {Bytes(all.begin(), all.end() - 2), all[all.size() - 2] * 256U + all[all.size() - 1]};
    }
    std::map<tlv::Tag, Bytes> live = {{kCounter, counter(a_.state.atc)},
                                      {kLastOnlineCounter, counter(a_.state.lastOnlineAtc)}};
    if (!a_.state.pin.empty()) {
        live[kPinTries] = {static_cast<std::uint8_t>(a_.state.pinTries)};
    }
    if (a_.state.electronicCash) {
        live[kBalance] = bcdAmount(a_.state.balance);
        live[kBalanceLimit] = bcdAmount(a_.state.balanceLimit);
        live[kSingleLimit] = bcdAmount(a_.state.singleLimit);
    }
    if (a_.state.electronicCash && a_.state.resetThreshold) {
        live[kResetThreshold] = bcdAmount(*a_.state.resetThreshold);
    }
    for (const auto* source : {&a_.data, &std::as_const(live)}) {
        if (const auto found = source->find(tag); found != source->end()) {
            return {tlv::encode(tag, found->second)};
        }
    }
    return refusal(0x6A88);
}

Answer EmvApplication::refuseVerification(unsigned status, const char* why)
{
    account_.add(std::string("VERIFY refused: ") + why);
    return refusal(status);
}

// In the clear, or enciphered with the card's public key together with the number that it gave before (EMV Book 2, 7.2):
// 7F, PIN block, number, filler.
bool EmvApplication::verifiedBy(const Command& command) const
{
    if (command.p2 != kEncipheredPin) {
        return crypto::pinDigits(command.data) == a_.state.pin;
    }
    const Bytes plain = rsa::withSecret(a_.offline.key, command.data);
    const auto block = plain.begin() + 1;
    const auto number = block + kPinBlockSize;
    return plain[0] == 0x7F && Bytes(number, number + kPinBlockSize) == challenge_ &&
           crypto::pinDigits({block, number}) == a_.state.pin;
}

Answer EmvApplication::verify(const Command& command)
{
    const bool enciphered = command.p2 == kEncipheredPin && a_.offline.signsItself();
    if (command.p1 != 0 || (command.p2 != 0x80 && command.p2 != 0x00 && !enciphered)) {
        return refusal(0x6A86);
    }
    if (a_.state.pin.empty()) {
        return refusal(0x6A88);
    }
    if (command.data.size() != (enciphered ? a_.offline.key.size() : kPinBlockSize)) {
        return refusal(0x6700);
    }
    if (enciphered && challenge_.size() != kPinBlockSize) {
        return refuseVerification(0x6985, "an enciphered PIN without a challenge of eight bytes just before it");
    }
    transaction_.pinTried = true;
    if (a_.state.pinTries == 0) {
        transaction_.pinFailed = true;
        return refuseVerification(0x6983, "the PIN is blocked");
    }
    const bool right = verifiedBy(command);
    a_.state.pinTries = right ? a_.pinTryLimit : a_.state.pinTries - 1;
    transaction_.pinFailed = !right;
    account_.add(right ? "PIN right" : "PIN wrong, " + std::to_string(a_.state.pinTries) + " tries left");
    return refusal(right ? 0x9000 : 0x63C0 + a_.state.pinTries);
}

// ---------------------------------------------------------------- issuer scripts

Bytes EmvApplication::scriptData(const Command& command) const
{
    return {command.data.begin(), command.data.end() - crypto::kScriptMacSize};
}

Answer EmvApplication::refuseScriptData(const char* name, const std::string& why, unsigned status)
{
    current_.scriptFailed = true;
    account_.add(std::string("script command ") + name + " refused: " + why);
    return refusal(status);
}

std::optional<Answer> EmvApplication::refuseScript(const Command& command, const char* name)
{
    ++current_.scripts;
    if (!transaction_.first) {
        return refuseScriptData(name, "no transaction under way", 0x6985);
    }
    if (command.data.size() < crypto::kScriptMacSize) {
        return refuseScriptData(name, "no MAC", 0x6987);
    }
    const Bytes header = {command.cla, command.ins, command.p1, command.p2,
                          static_cast<std::uint8_t>(command.data.size())};
    const Bytes mac = crypto::scriptMac(transaction_.keys.mac, header, a_.state.atc, transaction_.firstCryptogram,
                                        scriptData(command));
    if (!std::equal(mac.rbegin(), mac.rend(), command.data.rbegin())) {
        return refuseScriptData(name, "wrong MAC", 0x6988);
    }
    return std::nullopt;
}

Answer EmvApplication::putData(const Command& command)
{
    constexpr char kName[] = "PUT DATA";
    if (const auto refused = refuseScript(command, kName)) {
        return *refused;
    }
    struct Target {
        tlv::Tag tag;
        const char* name;
        std::uint64_t* value; // none: the card does not have it
    };
    const Target targets[] = {
        {kBalance, "balance", &a_.state.balance},
        {kBalanceLimit, "balance limit", &a_.state.balanceLimit},
        {kSingleLimit, "single transaction limit", &a_.state.singleLimit},
        {kResetThreshold, "reset threshold", a_.state.resetThreshold ? &*a_.state.resetThreshold : nullptr}};
    const auto target = std::find_if(std::begin(targets), std::end(targets),
                                     [&command](const Target& t) { return t.tag == command.p12(); });
    if (target == std::end(targets) || target->value == nullptr || !a_.state.electronicCash) {
        return refuseScriptData(kName, "no such object", 0x6A88);
    }
    const Bytes value = scriptData(command);
    if (value.size() != 6 || !isDigits(toHex(value))) {
        return refuseScriptData(kName, "no amount of twelve digits", 0x6A80);
    }
    *target->value = amountFromBcd(value);
    account_.add(std::string("script: electronic cash ") + target->name + " is now " + money(*target->value));
    return {};
}

Answer EmvApplication::block(const Command& command)
{
    if (const auto refused = refuseScript(command, "APPLICATION BLOCK")) {
        return *refused;
    }
    a_.state.blocked = true;
    account_.add("script: application blocked");
    return {};
}

Answer EmvApplication::unblock(const Command& command)
{
    if (const auto refused = refuseScript(command, "APPLICATION UNBLOCK")) {
        return *refused;
    }
    a_.state.blocked = false;
    account_.add("script: application unblocked");
    return {};
}

Answer EmvApplication::blockCard(const Command& command, bool& cardBlocked)
{
    if (const auto refused = refuseScript(command, "CARD BLOCK")) {
        return *refused;
    }
    cardBlocked = true;
    account_.add("script: card blocked");
    return {};
}

// The new PIN in a PIN CHANGE: P2 01 combines the current one in, P2 02 does without. Empty: there is none in the data.
std::string EmvApplication::newPin(const Command& command) const
{
    const std::string current = command.p2 == 0x01 ? a_.state.pin : std::string();
    return crypto::decipherNewPin({transaction_.keys.enc, a_.keys->ac, current}, scriptData(command));
}

// P2 00 gives the tries back, P2 01 and 02 carry a new PIN as well.
Answer EmvApplication::changePin(const Command& command)
{
    constexpr char kName[] = "PIN CHANGE/UNBLOCK";
    if (const auto refused = refuseScript(command, kName)) {
        return *refused;
    }
    if (command.p1 != 0 || command.p2 > 0x02 || a_.state.pin.empty()) {
        return refuseScriptData(kName, "not of this form, or no PIN on the card", 0x6A86);
    }
    const bool unblocks = command.p2 == 0x00;
    const std::string digits = unblocks ? a_.state.pin : newPin(command);
    if (digits.empty() || (unblocks && !scriptData(command).empty())) {
        return refuseScriptData(kName, "the data hold no PIN", 0x6A80);
    }
    a_.state.pin = digits;
    a_.state.pinTries = a_.pinTryLimit;
    account_.add(unblocks ? "script: PIN unblocked" : "script: PIN changed");
    return {};
}

} // namespace vorn::sim
