// SPDX-License-Identifier: Apache-2.0
// The simulator's cryptography against published worked examples, and its TLV reading.
#include "sim/cards/crypto.h"

#include "sim/data/json_node.h"
#include "sim/data/tlv.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace vorn::sim;
using crypto::Block;
using crypto::Key;

Bytes hex(const std::string& text)
{
    const auto bytes = fromHex(text);
    EXPECT_TRUE(bytes) << text;
    return bytes.value_or(Bytes());
}

Key key(const std::string& text)
{
    const Bytes bytes = hex(text);
    Key result{};
    EXPECT_EQ(bytes.size(), result.size());
    std::copy_n(bytes.begin(), std::min(bytes.size(), result.size()), result.begin());
    return result;
}

Block block(const std::string& text)
{
    const Bytes bytes = hex(text);
    Block result{};
    EXPECT_EQ(bytes.size(), result.size());
    std::copy_n(bytes.begin(), std::min(bytes.size(), result.size()), result.begin());
    return result;
}

template <typename Array>
std::string text(const Array& bytes)
{
    return toHex(Bytes(bytes.begin(), bytes.end()));
}

// Keys are printed with odd parity in some places and raw in others.
std::string withoutParity(Key value)
{
    for (auto& byte : value) {
        byte = static_cast<std::uint8_t>(byte & 0xFE);
    }
    return text(value);
}

const char* const kMasterAc = "F0C34A8124CEE0A91A0B034AA97D6EAC";
const char* const kAccount = "6228000100001";
const char* const kCvr = "03A04002";

std::map<tlv::Tag, Bytes> tutorialObjects()
{
    return {{0x9F37, hex("1E78EEBC")}, {0x9F36, hex("0240")},         {0x95, hex("0080046000")}, {0x9A, hex("140701")},
            {0x9C, hex("00")},         {0x9F02, hex("000000000001")}, {0x5F2A, hex("0156")},     {0x82, hex("7D00")},
            {0x9F1A, hex("0156")},     {0x9F03, hex("000000000000")}};
}

TEST(DebitCardExample, CardKeyComesFromAccountAndSequenceNumber)
{
    EXPECT_EQ(text(crypto::cardKey(key(kMasterAc), kAccount, "01")), "014D996FCC8F49157DC8B49E3BCDFD99");
}

TEST(DebitCardExample, SessionKeyComesFromTheTransactionCounter)
{
    EXPECT_EQ(text(crypto::pbocSessionKey(key("014D996FCC8F49157DC8B49E3BCDFD99"), 0x0240)),
              "D4102725E6E5AD329E55AAB50BF23DA9");
}

TEST(DebitCardExample, CryptogramInputHasTheObjectsInTheirOrder)
{
    EXPECT_EQ(toHex(crypto::cryptogramInput(tutorialObjects(), hex(kCvr))),
              "000000000001000000000000015600800460000156140701001E78EEBC7D00024003A04002");
}

TEST(DebitCardExample, ObjectsThatWereNotSentAreLeftOut)
{
    auto objects = tutorialObjects();
    objects.erase(0x9F03);
    objects[0x9F4E] = hex("FFFF"); // not one of them
    EXPECT_EQ(toHex(crypto::cryptogramInput(objects, {})), "000000000001015600800460000156140701001E78EEBC7D000240");
}

TEST(DebitCardExample, VerificationResultsLieAtTheirOffset)
{
    const Bytes data = hex("07000103A04002010A010000001000D1F61152");
    const auto from = data.begin() + crypto::kCvrOffset;
    EXPECT_EQ(toHex(Bytes(from, from + crypto::kCvrSize)), kCvr);
}

TEST(DebitCardExample, FirstCryptogram)
{
    EXPECT_EQ(
        text(crypto::applicationCryptogram(key("D4102725E6E5AD329E55AAB50BF23DA9"), tutorialObjects(), hex(kCvr))),
        "5D016C91005E7CC2");
}

