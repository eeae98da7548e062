// SPDX-License-Identifier: Apache-2.0
// What the card signs with its own key: dynamic and combined data authentication (EMV Book 2, 6.5 and 6.6).
#include "sim/cards/emv_application.h"
#include "sim/cards/emv_words.h"

namespace vorn::sim {
namespace {

constexpr tlv::Tag kSignature = 0x9F4B, kUnpredictableNumber = 0x9F37;

} // namespace

// Differs in each transaction; its length in front.
Bytes EmvApplication::dynamicNumber() const
{
    Bytes number = {2};
    tlv::append(number, counter(a_.state.atc));
    return number;
}

Answer EmvApplication::internalAuthenticate(const Command& command)
{
    if (!a_.offline.dynamicData) {
        return refusal(0x6D00);
    }
    if (command.p12() != 0) {
        return refusal(0x6A86);
    }
    if (!transaction_.processing) {
        return refusal(0x6985);
    }
    if (command.data.size() != tlv::dataLength(a_.ddol)) {
        account_.add("INTERNAL AUTHENTICATE refused: the data are not what the DDOL asks for");
        return refusal(0x6700);
    }
    const Bytes signature = a_.offline.sign(dynamicNumber(), command.data, a_.offline.wrongSignature);
    account_.add("dynamic data authentication: signed");
    return {a_.cryptogramFormat == 1 ? tlv::encode(0x80, signature)
                                     : tlv::encode(0x77, tlv::encode(kSignature, signature))};
}

// The cryptogram goes into the signature, and so does a hash over all that was said in the transaction.
Answer EmvApplication::signCryptogram(const crypto::Block& cryptogram, const Bytes& data) const
{
    Bytes before = tlv::encode(0x9F27, {type()});
    tlv::append(before, tlv::encode(0x9F36, counter(a_.state.atc)));
    const Bytes behind = tlv::encode(0x9F10, data);

    Bytes transaction = transaction_.lists;
    tlv::append(transaction, before);
    tlv::append(transaction, behind);
    Bytes signedData = dynamicNumber();
    signedData.push_back(type());
    signedData.insert(signedData.end(), cryptogram.begin(), cryptogram.end());
    tlv::append(signedData, rsa::sha1(transaction));
    const Bytes signature = a_.offline.sign(signedData, said(kUnpredictableNumber), a_.offline.wrongCombinedSignature);

    Bytes value = before;
    tlv::append(value, tlv::encode(kSignature, signature));
    tlv::append(value, behind);
    account_.add("combined data authentication: the cryptogram is signed");
    return {tlv::encode(0x77, value)};
}

} // namespace vorn::sim
