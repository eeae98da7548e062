// SPDX-License-Identifier: Apache-2.0
// The data objects that the library looks for (EMV Book 3, Annex A; PBOC debit/credit).
#pragma once

#include "card/tlv.h"

namespace vorn::tag {

constexpr Tag kAid{0x4F};
constexpr Tag kTrack2{0x57};
constexpr Tag kPan{0x5A};
constexpr Tag kApplicationTemplate{0x61};
constexpr Tag kRecordTemplate{0x70};
constexpr Tag kScriptBeforeFinal{0x71};
constexpr Tag kScriptAfterFinal{0x72};
constexpr Tag kResponseFormat1{0x80};
constexpr Tag kAip{0x82};
constexpr Tag kDfName{0x84};
constexpr Tag kScriptCommand{0x86};
constexpr Tag kPriority{0x87};
constexpr Tag kDirectorySfi{0x88};
constexpr Tag kAuthorisationResponseCode{0x8A};
constexpr Tag kCdol1{0x8C};
constexpr Tag kCdol2{0x8D};
constexpr Tag kIssuerAuthData{0x91};
constexpr Tag kAfl{0x94};
constexpr Tag kTvr{0x95};
constexpr Tag kTransactionDate{0x9A};
constexpr Tag kTransactionType{0x9C};
constexpr Tag kDdfName{0x9D};
constexpr Tag kCardholderName{0x5F20};
constexpr Tag kExpirationDate{0x5F24};
constexpr Tag kCurrencyCode{0x5F2A};
constexpr Tag kPanSequenceNumber{0x5F34};
constexpr Tag kTransactionModeInfo{0x5F58};
constexpr Tag kAmountAuthorised{0x9F02};
constexpr Tag kAmountOther{0x9F03};
constexpr Tag kNameExtended{0x9F0B};
constexpr Tag kIssuerApplicationData{0x9F10};
constexpr Tag kLastOnlineAtc{0x9F13};
constexpr Tag kScriptIdentifier{0x9F18};
constexpr Tag kCountryCode{0x9F1A};
constexpr Tag kTransactionTime{0x9F21};
constexpr Tag kApplicationCryptogram{0x9F26};
constexpr Tag kCryptogramInformation{0x9F27};
constexpr Tag kTerminalCapabilities{0x9F33};
constexpr Tag kAtc{0x9F36};
constexpr Tag kUnpredictableNumber{0x9F37};
constexpr Tag kPdol{0x9F38};
constexpr Tag kLogEntry{0x9F4D};
constexpr Tag kMerchantName{0x9F4E};
constexpr Tag kDocumentNumber{0x9F61};
constexpr Tag kDocumentType{0x9F62};
constexpr Tag kTerminalTransactionQualifiers{0x9F66};
constexpr Tag kCashBalanceLimit{0x9F77};
constexpr Tag kCashTransactionLimit{0x9F78};
constexpr Tag kCashBalance{0x9F79};
constexpr Tag kCashTerminalSupport{0x9F7A};
constexpr Tag kCashTerminalLimit{0x9F7B};
constexpr Tag kTerminalIndicator60{0xDF60};
constexpr Tag kTerminalIndicator69{0xDF69};

} // namespace vorn::tag