TEST(DebitCardExample, IssuersAnswer)
{
    EXPECT_EQ(text(crypto::arpc(key("D4102725E6E5AD329E55AAB50BF23DA9"), block("5D016C91005E7CC2"), {0x30, 0x31})),
              "21415243527CE78F");
}

TEST(DebitCardExample, BalancesMac)
{
    const Key session =
        crypto::pbocSessionKey(crypto::cardKey(key("12B1AC4AF070CC35612BFE2D30AB600D"), kAccount, "01"), 0x0240);
    EXPECT_EQ(text(crypto::balanceMac(session, 0x0240, hex("0000001000"))), "D1F61152F0289A81");
}

TEST(DebitCardExample, TheWholeWayFromTheIssuersKeys)
{
    crypto::KeySet issuer{key(kMasterAc), key("12B1AC4AF070CC35612BFE2D30AB600D"),
                          key("D30F45EABC12AC3EF56B0C0D7F8654DE"), crypto::SessionKeys::Pboc};
    const auto session = crypto::sessionKeys(crypto::cardKeys(issuer, kAccount, "01"), 0x0240);
    EXPECT_EQ(text(session.ac), "D4102725E6E5AD329E55AAB50BF23DA9");
    EXPECT_EQ(session.mac, crypto::pbocSessionKey(crypto::cardKey(issuer.mac, kAccount, "01"), 0x0240));
    EXPECT_EQ(session.enc, crypto::pbocSessionKey(crypto::cardKey(issuer.enc, kAccount, "01"), 0x0240));
    EXPECT_NE(session.mac, session.enc);
}

TEST(CommonSessionKeyExample, CardKeyOfALongAccountNumber)
{
    EXPECT_EQ(withoutParity(crypto::cardKey(key("0123456789ABCDEFFEDCBA9876543210"), "9901234567890123", "45")),
              withoutParity(key("F84315C7B95BD3B0C74694922C3808B0")));
}

TEST(CommonSessionKeyExample, SessionKey)
{
    EXPECT_EQ(
        withoutParity(crypto::commonSessionKey(key("F84315C7B95BD3B0C74694922C3808B0"), block("1234567890123456"))),
        withoutParity(key("3E736BF8D37664348A04E3ABE00DEFC1")));
}

TEST(CommonSessionKeyExample, CryptogramOverWholeBlocksIsPaddedWithOneMore)
{
    EXPECT_EQ(text(crypto::retailMac(key("3E736BF8D37664348A04E3ABE00DEFC1"), hex("0123456789ABCDEF0123456789ABCDEF"))),
              "4B46013359B7A58B");
}

TEST(CommonSessionKeyExample, AnswerByTheFirstMethodWithTheCardKey)
{
    EXPECT_EQ(text(crypto::arpc(key("F84315C7B95BD3B0C74694922C3808B0"), block("4B46013359B7A58B"), {0x00, 0x00})),
              "F8C9CECAABD55AD1");
}

TEST(CommonSessionKeyExample, AnswerByTheSecondMethodIsAMac)
{
    const auto mac = crypto::retailMac(key("3E736BF8D37664348A04E3ABE00DEFC1"), hex("4B46013359B7A58B 00000000"));
    EXPECT_EQ(text(mac).substr(0, 8), "7DFB1188");
}

TEST(CommonSessionKeyExample, KeySetsCanUseIt)
{
    crypto::KeySet card;
    card.ac = key("F84315C7B95BD3B0C74694922C3808B0");
    card.session = crypto::SessionKeys::Common;
    EXPECT_EQ(crypto::sessionKeys(card, 0x1234).ac, crypto::commonSessionKey(card.ac, block("1234000000000000")));
}

TEST(TripleDes, DecryptionUndoesEncryption)
{
    const Key k = key(kMasterAc);
    const Bytes data = hex("00112233445566778899AABBCCDDEEFF");
    EXPECT_NE(crypto::encrypt(k, data), data);
    EXPECT_EQ(crypto::decrypt(k, crypto::encrypt(k, data)), data);
}

