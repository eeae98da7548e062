// SPDX-License-Identifier: Apache-2.0
// What pasted text is taken for, and the words for it.
#include "tools/explain/page.h"
#include "tools/explain/recognise.h"
#include "tools/explain/render.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using vorn::tool::explain;
using vorn::tool::InputKind;
using vorn::tool::recognise;

std::string told(const std::string& text, bool show = false)
{
    const auto explained = explain(recognise(text), text, show);
    std::string words;
    for (const auto& item : explained.items) {
        words += vorn::tool::textOf(item);
    }
    return words + explained.problem;
}

struct KindRow {
    const char* what;
    const char* text;
    InputKind kind;
};

const char* const kArqc =
    "9F2608005570C66AC1C6999F2701809F100807000103A00000019F3704EE68C1559F3602000D950500000008009F1302000C9A032611219C01"
    "009F02060000000012345F2A0201565A0862509907100314245F34010082027C009F1A0201569F03060000000000009F330320A100";

const KindRow kKinds[] = {
    {"status word", "6A82", InputKind::Status},
    {"status word with blanks", " 90 00\n", InputKind::Status},
    {"frame", "02 30303035 3332 3232 3031 3830 3030 3931 03", InputKind::Frame},
    {"a frame's content", "32 26 00 00 B2 01 0C 00", InputKind::ReaderCommand},
    {"command", "00 A4 04 00 07 A0 00 00 03 33 01 01", InputKind::Command},
    {"command, written as C does", "0x00, 0xa4, 0x04, 0x00, 0x02, 0x3f, 0x00", InputKind::Command},
    {"command and response", "00B2011400\n70045F3401019000\n", InputKind::Exchange},
    {"command and response with directions", "> 00B2011400\n< 6A83\n", InputKind::Exchange},
    {"response", "70055F3401019000", InputKind::Objects}, // cut: its template says five bytes and has them
    {"response with its status word", "70045F3401019000", InputKind::Response},
    {"objects", "5f:34:01:01:82:02:7c:00", InputKind::Objects},
    {"list", "9F02069F03069F1A02", InputKind::List},
    {"answer to reset", "3B6800000073C84012009000", InputKind::AnswerToReset},
    {"card record", "A0164111111111111111B000C000", InputKind::Record},
    {"text of an ARQC", kArqc, InputKind::Arqc},
    {"state", "018D0295055A0862509907100314245F34010082027C00", InputKind::State},
    {"log", "IC_GenARQC nPortNo:ttyS1,extendPort:,nBaudRate:9600\r\n", InputKind::Log},
    {"exchanges of a log", "Indata----------------------capdu\n32 26 00 00 84 00 00 08 \n", InputKind::Log},
    {"trace file",
     "----------------------------------------------\r\nIC_GetInfo\r\nActual input is:\r\nttyS1:9600,N,8,1\r\n",
     InputKind::Trace},
    {"words", "what is this", InputKind::Unknown},
    {"half a byte", "5A0", InputKind::Unknown},
    {"nothing", " \n", InputKind::Unknown},
};

TEST(Decode, RecognisesWhatIsPasted)
{
    for (const KindRow& row : kKinds) {
        EXPECT_EQ(recognise(row.text), row.kind) << row.what;
    }
}

struct WordsRow {
    const char* text;
    const char* words; // somewhere in the explanation
};

