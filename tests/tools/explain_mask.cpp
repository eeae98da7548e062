// SPDX-License-Identifier: Apache-2.0
// What everybody may see of a card's data, and what nobody.
#include "sim/data/bytes.h"
#include "tools/explain/apdu_view.h"
#include "tools/explain/frame_view.h"
#include "tools/explain/mask.h"
#include "tools/explain/mask_scan.h"
#include "tools/explain/tlv_view.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

using vorn::sim::fromHex;
using vorn::tool::commandHex;
using vorn::tool::dataHex;
using vorn::tool::excerpt;
using vorn::tool::hexText;
using vorn::tool::maskText;
using vorn::tool::payloadHex;
using vorn::tool::responseHex;

vorn::sim::Bytes bytes(const std::string& hex) { return fromHex(hex).value(); }

struct HexRow {
    const char* what;
    const char* hex;
    const char* masked;
};

const HexRow kHexRows[] = {
    {"account number", "5A0A6229990000710246589F", "5A0A622999*********6589F"},
    {"account number of sixteen digits", "5A086250990710031424", "5A08625099******1424"},
    {"track 2", "5712622999000071024658 9D30122200000728 7F", "5712622999*********6589D***************F"},
    {"track 2 without its beginning's end", "57126229990000710246", "57126229 99**********"},
    {"track 2 data of the contactless kernels", "9F6B0B6250990710031424D30120", "9F6B0B625099******1424D*****"},
    {"track 1", "5605423632325E", "5605**********"},
    {"track 1 discretionary data", "9F1F0430313233", "9F1F04********"},
    {"track 2 discretionary data", "9F2004 12345678", "9F2004********"},
    {"name", "5F2004C5B7D1F4", "5F2004********"},
    {"name extended", "9F0B06C5B7D1F4CFFE", "9F0B06************"},
    {"document number", "9F61 06 303030303031", "9F6106************"},
    {"inside templates", "70 0E 61 0C 5A 0A 6229990000710246589F", "700E610C5A0A622999*********6589F"},
    {"in a rest behind an object that is cut", "9F2608 0011 5A0A6229990000710246589F",
     "9F260800115A0A622999*********6589F"},
    {"behind the item of a text whose tag is short", "9F06000000001250 5F020156 5A0A6229990000710246589F",
     "9F060000000012505F0201565A0A622999*********6589F"},
    {"digits that pass the check, unknown tag", "DF0108 4111111111111111", "DF010841**********1111"},
    {"digits as characters, unknown tag", "DF0110 34313131313131313131313131313131",
     "DF0110343131**********************3131"},
    {"track 2 shape without its tag", "C1C26229990000710246589D3012FF", "C1C262299**********6589D****FF"},
    {"cryptogram", "9F2608 4111111111111111", "9F26084111111111111111"},
    {"application identifier", "4F08A000000333010106", "4F08A000000333010106"},
    {"label", "500B50424F4320435245444954", "500B50424F4320435245444954"},
    {"label with an account number",
     "5010"
     "34313131313131313131313131313131",
     "5010343131**********************3131"},
    {"amount and date", "9F0206000000001250 9A03261121", "9F02060000000012509A03261121"},
};

std::string dense(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    return text;
}

TEST(Mask, HexShowsOnlyWhatEverybodyMaySee)
{
    for (const HexRow& row : kHexRows) {
        EXPECT_EQ(hexText(bytes(dense(row.hex)), false), dense(row.masked)) << row.what;
        EXPECT_EQ(hexText(bytes(dense(row.hex)), true), dense(row.hex)) << row.what << ", shown";
    }
}

TEST(Mask, EveryCutOfARecordHidesTheAccountNumber)
{
    const std::string record = "702657126229990000710246589D30122200000728"
                               "7F5A0A6229990000710246589F9F20045678901F";
    for (std::size_t from = 0; from < record.size(); from += 2) {
        for (std::size_t to = from + 2; to <= record.size(); to += 2) {
            const std::string masked = hexText(bytes(record.substr(from, to - from)), false);
            EXPECT_EQ(masked.find("6229990000710"), std::string::npos) << from << " to " << to;
            EXPECT_EQ(masked.size(), to - from);
        }
    }
}

TEST(Mask, TemplatesInTemplatesHideTheAccountNumberAtAnyDepth)
{
    std::string record = "5A0A6229990000710246589F";
    for (int depth = 0; depth < 20; ++depth) {
        EXPECT_EQ(hexText(bytes(record), false).find("6229990000710"), std::string::npos) << depth;
        const std::string length = vorn::sim::toHex({static_cast<std::uint8_t>(record.size() / 2)});
        record = "70" + length + record;
    }
}