TEST(TripleDes, EqualHalvesAreSingleDes)
{
    // FIPS 81's well-known block
    EXPECT_EQ(text(crypto::encrypt(key("0123456789ABCDEF0123456789ABCDEF"), block("4E6F772069732074"))),
              "3FA40E8A984D4815");
}

TEST(TripleDes, TakesWholeBlocksOnly)
{
    EXPECT_THROW(crypto::encrypt(key(kMasterAc), Bytes(7)), std::invalid_argument);
    EXPECT_TRUE(crypto::encrypt(key(kMasterAc), Bytes()).empty());
}

TEST(RetailMac, ShortAndEmptyDataArePadded)
{
    EXPECT_EQ(toHex(crypto::padded(hex("0102"))), "0102800000000000");
    EXPECT_EQ(toHex(crypto::padded({})), "8000000000000000");
    EXPECT_EQ(toHex(crypto::padded(Bytes(8))), "00000000000000008000000000000000");
    EXPECT_NE(crypto::retailMac(key(kMasterAc), {}), crypto::retailMac(key(kMasterAc), {0x80}));
}

TEST(ScriptMac, DependsOnHeaderCounterCryptogramAndData)
{
    const Key k = key(kMasterAc);
    const auto mac = crypto::scriptMac(k, hex("84DA9F770A"), 1, block("0102030405060708"), hex("000000200000"));
    EXPECT_EQ(mac.size(), crypto::kScriptMacSize);
    const auto whole = crypto::retailMac(k, hex("84DA9F770A 0001 0102030405060708 000000200000"));
    EXPECT_EQ(toHex(mac), text(whole).substr(0, 8));
    EXPECT_NE(mac, crypto::scriptMac(k, hex("84DA9F790A"), 1, block("0102030405060708"), hex("000000200000")));
    EXPECT_NE(mac, crypto::scriptMac(k, hex("84DA9F770A"), 2, block("0102030405060708"), hex("000000200000")));
    EXPECT_NE(mac, crypto::scriptMac(k, hex("84DA9F770A"), 1, block("0102030405060709"), hex("000000200000")));
    EXPECT_NE(mac, crypto::scriptMac(k, hex("84DA9F770A"), 1, block("0102030405060708"), hex("000000200001")));
}

TEST(PinBlock, CarriesFourToTwelveDigits)
{
    EXPECT_EQ(toHex(crypto::pinBlock("1234")), "241234FFFFFFFFFF");
    EXPECT_EQ(toHex(crypto::pinBlock("123456789012")), "2C123456789012FF");
    EXPECT_THROW(crypto::pinBlock("123"), std::invalid_argument);
    EXPECT_THROW(crypto::pinBlock("1234567890123"), std::invalid_argument);
    EXPECT_THROW(crypto::pinBlock("12a4"), std::invalid_argument);
}

TEST(PinBlock, IsReadBackOnlyInItsForm)
{
    EXPECT_EQ(crypto::pinDigits(hex("241234FFFFFFFFFF")), "1234");
    for (const char* wrong : {"141234FFFFFFFFFF", "231234FFFFFFFFFF", "24123AFFFFFFFFFF", "241234FFFFFFFFF0",
                              "2D123456789012FF", "241234FFFFFFFF"}) {
        EXPECT_EQ(crypto::pinDigits(hex(wrong)), "") << wrong;
    }
}

TEST(PinBlock, TravelsEnciphered)
{
    const Key k = key(kMasterAc);
    const Key card = key("014D996FCC8F49157DC8B49E3BCDFD99");
    const Bytes data = crypto::encipherNewPin({k, card, ""}, "654321");
    EXPECT_EQ(data.size(), 16U);
    // 06654321FFFFFFFF with 00000000CC8F4915
    EXPECT_EQ(toHex(crypto::decrypt(k, data)), "08066543213370B6EA80000000000000");
    EXPECT_EQ(crypto::decipherNewPin({k, card, ""}, data), "654321");
    EXPECT_EQ(crypto::decipherNewPin({k, k, ""}, data), "") << "another card";
    EXPECT_EQ(crypto::decipherNewPin({card, card, ""}, data), "") << "another transaction";
    EXPECT_EQ(crypto::decipherNewPin({k, card, ""}, Bytes(8)), "");
}

