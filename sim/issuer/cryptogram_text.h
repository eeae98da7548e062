// SPDX-License-Identifier: Apache-2.0
// The texts that the library hands a host to send to the issuer: the items of an ARQC and of a TC.
#pragma once

#include "sim/data/tlv.h"

#include <map>
#include <string>

namespace vorn::sim {

// In the text of a TC four items have lost their second tag byte: amount (9F 06), currency (5F 02), country (9F 02)
// and other amount (9F 06). What they are is known from where they stand, so both texts are read by their order.
enum class CryptogramText { Arqc, Tc };

struct CryptogramItems {
    std::map<tlv::Tag, Bytes> values;
    std::string mistake; // empty: the text was understood
};

CryptogramItems readCryptogramText(CryptogramText kind, const std::string& hex);

// The text of an ARQC with these values; an item without a value is left out.
std::string writeCryptogramText(const std::map<tlv::Tag, Bytes>& values);

} // namespace vorn::sim