TEST(Mask, CommandsAndAnswersAreMaskedByWhatTheyAre)
{
    EXPECT_EQ(commandHex(bytes("0020008008241234FFFFFFFFFF"), false), "0020008008****************");
    EXPECT_EQ(commandHex(bytes("00A40400085A0662299900007100"), false), "00A40400085A06622999**007100");
    const vorn::tool::Item select = vorn::tool::ExchangeView(false).command(bytes("00A404000A6229990000710246589F"));
    EXPECT_EQ(select.words, "SELECT 622999*********6589F");
    // A random number is no account number, nor is a cryptogram.
    EXPECT_EQ(responseHex(bytes("0084000008"), bytes("41111111111111119000"), false), "41111111111111119000");
    EXPECT_EQ(responseHex(bytes("80AE800000"),
                          bytes("800B8000484111111111111111"
                                "9000"),
                          false),
              "800B80004841111111111111119000");
    EXPECT_EQ(responseHex(bytes("00B0000008"), bytes("41111111111111119000"), false), "411111******11119000");
    // A record is an object; what does not begin as one is the rest of something.
    EXPECT_EQ(responseHex(bytes("00B2010C00"), bytes("41111111111111119000"), false), "****************9000");
    EXPECT_EQ(responseHex(bytes("80CA9F1700"), bytes("9F1701039000"), false), "9F1701039000");
    EXPECT_EQ(responseHex(bytes("80CA9F1700"), bytes("9F3601039000"), false), "********9000");
    EXPECT_EQ(responseHex(bytes("0082000000"), bytes("12349000"), false), "****9000");
    EXPECT_EQ(responseHex(bytes("84DA000000"), bytes("12349000"), false), "****9000");
    EXPECT_EQ(responseHex(bytes("0084000000"), bytes("4F5559414E47205849414F4D494E479000"), false),
              "******************************9000");
    EXPECT_EQ(responseHex(bytes("0088000000"), bytes("80044F5559419000"), false), "80044F5559419000");
    EXPECT_EQ(responseHex(bytes("0088000000"), bytes("4F5559419000"), false), "********9000");
    EXPECT_EQ(responseHex(bytes("0088000000"), bytes("80054F5559419000"), false), "************9000"); // not whole
    EXPECT_EQ(responseHex(bytes("00C0000000"), bytes("700450024F559000"), false), "700450024F559000");
    EXPECT_EQ(responseHex(bytes("00C0000000"), bytes("4F5559414E479000"), false), "************9000");
    EXPECT_EQ(dataHex(bytes("80220003"), bytes("3156AABB"), false), "********");
    EXPECT_EQ(responseHex(bytes("00B2010C00"), bytes("6A82"), false), "6A82");
}

struct PayloadRow {
    const char* command;
    const char* payload;
    const char* masked;
};

const PayloadRow kPayloadRows[] = {
    {"3222018000", "3B6800000102030405060708", "3B6800000102030405060708"}, // an answer to reset
    {"3222018000", "3F6500000102", "3F6500000102"},                         //
    {"3222018000", "4F5559414E479000", "****************"},
    {"32240180", "0678807082024B", "**************"},
    {"32240180", "067880708202", "067880708202"}, // to select: its length in front
    {"3241FF52", "0400A1B2C3D4", "0400A1B2C3D4"}, // a memory card's number
    {"3241FF52", "4F5559414E472058494141", "**********************"},
    {"324304", "00112233445566778899AABBCCDDEEFF", "********************************"},
    {"322300", "4F55594190", "**********"},
    {"3226000084000008", "01020304050607089000", "01020304050607089000"},
    {"32260000B2010C00", "4F5559414E479000", "************9000"},
};

TEST(Mask, OfTheReadersOwnAnswersNothingRemainsThatMayBeACards)
{
    for (const PayloadRow& row : kPayloadRows) {
        EXPECT_EQ(payloadHex(bytes(row.command), bytes(row.payload), false), row.masked) << row.command;
        EXPECT_EQ(payloadHex(bytes(row.command), bytes(row.payload), true), row.payload) << row.command;
    }
    EXPECT_EQ(payloadHex({}, bytes("3B00"), false), "****");
}

TEST(Mask, WordsOfASecretAreHiddenWhereThereAreAny)
{
    const auto words = [](vorn::tool::Tag tag, const std::string& value, bool show) {
        const vorn::sim::Bytes of = bytes(value);
        return vorn::tool::valueInWords({tag, 0, 0, of, false}, show);
    };
    EXPECT_EQ(words(0x5F20, "4F5559414E4720", false), "(masked)");
    EXPECT_EQ(words(0x5F20, "4F5559414E4720", true), "OUYANG");
    for (const char* const blank : {"", "2020", "002020", "20004F55"}) {
        EXPECT_EQ(words(0x5F20, blank, false), "") << blank;
        EXPECT_EQ(words(0x5F20, blank, true), "") << blank;
    }
    EXPECT_EQ(words(0x9F46, "4F5559", false), "") << "bytes have no words";
}

struct TextRow {
    const char* what;
    const char* text;
    const char* masked;
};

