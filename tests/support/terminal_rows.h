// SPDX-License-Identifier: Apache-2.0
// Values of the transaction text that fit their fields, or are cut to them by both calls, and what they come to.
#pragma once

#include "support/transaction.h"

#include <ostream>

namespace vorn::test {

struct Row {
    std::string name;
    std::string text;         // kNumberText is put in front when it has no K of its own
    DataObjects asked;        // what differs from terminalObjects() in the lists' values
    DataObjects written = {}; // what differs from those in the ARQC text
};

inline std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.text; }

// Merchant names: 20 and 24 characters.
const std::string kExactName = hexOf("Corner Shop, Nanjing");
const std::string kLongName = hexOf("Corner Shop, Nanjing Rd.");

// What a text gives within the fields' widths.
const Row kWithin[] = {
    {"nothing but the number", "", {}},
    {"all keys",
     "P012000000012345Q012000000000500J0040344L0108040048000R0040344T00220S006260319U006101112"
     "M00836004000N00200O012000000200000V040" +
         kExactName,
     {{"9F02", "000000012345"},
      {"9F03", "000000000500"},
      {"9F1A", "0344"},
      {"95", "8040048000"},
      {"5F2A", "0344"},
      {"9C", "20"},
      {"9A", "260319"},
      {"9F21", "101112"},
      {"9F66", "36004000"},
      {"9F7A", "00"},
      {"9F7B", "000000200000"},
      {"9F4E", kExactName}}},
    {"keys in another order",
     "T00209R0040978P012000000000777",
     {{"9C", "09"}, {"5F2A", "0978"}, {"9F02", "000000000777"}}},
    {"a key given twice", "T00220T00230", {{"9C", "20"}}},
    {"unknown keys", "A0021BB006010203T00220Z000", {{"9C", "20"}}},
    {"lower case digits", "P012000000abcdef", {{"9F02", "000000ABCDEF"}}},

    {"P exact", "P012987654321098", {{"9F02", "987654321098"}}},
    {"P short", "P0040100", {{"9F02", "000000000100"}}},
    {"P one byte", "P00207", {{"9F02", "000000000007"}}},
    {"P odd", "P00512345", {{"9F02", "000000012345"}}},
    {"P eleven digits", "P01198765432109", {{"9F02", "098765432109"}}},
    {"P empty", "P000", {{"9F02", "000000000000"}}},

    {"Q exact", "Q012000000099999", {{"9F03", "000000099999"}}},
    {"Q short", "Q0061A2B3C", {{"9F03", "0000001A2B3C"}}},
    {"Q odd", "Q0015", {{"9F03", "000000000005"}}},
    {"Q empty", "Q000", {}},

    {"J exact", "J0040840", {{"9F1A", "0840"}}},
    {"J short", "J00240", {{"9F1A", "0040"}}},
    {"J odd", "J003840", {{"9F1A", "0840"}}},
    {"J empty", "J000", {{"9F1A", "0000"}}},

    {"L exact", "L0108000048000", {{"95", "8000048000"}}},
    {"L short", "L0040880", {{"95", "0000000880"}}},
    {"L odd", "L007A000001", {{"95", "000A000001"}}},
    {"L empty", "L000", {{"95", "0000000000"}}},

    {"R exact", "R0040392", {{"5F2A", "0392"}}},
    {"R short", "R00292", {{"5F2A", "0092"}}},
    {"R odd", "R003392", {{"5F2A", "0392"}}},
    {"R empty", "R000", {{"5F2A", "0000"}}},

    {"T exact", "T00230", {{"9C", "30"}}},
    {"T odd", "T0019", {{"9C", "09"}}},
    {"T long", "T0062031FF", {{"9C", "20"}}},
    {"T empty", "T000", {{"9C", "00"}}},

    {"S exact", "S006260319", {{"9A", "260319"}}},
    {"S with its century", "S00820260319", {{"9A", "260319"}}},
    {"S of three bytes", "S006230315", {{"9A", "230315"}}},
    {"S of four bytes", "S00820230315", {{"9A", "230315"}}},
    {"S of seven bytes", "S01420260319101112", {{"9A", "101112"}}},
    {"S short", "S0040319", {{"9A", "000319"}}},
    {"S one byte", "S00219", {{"9A", "000019"}}},
    {"S odd", "S00560319", {{"9A", "060319"}}},
    {"S odd with its century", "S0070260319", {{"9A", "260319"}}},
    {"S empty", "S000", {{"9A", "000000"}}},

    {"U exact", "U006235958", {{"9F21", "235958"}}},
    {"U long", "U00823595877", {{"9F21", "235958"}}},
    {"U short", "U0045958", {{"9F21", "005958"}}},
    {"U odd", "U00535958", {{"9F21", "035958"}}},
    {"U empty", "U000", {{"9F21", "000000"}}},

    {"M exact", "M00826004080", {{"9F66", "26004080"}}},
    {"M short", "M0044080", {{"9F66", "00004080"}}},
    {"M long", "M01226004080AABB", {{"9F66", "26004080"}}},
    {"M odd", "M0076004080", {{"9F66", "06004080"}}},
    {"M empty", "M000", {{"9F66", "00000000"}}},

    {"N exact", "N00200", {{"9F7A", "00"}}},
    {"N long", "N0045A02", {{"9F7A", "5A"}}},
    {"N odd", "N0013", {{"9F7A", "03"}}},
    {"N empty", "N000", {{"9F7A", "00"}}},

    {"O exact", "O012000000050000", {{"9F7B", "000000050000"}}},
    {"O short", "O006500000", {{"9F7B", "000000500000"}}},
    {"O long", "O016000000050000FFFF", {{"9F7B", "000000050000"}}},
    {"O odd", "O00550000", {{"9F7B", "000000050000"}}},
    {"O empty", "O000", {{"9F7B", "000000000000"}}},

    {"V exact", "V040" + kExactName, {{"9F4E", kExactName}}},
    {"V long", "V048" + kLongName, {{"9F4E", kLongName.substr(0, 40)}}},
    {"V short", "V008" + hexOf("Shop"), {{"9F4E", std::string(32, '0') + hexOf("Shop")}}},
    {"V odd", "V0033F5", {{"9F4E", std::string(37, '0') + "3F5"}}},
    {"V empty", "V000", {{"9F4E", std::string(40, '0')}}},
    {"V of 128 bytes", "V256" + repeated("31", 20) + repeated("32", 108), {{"9F4E", repeated("31", 20)}}},

    {"K exact", "K00800FF00EE", {{"9F37", "00FF00EE"}}},
    {"K short", "K0041A2B", {{"9F37", "00001A2B"}}},
    {"K long", "K0121A2B3C4D5E6F", {{"9F37", "1A2B3C4D"}}},
    {"K odd", "K007A2B3C4D", {{"9F37", "0A2B3C4D"}}},
    {"K empty", "K000", {{"9F37", "00000000"}}},

    // A length byte 81 is read as the beginning of a longer length field, and the length that counts is that of the
    // text's first item: 4 bytes of K, or V's own 81.
    {"V of 129 bytes behind K", "V25880" + repeated("31", 128), {{"9F4E", std::string(32, '0') + repeated("31", 4)}}},
    {"V of 129 bytes behind P",
     "P012000000000100V25880" + repeated("31", 128) + kNumberText,
     {{"9F02", "000000000100"}, {"9F4E", std::string(28, '0') + repeated("31", 6)}}},
    {"V of 129 bytes in front",
     "V25880" + repeated("31", 20) + repeated("32", 108) + kNumberText,
     {{"9F4E", repeated("31", 20)}}},
};

inline bool hasNumber(const std::string& text) { return text[0] == 'K' || text.find(kNumberText) != std::string::npos; }

} // namespace vorn::test
