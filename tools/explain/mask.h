// SPDX-License-Identifier: Apache-2.0
// What identifies a card or its holder, and how much of it everybody may see. Every command and every format masks
// through these functions. Of an account number six digits remain in front and four at the end, of other secrets
// nothing but their length.
#pragma once

#include "sim/data/bytes.h"
#include "sim/data/tlv.h"

#include <cstddef>
#include <string>

namespace vorn::tool {

using sim::Bytes;
using sim::ByteSpan;
using sim::tlv::Tag;

enum class Secret {
    None,
    AccountNumber, // digits, perhaps padded
    Track2,        // an account number, a separator, and what nobody may see
    Document,      // three characters remain in front and two at the end, in words
    Whole          // nothing remains
};

Secret secretOf(Tag tag);
bool secretTag(Tag tag);
// A value of random or enciphered bytes, or a name of an application: no account number, whatever its digits look like.
bool opaqueTag(Tag tag);

// ------------------------------------------------------------ hex of bytes

// One object's value.
std::string valueHex(Tag tag, ByteSpan value, bool show);
// Any bytes: whole objects, objects that are cut, texts of cryptograms, what is no object at all.
std::string hexText(ByteSpan bytes, bool show);
// A command; the data of one that carries a PIN are a secret as a whole.
std::string commandHex(ByteSpan apdu, bool show);
// The answer to that command: its data alone, or with the status word behind them. Random numbers and cryptograms are
// no account numbers, and a hard wallet's information is a secret as a whole.
std::string dataHex(ByteSpan apdu, ByteSpan data, bool show);
std::string responseHex(ByteSpan apdu, ByteSpan response, bool show);

// ------------------------------------------------------------ words

std::string valueWords(Tag tag, std::string words, bool show);

// ------------------------------------------------------------ text of any kind

// Messages, log lines, texts of cryptograms, lettered records, dumps: account numbers, tracks and the secret objects
// and fields that can be found in them are masked. Lengths stay.
std::string maskText(std::string text);
std::string maskedUnless(bool show, std::string text);
// What a message may repeat of an input that was not understood: a few characters, none of them a digit or a control.
std::string excerpt(const std::string& input);

// ------------------------------------------------------------ single values

std::string maskMiddle(const std::string& text, std::size_t first, std::size_t last);
std::string maskPan(const std::string& digits);   // 622588******1234
std::string maskPanHex(ByteSpan value);           // the same with padding behind it
std::string maskTrack2(const std::string& track); // the PAN as above, nothing behind '='

} // namespace vorn::tool