const WordsRow kWords[] = {
    {"6A82", "file or application not found"},
    {"82027C00", "dynamic data authentication (DDA)"},
    {"82020000", "no bit set"},
    {"95050000000800", "merchant forced the transaction online"},
    {"95058000008000", "transaction exceeds the floor limit"},
    {"9B02F800", "issuer authentication was performed"},
    {"8E0E000003E8000007D00201420544031F00", "X = 1000, Y = 2000"},
    {"8E0C000003E8000007D0420144031F00", "enciphered PIN checked online, else the next one, for unattended cash"},
    {"9F330320A100", "chip with contacts"},
    {"9F3303E0F8C8", "manual key entry"},
    {"9F34031E0300", "signature"},
    {"9F3403420300", "result not known"},
    {"9F3403410302", "successful"},
    {"9F40056000F0A001", "services"},
    {"9F6604F4000000", "quick debit/credit (qPBOC)"},
    {"9F6604B6C04000", "verification on the holder's device"},
    {"9F6C028000", "online PIN required"},
    {"9F6C020080", "verified on the holder's device"},
    {"9F0702FF00", "international services"},
    {"9F0702FFC0", "domestic cashback"},
    {"9F0E050010000000", "service not allowed for this card"},
    {"9F0F05F0782C9800", "selected at random for online processing"},
    {"9F270180", "ARQC"},
    {"9F27014B", "reason: issuer authentication failed"},
    {"9F101307000103A00000010A010000035680CE273CE1", "electronic cash balance 356.80"},
    {"9F100807000103680000019F360200 48", "issuer authentication failed"},
    {"940808010200100103 01", "file 2, records 1 to 3, 1 of them signed"},
    {"910A11223344556677883035", "response code 05"},
    {"DF3105110000000 0", "failed at command 1"},
    {"9F4D020B0A", "file 11, at most 10 records"},
    {"9F360200489F02060000000012505F2A020156", "12.50 CNY (0156)"},
    {"9F02060000000012505F2A020392", "1250 JPY (0392)"},
    {"9A032611219F2103220701", "2026-11-21"},
    {"9A032611219F2103220701", "22:07:01"},
    {"500AD2F8D0D0BFA8", "not read"},
    {"9F4E04C0CFB3C7", "老城"},
    {"02303030353332323230313830303039 3103", "power on: contact slot"},
    {"0230303034333230303 33B3030303903", "3B00"},
    {"3226FF80CA9F3600", "to the card in the field"},
    {"32420460A0A1A2A3A4A5", "authenticate block 4"},
    {"3B6800000073C84012009000", "card capabilities"},
    {"3B6800000073C84012009000", "life cycle and status word"},
    {"00B2011400", "READ RECORD 1 of file 2"},
    {"00B2011400\n6A83", "record not found"},
    {"A000B000C012000000035680", "356.80"},
    {"A000B000H0040048", "72"},
    {"00B2015C00\n260918183042000000008650000000000000015601 56C7E0BACCB3ACCAD0B3C7B1B1B5EA20202020202000 00479000",
     "青禾超市城北店"},
    {"018D0295055A0862509907100314245F34010082027C00", "with contacts"},
    {kArqc, "12.34 CNY (0156)"},
};

TEST(Decode, SaysInWords)
{
    for (const WordsRow& row : kWords) {
        EXPECT_NE(told(row.text).find(row.words), std::string::npos) << row.text << "\n" << told(row.text);
    }
}

// In the answer to reset the bytes behind T=15 are for all protocols, those behind T=1 for that one.
TEST(Decode, InterfaceBytesBelongToTheProtocolBeforeThem)
{
    const std::string clock = told("3B80801F87 1F");
    EXPECT_NE(clock.find("T=15, bytes for all protocols"), std::string::npos) << clock;
    EXPECT_NE(clock.find("clock stop high, class A (5 V), class B (3 V), class C (1.8 V)"), std::string::npos) << clock;
    const std::string block = told("3B808131FE45 8B");
    EXPECT_NE(block.find("T=1, information field size 254"), std::string::npos) << block;
    EXPECT_NE(block.find("T=1, block waiting 4, character waiting 5"), std::string::npos) << block;
}

TEST(Decode, ListsOfTheCardExplainTheDataOfItsCommands)
{
    const std::string words = told("00A4040007A0000003330101\n6F0EA50C9F38099F7A019F02065F2A029000\n"
                                   "80A800000B8309010000000012500156\n800A7C00080102001001030 19000\n");
    EXPECT_NE(words.find("12.50 CNY (0156)"), std::string::npos) << words;
    EXPECT_NE(words.find("file 2, records 1 to 3, 1 of them signed"), std::string::npos) << words;
}

TEST(Decode, KeysOfMemoryCardsAreMasked)
{
    EXPECT_EQ(told("32420460A0A1A2A3A4A5").find("A0A1A2"), std::string::npos);
    EXPECT_NE(told("32420460A0A1A2A3A4A5", true).find("A0A1A2"), std::string::npos);
}

// A card's text is no markup, no command to a terminal, and does not turn a line round.
TEST(Decode, HostileTextIsHarmless)
{
    const std::string label = "50163C7363726970743E1B5B324A22263CE280AE3E414243";
    const std::string words = told(label);
    EXPECT_EQ(words.find('\x1B'), std::string::npos);
    EXPECT_EQ(words.find("\xE2\x80\xAE"), std::string::npos);
    std::string page;
    vorn::tool::Page html("<b>", [&page](const std::string& text) { page += text; });
    for (const auto& item : explain(InputKind::Objects, label, true).items) {
        html.add(item);
    }
    html.end("<i>");
    EXPECT_EQ(page.find("<script>?"), std::string::npos);
    EXPECT_NE(page.find("&lt;script&gt;"), std::string::npos) << page;
    EXPECT_EQ(page.find("<b>"), std::string::npos);
    EXPECT_EQ(page.find("<i>"), std::string::npos);
    EXPECT_EQ(page.find("http://"), std::string::npos);
    EXPECT_EQ(page.find("https://"), std::string::npos);
}

TEST(Decode, EveryCutOfEveryInputEnds)
{
    for (const WordsRow& row : kWords) {
        const std::string text = row.text;
        for (std::size_t size = 0; size <= text.size(); ++size) {
            told(text.substr(0, size));
            told(text.substr(size));
        }
    }
}

} // namespace