TEST(PinBlock, TravelsCombinedWithTheCurrentPin)
{
    const Key k = key(kMasterAc);
    const Key card = key("014D996FCC8F49157DC8B49E3BCDFD99");
    const Bytes data = crypto::encipherNewPin({k, card, "12345"}, "654321");
    // and with 1234500000000000
    EXPECT_EQ(toHex(crypto::decrypt(k, data)), "08145113213370B6EA80000000000000");
    EXPECT_EQ(crypto::decipherNewPin({k, card, "12345"}, data), "654321");
    EXPECT_NE(crypto::decipherNewPin({k, card, "12346"}, data), "654321");
    EXPECT_EQ(crypto::decipherNewPin({k, card, ""}, data), "");
}

// ---------------------------------------------------------------- TLV

TEST(SimulatorTlv, EncodesTheThreeLengthForms)
{
    EXPECT_EQ(toHex(tlv::encode(0x9F02, hex("01"))), "9F020101");
    EXPECT_EQ(toHex(tlv::encode(0x5A, Bytes(0x80))).substr(0, 6), "5A8180");
    EXPECT_EQ(toHex(tlv::encode(0xBF0C, Bytes(0x100))).substr(0, 10), "BF0C820100");
    for (const std::size_t size : {0U, 127U, 128U, 255U, 256U, 65535U}) {
        const auto objects = tlv::parse(tlv::encode(0xDF8101, Bytes(size, 0x5A)));
        ASSERT_TRUE(objects) << size;
        ASSERT_EQ(objects->size(), 1U);
        EXPECT_EQ(objects->front().tag, 0xDF8101U);
        EXPECT_EQ(objects->front().value, Bytes(size, 0x5A));
    }
}

TEST(SimulatorTlv, FindsNestedObjectsInOrder)
{
    const Bytes data = hex("6F15 8405A000000333 A50C 500454455354 9F38039F0206");
    EXPECT_EQ(toHex(tlv::find(data, 0x9F38).value_or(Bytes())), "9F0206");
    EXPECT_EQ(toHex(tlv::find(data, 0x84).value_or(Bytes())), "A000000333");
    EXPECT_FALSE(tlv::find(data, 0x5A));
}

TEST(SimulatorTlv, RefusesWhatRunsPastItsEnd)
{
    for (const char* wrong : {"5A", "5A02FF", "9F", "9F81", "9F81818101", "5A81", "5A8200", "5A80", "5A8400000001FF"}) {
        EXPECT_FALSE(tlv::parse(hex(wrong))) << wrong;
    }
    EXPECT_TRUE(tlv::parse({})->empty());
}

TEST(SimulatorTlv, TagsComeFromHexWhole)
{
    EXPECT_EQ(tlv::tagFromHex("9F02"), tlv::Tag{0x9F02});
    EXPECT_EQ(tlv::tagFromHex("5a"), tlv::Tag{0x5A});
    for (const char* wrong : {"", "9F", "5A00", "xx", "9F0"}) {
        EXPECT_FALSE(tlv::tagFromHex(wrong)) << wrong;
    }
    EXPECT_EQ(tlv::toHex(tlv::Tag{0x9F02}), "9F02");
}

TEST(SimulatorTlv, SplitsDataByAList)
{
    const auto dol = tlv::parseDol(hex("9F0206 95 05 9C01"));
    ASSERT_TRUE(dol);
    EXPECT_EQ(tlv::dataLength(*dol), 12U);
    const auto values = tlv::split(*dol, hex("000000000100 0080046000 01"));
    EXPECT_EQ(toHex(values.at(0x95)), "0080046000");
    EXPECT_EQ(toHex(values.at(0x9C)), "01");
    EXPECT_FALSE(tlv::parseDol(hex("9F0206 95")));
    EXPECT_FALSE(tlv::parseDol(hex("9F")));
}

} // namespace