const TextRow kTextRows[] = {
    {"a number that passes the check", "card 4111111111111111 refused", "card 411111******1111 refused"},
    {"groups of digits", "4111 1111 1111 1111", "4111 11** **** 1111"},
    {"a number like a card's", "6229990000710246589", "622999*********6589"},
    {"track 2 of a stripe", ";6229990000710246589=30122200000728?", ";622999*********6589=**************?"},
    {"track 1 of a stripe", "%B4111111111111111^WANG/XIAO ^3012?", "%B411111******1111^***************?"},
    {"a dump", "62 29 99 00 00 71 02 46 58 9F 5F 24", "62 29 99 ** ** ** ** *6 58 9F 5F 24"},
    {"a dump over two lines", "5A 0A 62 29 99 00 00 \n71 02 46 58 9F 5F \n",
     "5A 0A 62 29 99 ** ** \n** ** *6 58 9F 5F \n"},
    {"a lettered record", "pnUsrInfoLen:A0196229990000710246589B0346229990000710246589=30122200000728K008C5B7D1F4L000",
     "pnUsrInfoLen:A019622999*********6589B034622999*********6589=**************K008********L000"},
    {"a lettered record that is cut", "A0196229990000710", "A019622999*******"},
    {"an account number without check digit in a record", "A012100000000001B000", "A012100000**0001B000"},
    {"the text of a cryptogram", "pszTC:9F26081BB74B353895BA6C5A0A6229990000710246589F5F340101",
     "pszTC:9F26081BB74B353895BA6C5A0A622999*********6589F5F340101"},
    {"a lower-case object", "5a0a6229990000710246589f", "5a0a622999*********6589f"},
    {"an object that begins in the middle of a byte", "x=15A0A6229990000710246589F", "x=15A0A622999*********6589F"},
    {"the state between two calls", "icc_tempappdata:018D0295055A0A6229990000710246589F5F340101",
     "icc_tempappdata:018D0295055A0A622999*********6589F5F340101"},
    {"date and time", "2026-11-21 22:07:01", "2026-11-21 22:07:01"},
    {"words", "The reader answered with an error, code 8", "The reader answered with an error, code 8"},
    {"what a host gives a call", "pszTxData:P012000000412500Q012000000000000R0040156J0040156S006261121,pszARPC:",
     "pszTxData:P012000000412500Q012000000000000R0040156J0040156S006261121,pszARPC:"},
    {"a record's amounts", "A0164111111111111111B000C012000000035680D012000000100000",
     "A016411111******1111B000C012000000035680D012000000100000"},
    {"an amount", "000000001250", "000000001250"},
};

TEST(Mask, FreeTextShowsNoAccountNumber)
{
    for (const TextRow& row : kTextRows) {
        EXPECT_EQ(maskText(row.text), row.masked) << row.what;
    }
}

// Any 12 to 19 digits that pass the check, or 12 that begin like a card's number.
bool holdsAccountNumber(const std::string& digits)
{
    for (std::size_t at = 0; at + 12 <= digits.size(); ++at) {
        if (digits[at] >= '3' && digits[at] <= '6' && digits.compare(at + 1, 5, "00000") != 0) {
            return true;
        }
        for (std::size_t size = 12; size <= 19 && at + size <= digits.size(); ++size) {
            if (digits[at] != '0' && vorn::tool::passesLuhn(digits.substr(at, size))) {
                return true;
            }
        }
    }
    return false;
}

TEST(Mask, DigitsAreHiddenWhereverAnAccountNumberCouldStandInThem)
{
    std::mt19937 random(9); // NOLINT(cert-msc51-cpp): the same in each run
    int hidden = 0;
    int shown = 0;
    for (int round = 0; round < 2000; ++round) {
        std::string digits;
        for (std::size_t size = 10 + random() % 16; digits.size() < size;) {
            digits += "0012789"[random() % 7]; // few that a card's number begins with
        }
        const bool expected = holdsAccountNumber(digits);
        std::string text = "=" + digits + "!";
        for (std::size_t before = random() % 20; before > 0; --before) {
            text.insert(0, random() % 2 == 0 ? "x" : "71x"); // digits that are no number
        }
        EXPECT_EQ(maskText(text).find('*') != std::string::npos, expected) << text;
        ++(expected ? hidden : shown);
    }
    EXPECT_GT(hidden, 100);
    EXPECT_GT(shown, 100);
}

TEST(Mask, DigitsAsCharactersAreHiddenAtAnyPlace)
{
    for (std::size_t before = 0; before < 60; ++before) {
        for (std::size_t behind = 0; behind < 3; ++behind) {
            const std::string text =
                std::string(before, 'C') + "34313131313131313131313131313131" + std::string(behind, 'C');
            EXPECT_EQ(maskText(text),
                      std::string(before, 'C') + "343131**********************3131" + std::string(behind, 'C'));
        }
    }
}

TEST(Mask, AnExcerptNamesTheInputWithoutItsDigits)
{
    EXPECT_EQ(excerpt("6229990000710246589"), "########...");
    EXPECT_EQ(excerpt("hello"), "hello");
    EXPECT_EQ(excerpt("\x1B[2J"), "?[#J");
}

} // namespace
