// SPDX-License-Identifier: Apache-2.0
// What a person pastes, explained as what he says it is, right or wrong.
#include "sim/data/bytes.h"
#include "tools/explain/atr_view.h"
#include "tools/explain/frame_view.h"
#include "tools/explain/mask.h"
#include "tools/explain/object_view.h"
#include "tools/explain/page.h"
#include "tools/explain/present.h"
#include "tools/explain/recognise.h"
#include "tools/explain/render.h"
#include "tools/explain/status_words.h"
#include "tools/explain/text_view.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

namespace {

using namespace vorn::tool;

Bytes bytesOf(const std::string& hex) { return vorn::sim::fromHex(hex).value(); }

std::string told(const Explanation& explained)
{
    std::string text;
    for (const Item& item : explained.items) {
        text += textOf(item);
    }
    return text;
}

struct KindRow {
    const char* kind;
    const char* text;
    const char* says; // somewhere in the explanation
    const char* problem;
};

const KindRow kKinds[] = {
    {"exchange", "00A40400023F00\n9000\n00B2010C00", "2. READ RECORD", ""},
    {"exchange", "00A40400023F00\n\n  \n6A82", "1. SELECT", ""},
    {"exchange", "neither", "", "not hex"},
    {"apdu", "neither", "", "not hex, two digits a byte"},
    {"status", "63C2", "2", ""},
    {"dol", "9F", "", "not a list of tags and lengths"},
    {"dol", "9F02069F3704", "Unpredictable number", ""},
    {"frame", "0203", "", "no frame"},
    {"reader", "324304", "4", ""},
    {"reader", "32990000", "not known", ""},
    {"atr", "3B", "", ""},
    {"response", "70035A01119000", "5A", ""},
    {"log", "anything", "", "not understood"},
};

TEST(Explained, AsWhatItIsSaidToBe)
{
    for (const KindRow& row : kKinds) {
        SCOPED_TRACE(std::string(row.kind) + " " + row.text);
        const auto kind = kindOf(row.kind);
        ASSERT_TRUE(kind.has_value());
        const Explanation explained = explain(*kind, row.text, true);
        EXPECT_NE(told(explained).find(row.says), std::string::npos) << told(explained);
        if (std::string(row.kind) != "atr") {
            EXPECT_EQ(explained.problem, row.problem);
        }
    }
    EXPECT_FALSE(kindOf("nothing of the kind").has_value());
    for (const char* const name : {"log", "trace", "apdu", "tlv", "state"}) {
        EXPECT_NE(kindNames().find(name), std::string::npos);
    }
}

TEST(Explained, ARecordShowsNumbersOnlyWhereAllIsToBeShown)
{
    const std::string record = "A0166229991234566589B0246229991234566589=3012220D003xyzG00201H000";
    const std::string clear = told(explainRecord(record, true));
    EXPECT_NE(clear.find("6229991234566589=3012220"), std::string::npos) << clear;
    const std::string hidden = told(explainRecord(record, false));
    EXPECT_EQ(hidden.find("6229991234566589"), std::string::npos) << hidden;
    for (const char* const part : {"622999******6589", "not hex", "not on the card"}) {
        EXPECT_NE(hidden.find(part), std::string::npos) << part << "\n" << hidden;
    }
    EXPECT_EQ(explainRecord("A016622", true).problem.empty(), false);
}

TEST(Explained, TransactionDataAreReadToTheFirstFieldThatIsNotWhole)
{
    const Explanation explained = explainTransactionData("P012000000012345Z0041234T00200R00", true);
    EXPECT_EQ(explained.problem, "no whole field at character 31");
    ASSERT_EQ(explained.items.size(), 3U);
    EXPECT_NE(textOf(explained.items[0]).find("123.45"), std::string::npos);
    EXPECT_NE(textOf(explained.items[1]).find("not known"), std::string::npos);
}

TEST(Explained, ValuesOfAListThatDoNotFitItAreNotGuessed)
{
    EXPECT_EQ(explainListed(bytesOf("9F0206"), bytesOf("0102"), true).problem,
              "the values are not as long as the list asks for");
    EXPECT_EQ(explainListed(bytesOf("9F"), bytesOf("0102"), true).problem, "the list cannot be read");
    EXPECT_EQ(explainState({}, true).problem, "empty");
}

TEST(Explained, AnAnswerToResetOfAnotherFormIsShownAsItIs)
{
    for (const char* const hex : {"00", "2020", "3F"}) {
        const auto parts = decodeAtr(bytesOf(hex));
        ASSERT_FALSE(parts.empty());
        EXPECT_NE(parts.back().meaning, "") << hex;
    }
    ASSERT_EQ(decodeAtr({}).size(), 1U);
    EXPECT_EQ(decodeAtr({})[0].meaning, "not of the form of an answer to reset");
}

TEST(Explained, EveryByteOfAnAnswerToResetIsShownAlsoWhereOthersAreMissing)
{
    const auto linesOf = [](const char* hex) {
        std::string lines;
        for (const AtrPart& part : decodeAtr(bytesOf(hex))) {
            lines += part.name + " " + part.hex + "; ";
        }
        return lines;
    };
    EXPECT_EQ(linesOf("3B644142"), "TS 3B; T0 64; TB1 41; TC1 42; missing ; ");
    EXPECT_EQ(linesOf("3B044142"), "TS 3B; T0 04; historical 4142; missing ; ");
    EXPECT_EQ(linesOf("3B038031"), "TS 3B; T0 03; historical 8031; missing ; ");
    EXPECT_EQ(linesOf("3B02804180"), "TS 3B; T0 02; historical 8041; more 80; ");
    EXPECT_EQ(linesOf("3B018101"), "TS 3B; T0 01; historical 81; more 01; ");
    // As many rounds of interface bytes as there are bytes that announce one more.
    EXPECT_EQ(linesOf("3B808080808080808080801F55"),
              "TS 3B; T0 80; TD1 80; TD2 80; TD3 80; TD4 80; TD5 80; TD6 80; TD7 80; TD8 80; TD9 80; TD10 1F; TA11 55; "
              "missing ; ");
}

TEST(Explained, SlotsAndStatusWordsHaveTheirNumbers)
{
    EXPECT_EQ(slotName(0x13), "PSAM 4");
    EXPECT_EQ(slotName(0x55), "slot 55");
    EXPECT_NE(statusText(0x63C2).find("2"), std::string::npos);
    EXPECT_NE(statusText(0x6C00).find("256"), std::string::npos);
    EXPECT_EQ(statusText(0x1234), "1234 (of the card's own)");
}

// What is no number, date, time or code comes back as it is.
TEST(Shown, ValuesThatAreNoneStayAsTheyAre)
{
    EXPECT_EQ(amountText("12A"), "12A");
    EXPECT_EQ(dateText("269931"), "269931");
    EXPECT_EQ(dateText("26A131"), "26A131");
    EXPECT_EQ(timeText("12345"), "12345");
    EXPECT_EQ(currencyText("0999"), "0999");
    EXPECT_EQ(currencyCode("XYZ"), "XYZ");
    EXPECT_EQ(currencyCode("CNY"), "0156");
    EXPECT_EQ(countryText("0999"), "0999");
    EXPECT_EQ(transactionTypeText("77"), "77");
    EXPECT_EQ(textOfGbk(vorn::sim::Bytes{0xFF, 0xFF}), "FFFF (no GBK text)");
}

TEST(Shown, BytesThatAreNoTextBringNothingToATerminal)
{
    const char* const texts[] = {"\xC3",    "\xE4\xB8", "\xE4\x41\x42", "\xF0\x9F\x98", "\xFF\xFE",
                                 "\x1B[2J", "\xC1\xAC", "\xE0\x9B\x9B", "\xED\xA0\x80", "\xF4\x90\x80\x80"};
    for (const char* const text : texts) {
        const std::string shown = printable(text);
        EXPECT_NO_THROW(nlohmann::json(shown).dump()) << "no UTF-8";
        EXPECT_EQ(shown.find('\x1B'), std::string::npos);
    }
    EXPECT_EQ(printable("\xE4\xB8\xAD\xF0\x9F\x98\x80"), "\xE4\xB8\xAD\xF0\x9F\x98\x80");
}

TEST(Shown, ATrackWithoutASeparatorIsHiddenToItsEnd)
{
    const std::string hex = valueHex(0x57, bytesOf("6229991234566589123456"), false);
    EXPECT_EQ(hex, "622999" + std::string(hex.size() - 6, '*'));
}

TEST(Shown, AnItemAsJsonSaysWhatItIsAndWhetherItFailed)
{
    Item item = remark("the card is gone", true);
    EXPECT_EQ(jsonOf(item)["failed"], true);
    EXPECT_EQ(jsonOf(item)["kind"], "note");
    EXPECT_EQ(jsonOf(object("5A", "Number", "11"))["kind"], "object");
}

// A browser has to hold them all.
TEST(Page, TellsHowManyExchangesItLeftOut)
{
    std::string written;
    Page page("<many>", [&written](const std::string& text) { written += text; });
    Item exchange;
    exchange.kind = ItemKind::Exchange;
    exchange.name = "SELECT <b>";
    for (std::size_t i = 1; i <= Page::kMostExchanges + 3; ++i) {
        exchange.number = i;
        page.add(exchange);
    }
    page.end("\"cut\"");
    EXPECT_NE(written.find("3 more exchanges are not on this page"), std::string::npos);
    EXPECT_NE(written.find("id=\"x5000\""), std::string::npos);
    EXPECT_EQ(written.find("id=\"x5001\""), std::string::npos);
    EXPECT_NE(written.find("&lt;many&gt;"), std::string::npos);
    EXPECT_NE(written.find("&quot;cut&quot;"), std::string::npos);
    EXPECT_EQ(written.find("SELECT <b>"), std::string::npos);
}

} // namespace
