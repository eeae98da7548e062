// SPDX-License-Identifier: Apache-2.0
// The data of the transaction text as the card gets them: every key absent, short, exact, long and odd. The card asks
// for every object in its PDOL and again in its CDOL1, and the ARQC text repeats some of them.
#include "support/terminal_rows.h"

using namespace vorn::test;

namespace {

class ArqcTerminalData : public TransactionTest, public ::testing::WithParamInterface<Row> {
protected:
    void runWith(const std::string& text, const DataObjects& asked, const DataObjects& written)
    {
        const std::string list = dolOf(terminalObjects());
        const std::string values = valuesOf(asked);
        expect(Exchanges{card.powerOn(), card.finalSelect(list), card.processing(values, "80067C0010010100"),
                         card.record(1, tlv("8C", list) + tlv("8D", "8A02") + tlv("5A", kPan) + tlv("5F34", "02")),
                         card.generate("80", values, IssuerText().response()), card.lastOnline()});
        EXPECT_EQ(first(text, kAid.c_str()), 0);
        EXPECT_EQ(arqc, IssuerText().take(written).arqc());
        EXPECT_EQ(length, static_cast<int>(arqc.size()));
        expectClosed();
    }
};

class ArqcTerminalTable : public TransactionTest {};

// Values that are too long for the five fields that are not cut: they start before their field.
const Row kOverlong[] = {
    {"P over its length byte",
     "P01407000000000123Q012000000000456",
     {{"9F02", "00000001239F"}, {"9F03", "000000000000"}},
     {{"9F02", "000000000123"}}},
    {"P over the half of its tag",
     "P0160307000000000123",
     {{"9F02", "000000000000"}, {"9F03", "00000001239F"}},
     {{"9F03", "000000000123"}}},
    {"P over its tag", "P0189F0306000000000777Q012000000000055", {{"9F03", "000000000777"}}},
    {"P of ten bytes", "P020AA9F0306000000000777", {{"9F03", "000000000777"}}},
    {"P of 200 bytes", "P400" + repeated("AA", 191) + "9F0306000000000777", {{"9F03", "000000000777"}}},
    {"P of 255 bytes", "P510" + repeated("5A", 246) + "9F0306000000000777", {{"9F03", "000000000777"}}},

    {"Q over its tag",
     "P012000000000031Q0189F1A020840C102AABB",
     {{"9F02", "000000000031"}, {"9F03", "000000000000"}, {"9F1A", "0840"}}},
    {"Q over the amount",
     "P012000000000999Q0300000000003219F0306000000000654",
     {{"9F02", "000000000321"}, {"9F03", "000000000654"}}},
    {"Q over the low half of the amount",
     "P012000000000999Q0247654329F0306000000000654",
     {{"9F02", "000000765432"}, {"9F03", "000000000654"}}},
    {"Q to the first byte",
     "P012000000000999Q0369F03060000000000119F0206000000000022",
     {{"9F02", "000000000022"}, {"9F03", "000000000011"}}},
    {"Q of twenty bytes",
     "P012000000000999Q040AABB9F02060000000003219F0306000000000654",
     {{"9F02", "000000000321"}, {"9F03", "000000000654"}}},
    {"Q of 255 bytes",
     "Q510" + repeated("C1", 237) + "9F02060000000003219F0306000000000654",
     {{"9F02", "000000000321"}, {"9F03", "000000000654"}}},

    {"J over its own header", "J0109F1A020344", {{"9F1A", "0344"}}},
    {"J over the other amount",
     "Q012000000000999J0220000000008889F1A020344",
     {{"9F03", "000000000888"}, {"9F1A", "0344"}}},
    {"J with another tag", "J0105F2A020344R0040978", {{"9F1A", "0000"}, {"5F2A", "0344"}}, {{"9F1A", "0156"}}},
    {"J of thirty bytes",
     "J060" + repeated("EE", 7) + "9F02060000000000019F03060000000000029F1A020344",
     {{"9F02", "000000000001"}, {"9F03", "000000000002"}, {"9F1A", "0344"}}},

    {"L over its own header", "L01495058000000000", {{"95", "8000000000"}}},
    {"L over half of the country", "L0164495050102030405", {{"9F1A", "0144"}, {"95", "0102030405"}}},
    {"L over the country", "J0040344L018084095058000000000", {{"9F1A", "0840"}, {"95", "8000000000"}}},
    {"L of thirty one bytes",
     "L062EE9F02060000000000019F03060000000000029F1A02034495058000000001",
     {{"9F02", "000000000001"}, {"9F03", "000000000002"}, {"9F1A", "0344"}, {"95", "8000000001"}}},

    {"R over its own header", "R0105F2A020978", {{"5F2A", "0978"}}},
    {"R over the end of the verification results",
     "L0108000048000R01411225F2A020978",
     {{"95", "8000041122"}, {"5F2A", "0978"}}},
    // What the length byte 03 eats is the header of the type: the walk loses its step, and no later object is found.
    {"R over its length byte",
     "R006030978",
     {{"5F2A", "789C"},
      {"9C", "00"},
      {"9F37", "00000000"},
      {"9F66", "00000000"},
      {"9F7A", "00"},
      {"9F7B", "000000000000"},
      {"9F4E", std::string(40, '0')},
      {"DF69", "00"}},
     {{"5F2A", "0978"}, {"9F37", "12345678"}}},
    // A value that makes an object of what follows it leads the walk to the date, and to the time.
    {"R that leads to the date",
     "R0100506EEEEEET00221S006260319U006101112",
     {{"5F2A", "0000"}, {"9C", "00"}, {"9A", "260319"}, {"9F21", "101112"}},
     {{"5F2A", "0156"}}},
    {"R that leads to the time",
     "R010050BEEEEEET00221S006260319U006101112",
     {{"5F2A", "0000"}, {"9C", "00"}, {"9A", "000000"}, {"9F21", "101112"}},
     {{"5F2A", "0156"}}},
    {"R of 200 bytes",
     "R400" + repeated("EE", 165) + "9F02060000000000019F03060000000000029F1A0203449505800000000" + "15F2A020978",
     {{"9F02", "000000000001"}, {"9F03", "000000000002"}, {"9F1A", "0344"}, {"95", "8000000001"}, {"5F2A", "0978"}}},
};

} // namespace

