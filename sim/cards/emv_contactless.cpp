// SPDX-License-Identifier: Apache-2.0
// A contactless payment in one answer (qPBOC): what the terminal can do stands in its qualifiers (9F66), and the answer
// to GET PROCESSING OPTIONS is the cryptogram with all that a terminal needs for it.
#include "sim/cards/emv_application.h"
#include "sim/cards/emv_words.h"
#include "sim/data/card_values.h"

#include <openssl/rand.h>

#include <algorithm>
#include <stdexcept>

namespace vorn::sim {
namespace {

constexpr tlv::Tag kQualifiers = 0x9F66, kCurrency = 0x5F2A, kAmount = 0x9F02, kUnpredictableNumber = 0x9F37;
constexpr tlv::Tag kTransactionType = 0x9C;
constexpr std::size_t kEntrySize = 4;

// The bits of the terminal's qualifiers that matter here.
class Qualifiers {
public:
    explicit Qualifiers(Bytes bytes) : bytes_(std::move(bytes)) { bytes_.resize(4); }

    bool offlineOnly() const { return (bytes_[0] & 0x08) != 0; }
    bool takesOnlinePin() const { return (bytes_[0] & 0x04) != 0; }
    bool takesSignature() const { return (bytes_[0] & 0x02) != 0; }
    bool wantsOnline() const { return (bytes_[1] & 0x80) != 0; }
    bool wantsHolderVerified() const { return (bytes_[1] & 0x40) != 0; }
    bool knowsVersion1() const { return (bytes_[3] & 0x80) != 0; } // of the signature

private:
    Bytes bytes_;
};

Bytes randomBytes(std::size_t count)
{
    Bytes bytes(count);
    if (RAND_bytes(bytes.data(), static_cast<int>(count)) != 1) {
        throw std::runtime_error("libcrypto gives no random bytes");
    }
    return bytes;
}

void add(Bytes& objects, tlv::Tag tag, const Bytes& value)
{
    if (!value.empty()) {
        tlv::append(objects, tlv::encode(tag, value));
    }
}

} // namespace

EmvApplication::Decision EmvApplication::decideAtOnce() const
{
    const Qualifiers terminal(said(kQualifiers));
    const bool onlinePin = terminal.wantsHolderVerified() && terminal.takesOnlinePin();
    // Whoever only reads the card's data asks for an amount too, and for cash.
    const Bytes type = said(kTransactionType);
    const bool purchase = (type.empty() || type == Bytes{0x00}) && amount() > 0;
    const bool cash = purchase && a_.state.electronicCash && said(kCurrency) == a_.state.cashCurrency;
    if (a_.risk.forceFirst) {
        return {*a_.risk.forceFirst, "the profile says so"};
    }
    if (a_.state.blocked) {
        return {kAac, "the application is blocked"};
    }
    if (a_.risk.declineAbove && amount() > *a_.risk.declineAbove) {
        return {kAac, "the amount is above the card's limit"};
    }
    if (terminal.wantsHolderVerified() && !onlinePin && !terminal.takesSignature()) {
        return {kAac, "the terminal can verify no cardholder"};
    }
    if (cash && coveredByCash() && !terminal.wantsOnline() && !onlinePin) {
        return {kTc, "electronic cash"};
    }
    if (terminal.offlineOnly() || a_.risk.refuseOnline) {
        return {kAac, "not payable offline"};
    }
    return {kArqc, "the issuer decides"};
}

// 9F6C: how the cardholder is to be verified.
Bytes EmvApplication::cardQualifiers() const
{
    const Qualifiers terminal(said(kQualifiers));
    if (!terminal.wantsHolderVerified()) {
        return {0x00, 0x00};
    }
    return {static_cast<std::uint8_t>(terminal.takesOnlinePin() ? 0x80 : 0x40), 0x00};
}

// The terminal checks this signature when the card has left the field. Version 01 covers what is paid as well, and a
// number of the card's own.
Bytes EmvApplication::signAtOnce(Bytes& objects) const
{
    Bytes terminalData = said(kUnpredictableNumber);
    if (Qualifiers(said(kQualifiers)).knowsVersion1()) {
        Bytes related = {0x01};
        tlv::append(related, randomBytes(4));
        tlv::append(related, cardQualifiers());
        related.push_back(0x00);
        tlv::append(terminalData, said(kAmount));
        tlv::append(terminalData, said(kCurrency));
        tlv::append(terminalData, related);
        add(objects, 0x9F69, related);
    }
    return a_.offline.sign(dynamicNumber(), terminalData, a_.offline.wrongSignature);
}

Answer EmvApplication::payAtOnce()
{
    const Decision decision = decideAtOnce();
    transaction_.quick = true;
    transaction_.first = decision.type;
    transaction_.keys = crypto::sessionKeys(*a_.keys, a_.state.atc);
    transaction_.settling = decision.type == kTc;
    transaction_.pending = a_.state.electronicCash && transaction_.settling ? std::min(amount(), a_.state.balance) : 0;
    account_.add("contactless payment: " + typeName(decision.type) + " over " + money(amount()) + " (" + decision.why +
                 ")");
    auto covered = transaction_.terminal;
    covered[0x82] = a_.aip;
    covered[0x9F36] = counter(a_.state.atc);
    transaction_.firstCryptogram = crypto::applicationCryptogram(transaction_.keys.ac, covered, verificationResults());

    Bytes objects;
    add(objects, 0x82, a_.aip);
    add(objects, 0x94, a_.quick->afl);
    add(objects, 0x57, a_.quick->track2);
    add(objects, 0x5F34, a_.quick->sequenceNumber);
    add(objects, 0x9F10, issuerApplicationData());
    add(objects, 0x9F26, {transaction_.firstCryptogram.begin(), transaction_.firstCryptogram.end()});
    add(objects, 0x9F27, {decision.type});
    add(objects, 0x9F36, covered[0x9F36]);
    add(objects, 0x9F6C, cardQualifiers());
    if (a_.state.electronicCash) {
        add(objects, 0x9F5D, bcdAmount(a_.state.balance - transaction_.pending));
    }
    if (decision.type == kTc && a_.offline.dynamicData) {
        add(objects, 0x9F4B, signAtOnce(objects));
    }
    if (a_.quick->afl.size() < kEntrySize) {
        settle();
    }
    return {tlv::encode(0x77, objects)};
}

void EmvApplication::recordRead(unsigned sfi, unsigned number)
{
    if (!transaction_.settling) {
        return;
    }
    const auto last = a_.quick->afl.end() - kEntrySize;
    if (sfi == static_cast<unsigned>(last[0] >> 3) && number == last[2]) {
        settle();
    }
}

void EmvApplication::settle()
{
    if (!transaction_.settling) {
        return;
    }
    transaction_.settling = false;
    a_.state.balance -= transaction_.pending;
    transaction_.pending = 0;
    account_.add("contactless payment made" +
                 (a_.state.electronicCash ? ", " + money(a_.state.balance) + " left" : ""));
    writeLog();
}

} // namespace vorn::sim