TEST_P(ArqcTerminalData, ReachTheCardAndTheIssuer)
{
    const Row& row = GetParam();
    const DataObjects objects = changed(terminalObjects(), row.asked);
    runWith(hasNumber(row.text) ? row.text : kNumberText + row.text, objects, changed(objects, row.written));
}

INSTANTIATE_TEST_SUITE_P(Within, ArqcTerminalData, ::testing::ValuesIn(kWithin), rowName<Row>);
INSTANTIATE_TEST_SUITE_P(Overlong, ArqcTerminalData, ::testing::ValuesIn(kOverlong), rowName<Row>);

// An amount over its own tag hides the table up to the merchant name's last two bytes, and these make an object of
// the five that follow: the last item, and the zero behind it, which counts. The name's other bytes lead behind the
// table, so that a walk over an object more or fewer finds nothing.
TEST_F(ArqcTerminalTable, EndsWithAZeroThatCounts)
{
    const std::string given = kNumberText + "P0185158" + repeated("EE", 7) + "V040" + repeated("017F", 9) + "9A05";
    const std::string list = "9A05";
    expect({card.powerOn(), card.finalSelect(list), card.processing("DF69010100", "80067C0010010100"),
            card.record(1, tlv("8C", list) + tlv("8D", "8A02") + tlv("5A", kPan) + tlv("5F34", "02")),
            card.generate("80", "DF69010100", IssuerText().response()), card.lastOnline()});
    EXPECT_EQ(first(given, kAid.c_str()), 0);
    // The date is cut to its first three bytes; the others are what stands in for lost values.
    IssuerText text;
    text.date = "DF6901";
    text.type = "00";
    text.number = "12345678";
    EXPECT_EQ(arqc, text.arqc());
    expectClosed();
}

// The walk is led into the merchant name, where objects stand that a terminal has not of its own: the capabilities, and
// a date and capabilities shorter than their items, which stand at the items' ends.
TEST_F(ArqcTerminalTable, GivesTheItemsThatATextHidesInIt)
{
    const struct {
        std::string name, date, capabilities;
    } table[] = {
        {"9F3303E0F8C8" + std::string("050C") + repeated("00", 12), "000000", "E0F8C8"},
        {"9F3302E0F89A0123" + std::string("050A") + repeated("00", 10), "000023", "00E0F8"},
    };
    for (const auto& row : table) {
        expect({card.powerOn(), card.finalSelect(), card.processing("", "80067C0010010100"),
                card.record(1, tlv("8C", "9C01") + tlv("8D", "8A02") + tlv("5A", kPan) + tlv("5F34", "02")),
                card.generate("80", "00", IssuerText().response()), card.lastOnline()});
        EXPECT_EQ(first(kNumberText + "R0100528EEEEEEV040" + row.name, kAid.c_str()), 0);
        IssuerText text;
        text.date = row.date;
        text.type = "00";
        text.number = "12345678";
        std::string expected = text.arqc();
        EXPECT_EQ(arqc, expected.replace(expected.size() - 6, 6, row.capabilities));
    }
}
