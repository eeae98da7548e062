// SPDX-License-Identifier: Apache-2.0
// The reader's slot commands: what is asked, what comes back, and their log entries byte for byte.
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <functional>
#include <string>

using namespace vorn::test;

namespace {

const std::string kIndata = "Indata----------------------";
const std::string kOutdata = "Outdata----------------------";

// The layout of a hex dump, as the log files have it.
std::string dump(const std::string& hex)
{
    const std::string digits = toHex(fromHex(hex));
    const std::size_t bytes = digits.size() / 2;
    std::string text = bytes > 16 ? "\n" : "";
    for (std::size_t i = 0; i < bytes; ++i) {
        text += digits.substr(2 * i, 2) + " ";
        if (i % 16 == 15) {
            text += "\n";
        }
    }
    return text + "\n";
}

std::string entries(const std::string& marker, const std::string& command, const std::string& payload)
{
    return kIndata + marker + "\n" + dump(command) + kOutdata + marker + "\n" + dump(payload);
}

struct Answered {
    int result = 0;
    int length = -77;
    Bytes payload = Bytes(VORN_PAYLOAD_MAX + 1, 0xEE);

    std::string hex() const
    {
        return length < 0 ? "length " + std::to_string(length)
                          : toHex(Bytes(payload.begin(), payload.begin() + length));
    }
    bool untouched() const { return payload == Bytes(VORN_PAYLOAD_MAX + 1, 0xEE); }
};

class ReaderSlots : public ReaderTest {
protected:
    ReaderSlots() { openLink(); }
    ~ReaderSlots() override { closeLink(); }

    Answered open(int mode)
    {
        Answered answered;
        answered.result = vr_openicc(mode, answered.payload.data(), &answered.length);
        return answered;
    }
};

// ---------------------------------------------------------------- each slot command

struct SlotCommand {
    const char* name;
    const char* command; // as it goes to the reader
    const char* marker;
    int refused; // the result for another status than 00, 02 and 06
    bool returnsPayload;
    std::function<int(unsigned char*, int*)> call;
};

int sendApdu(const std::string& apdu, unsigned char* resp, int* respLen)
{
    const Bytes bytes = fromHex(apdu);
    return icc_sendcommand(bytes.data(), static_cast<int>(bytes.size()), resp, respLen);
}

int sendSamApdu(int slot, const std::string& apdu, unsigned char* resp, int* respLen)
{
    const Bytes bytes = fromHex(apdu);
    return samicc_sendcommand(slot, bytes.data(), static_cast<int>(bytes.size()), resp, respLen);
}

const SlotCommand kSlotCommands[] = {
    {"icc_poweron, contact", "32 22 01 80 00", "icc_poweron", -25, true,
     [](unsigned char* out, int* n) { return icc_poweron(0x00, out, n); }},
    {"icc_poweron, PSAM 1", "32 22 01 80 10", "icc_poweron", -25, true,
     [](unsigned char* out, int* n) { return icc_poweron(0x10, out, n); }},
    {"icc_poweron, PSAM 4", "32 22 01 80 13", "icc_poweron", -25, true,
     [](unsigned char* out, int* n) { return icc_poweron(0x13, out, n); }},
    {"picc_Active", "32 24 01 80", "picc_Active", -25, true,
     [](unsigned char* out, int* n) { return picc_Active(out, n); }},
    {"icc_poweroff, contact", "32 23 00", "icc_poweroff", -10, false,
     [](unsigned char*, int*) { return icc_poweroff(0x00); }},
    {"icc_poweroff, PSAM 3", "32 23 12", "icc_poweroff", -10, false,
     [](unsigned char*, int*) { return icc_poweroff(0x12); }},
    {"picc_Deactive", "32 25 00 00", "picc_Deactive", -10, false, [](unsigned char*, int*) { return picc_Deactive(); }},
    {"icc_sendcommand", "32 26 00 00 84 00 00 08", "capdu", -10, true,
     [](unsigned char* out, int* n) { return sendApdu("00 84 00 00 08", out, n); }},
    {"samicc_sendcommand, PSAM 2", "32 26 11 80 CA 00 00 09", "samicc_capdu", -10, true,
     [](unsigned char* out, int* n) { return sendSamApdu(0x11, "80 CA 00 00 09", out, n); }},
};

class EachSlotCommand : public ReaderSlots, public ::testing::WithParamInterface<SlotCommand> {
protected:
    EachSlotCommand() { m_VrICType = 1; }

    Answered call()
    {
        forgetLogs();
        Answered answered;
        answered.result = GetParam().call(answered.payload.data(), &answered.length);
        EXPECT_EQ(answered.payload.back(), 0xEE) << "a byte was written behind the documented capacity";
        return answered;
    }
};

TEST_P(EachSlotCommand, HandsThePayloadBackAndLogsBothWays)
{
    for (const char* payload : {"", "3B", "6A82", "3B6800000073C84012009000", "000102030405060708090A0B0C0D0E0F",
                                "000102030405060708090A0B0C0D0E0F10",
                                "FFEEDDCCBBAA99887766554433221100"
                                "FFEEDDCCBBAA99887766554433221100"}) {
        SCOPED_TRACE(payload);
        reader.command(GetParam().command, payload);
        const Answered answered = call();
        EXPECT_EQ(answered.result, 0);
        EXPECT_EQ(answered.hex(), GetParam().returnsPayload ? payload : "length -77");
        EXPECT_EQ(serviceLog(), entries(GetParam().marker, GetParam().command, payload));
    }
    EXPECT_EQ(traceLog(), "");
    EXPECT_EQ(m_VrICType, 1);
}

TEST_P(EachSlotCommand, TranslatesEveryStatusAndLogsItsReply)
{
    for (int status = 1; status <= 0xFF; ++status) {
        SCOPED_TRACE(status);
        reader.command(GetParam().command, "", static_cast<std::uint8_t>(status));
        const Answered answered = call();
        EXPECT_EQ(answered.result, status == 0x02 || status == 0x06 ? -9 : GetParam().refused);
        EXPECT_EQ(answered.length, GetParam().returnsPayload ? 0 : -77);
        EXPECT_TRUE(answered.untouched());
        EXPECT_EQ(serviceLog(), entries(GetParam().marker, GetParam().command, ""));
    }
}

TEST_P(EachSlotCommand, TellsTheLengthOfAnErrorReplyAndDumpsItsPayload)
{
    for (const int status : {0x02, 0x06, 0x0A}) {
        SCOPED_TRACE(status);
        reader.command(GetParam().command, "DE AD BE", static_cast<std::uint8_t>(status));
        const Answered answered = call();
        EXPECT_EQ(answered.result, status == 0x0A ? GetParam().refused : -9);
        EXPECT_EQ(answered.length, GetParam().returnsPayload ? 3 : -77);
        EXPECT_TRUE(answered.untouched());
        EXPECT_EQ(serviceLog(), entries(GetParam().marker, GetParam().command, "DE AD BE"));
    }
}

TEST_P(EachSlotCommand, LogsAnEmptyDumpWhenNoReplyCame)
{
    reader.silent(GetParam().command);
    const Answered answered = call();
    EXPECT_EQ(answered.result, -11);
    EXPECT_EQ(answered.length, -77);
    EXPECT_TRUE(answered.untouched());
    EXPECT_EQ(serviceLog(), entries(GetParam().marker, GetParam().command, ""));
}

TEST_P(EachSlotCommand, AcceptsAReplyWithAWrongCheckByte)
{
    Bytes reply = replyFrame(0x00, fromHex("3B00"));
    reply[reply.size() - 2] ^= 0x01;
    reader.raw(GetParam().command, reply);
    EXPECT_EQ(call().result, 0);
}

TEST_P(EachSlotCommand, HandsBackTheLongestPayloadThatAReplyCanCarry)
{
    Bytes longest;
    for (int i = 0; i < VORN_PAYLOAD_MAX; ++i) {
        longest.push_back(static_cast<std::uint8_t>(i * 3));
    }
    reader.command(GetParam().command, toHex(longest));
    const Answered answered = call();
    EXPECT_EQ(answered.result, 0);
    if (GetParam().returnsPayload) {
        EXPECT_EQ(answered.hex(), toHex(longest));
    }
    EXPECT_EQ(serviceLog(), entries(GetParam().marker, GetParam().command, toHex(longest)));
}

INSTANTIATE_TEST_SUITE_P(Commands, EachSlotCommand, ::testing::ValuesIn(kSlotCommands), [](const auto& row) {
    std::string name;
    for (const char c : std::string(row.param.name)) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
            name += c;
        }
    }
    return name;
});

// ---------------------------------------------------------------- the log, spelt out

TEST_F(ReaderSlots, APowerOnsLogEntriesSpeltOut)
{
    reader.command("32 22 01 80 00", "3B 68 00 00 80 66 A2 06 02 01 32 0E");
    EXPECT_EQ(open(1).result, 0);
    EXPECT_EQ(serviceLog(), "Indata----------------------icc_poweron\n"
                            "32 22 01 80 00 \n"
                            "Outdata----------------------icc_poweron\n"
                            "3B 68 00 00 80 66 A2 06 02 01 32 0E \n");
}

TEST_F(ReaderSlots, ADumpOfSixteenBytesEndsWithTwoLineFeeds)
{
    Answered answered;
    m_VrICType = 1;
    reader.command("32 26 00 00A4040008A000000333010102", "9000");
    EXPECT_EQ(sendApdu("00A4040008A000000333010102", answered.payload.data(), &answered.length), 0);
    EXPECT_EQ(serviceLog(), "Indata----------------------capdu\n"
                            "32 26 00 00 A4 04 00 08 A0 00 00 03 33 01 01 02 \n"
                            "\n"
                            "Outdata----------------------capdu\n"
                            "90 00 \n");
}

TEST_F(ReaderSlots, ADumpOfMoreThanSixteenBytesStandsOnLinesOfItsOwn)
{
    Answered answered;
    reader.command("32 26 10 80 50 00 00 0B 0102030405060708090A0B", "11 22 33 44 55 66 77 88 99 AA BB CC DD EE 90 00");
    EXPECT_EQ(sendSamApdu(0x10, "805000000B0102030405060708090A0B", answered.payload.data(), &answered.length), 0);
    EXPECT_EQ(serviceLog(), "Indata----------------------samicc_capdu\n"
                            "\n"
                            "32 26 10 80 50 00 00 0B 01 02 03 04 05 06 07 08 \n"
                            "09 0A 0B \n"
                            "Outdata----------------------samicc_capdu\n"
                            "11 22 33 44 55 66 77 88 99 AA BB CC DD EE 90 00 \n"
                            "\n");
}

TEST_F(ReaderSlots, TheEntriesOfOneCommandFollowThoseOfTheOther)
{
    reader.command("32 22 01 80 00", "", 0x06).command("32 24 01 80", "50 01").command("32 25 00 00");
    EXPECT_EQ(open(3).result, 0);
    EXPECT_EQ(vr_closeicc(), 0);
    EXPECT_EQ(serviceLog(), entries("icc_poweron", "3222018000", "") + entries("picc_Active", "32240180", "5001") +
                                entries("picc_Deactive", "32250000", ""));
}

TEST_F(ReaderSlots, ALogFileThatCannotBeWrittenDisturbsNothing)
{
    ASSERT_EQ(mkdir(VORN_SERVICE_FILE, 0700), 0); // a directory stands where the file would be
    reader.command("32 22 01 80 00", "3B00");
    const Answered answered = open(1);
    EXPECT_EQ(answered.result, 0);
    EXPECT_EQ(answered.hex(), "3B00");
    rmdir(VORN_SERVICE_FILE);
}

// ---------------------------------------------------------------- APDUs

TEST_F(ReaderSlots, TheSlotByteOfAUserCardsApduFollowsTheInterface)
{
    const struct {
        unsigned char interface;
        const char* slot;
    } rows[] = {{0, "FF"}, {1, "00"}, {2, "FF"}, {3, "FF"}, {0x81, "FF"}, {0xFF, "FF"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(int{row.interface});
        m_VrICType = row.interface;
        reader.command(std::string("32 26") + row.slot + "00 B2 01 0C 00", "70 00 90 00");
        Answered answered;
        EXPECT_EQ(sendApdu("00B2010C00", answered.payload.data(), &answered.length), 0);
        EXPECT_EQ(answered.hex(), "70009000");
        EXPECT_EQ(m_VrICType, row.interface);
    }
}

TEST_F(ReaderSlots, AStatusWordIsNotLookedAt)
{
    m_VrICType = 1;
    for (const char* response : {"6A82", "6110", "6C20", "6283", "00", ""}) {
        SCOPED_TRACE(response);
        Answered answered;
        reader.command("32 26 00 00C0000000", response);
        EXPECT_EQ(sendApdu("00C0000000", answered.payload.data(), &answered.length), 0);
        EXPECT_EQ(answered.hex(), response);
    }
}

TEST_F(ReaderSlots, EachPsamHasItsSlotByte)
{
    for (const int slot : {0x10, 0x11, 0x12, 0x13}) {
        Answered answered;
        m_VrICType = 1;
        reader.command("32 26" + toHex({static_cast<std::uint8_t>(slot)}) + "00A40000023F00", "9000");
        EXPECT_EQ(sendSamApdu(slot, "00A40000023F00", answered.payload.data(), &answered.length), 0);
    }
}

TEST_F(ReaderSlots, AnApduOfNoBytesIsPassedOn)
{
    Answered answered;
    reader.command("32 26 FF", "6700").command("32 26 12", "6700");
    EXPECT_EQ(icc_sendcommand(nullptr, 0, answered.payload.data(), &answered.length), 0);
    EXPECT_EQ(samicc_sendcommand(0x12, nullptr, 0, answered.payload.data(), &answered.length), 0);
    EXPECT_EQ(answered.hex(), "6700");
}

TEST_F(ReaderSlots, TheLongestApduFillsTheFrame)
{
    const std::string apdu = toHex(Bytes(505, 0x5A));
    Answered answered;
    reader.command("32 26 FF" + apdu, "9000").command("32 26 13" + apdu, "6985");
    EXPECT_EQ(sendApdu(apdu, answered.payload.data(), &answered.length), 0);
    EXPECT_EQ(answered.hex(), "9000");
    EXPECT_EQ(sendSamApdu(0x13, apdu, answered.payload.data(), &answered.length), 0);
    EXPECT_EQ(answered.hex(), "6985");
}

TEST_F(ReaderSlots, AnApduThatDoesNotFitIsNotSent)
{
    for (const std::size_t size : {506u, 508u, 70000u}) {
        const std::string apdu = toHex(Bytes(size, 0x5A));
        Answered answered;
        EXPECT_EQ(sendApdu(apdu, answered.payload.data(), &answered.length), -1);
        EXPECT_EQ(sendSamApdu(0x10, apdu, answered.payload.data(), &answered.length), -1);
        EXPECT_EQ(answered.length, -77);
    }
    const std::uint8_t byte = 0;
    Answered answered;
    EXPECT_EQ(icc_sendcommand(&byte, -5, answered.payload.data(), &answered.length), -1);
}

// ---------------------------------------------------------------- powering the user's card

struct OpenRow {
    const char* name;
    int mode;
    unsigned char before;
    std::function<void(ScriptedReader&)> script;
    int result;
    unsigned char after;
    const char* atr; // nullptr: none
};

const char kContact[] = "32 22 01 80 00";
const char kField[] = "32 24 01 80";

const OpenRow kOpenRows[] = {
    {"contact answers", 1, 0, [](auto& r) { r.command(kContact, "3B01"); }, 0, 1, "3B01"},
    {"contact empty 02", 1, 2, [](auto& r) { r.command(kContact, "", 0x02); }, -9, 1, nullptr},
    {"contact empty 06", 1, 0, [](auto& r) { r.command(kContact, "", 0x06); }, -9, 1, nullptr},
    {"contact refused", 1, 2, [](auto& r) { r.command(kContact, "", 0x01); }, -25, 1, nullptr},
    {"contact silent", 1, 0, [](auto& r) { r.silent(kContact); }, -11, 1, nullptr},
    {"field answers", 2, 1, [](auto& r) { r.command(kField, "2004"); }, 0, 2, "2004"},
    {"field empty 02", 2, 1, [](auto& r) { r.command(kField, "", 0x02); }, -9, 2, nullptr},
    {"field empty 06", 2, 0, [](auto& r) { r.command(kField, "", 0x06); }, -9, 2, nullptr},
    {"field refused", 2, 1, [](auto& r) { r.command(kField, "", 0xFF); }, -25, 2, nullptr},
    {"field silent", 2, 1, [](auto& r) { r.silent(kField); }, -11, 2, nullptr},
    {"either: contact answers", 3, 2, [](auto& r) { r.command(kContact, "3B6E"); }, 0, 1, "3B6E"},
    {"either: empty 02, field answers", 3, 1, [](auto& r) { r.command(kContact, "", 0x02).command(kField, "3B8F"); }, 0,
     2, "3B8F"},
    {"either: empty 06, field answers", 3, 0, [](auto& r) { r.command(kContact, "", 0x06).command(kField, "3B8F"); }, 0,
     2, "3B8F"},
    {"either: both empty", 3, 1, [](auto& r) { r.command(kContact, "", 0x02).command(kField, "", 0x06); }, -9, 2,
     nullptr},
    {"either: empty, field refused", 3, 0, [](auto& r) { r.command(kContact, "", 0x06).command(kField, "", 0x03); },
     -25, 2, nullptr},
    {"either: empty, field silent", 3, 1, [](auto& r) { r.command(kContact, "", 0x02).silent(kField); }, -11, 2,
     nullptr},
    {"either: contact refused, from 0", 3, 0, [](auto& r) { r.command(kContact, "", 0x05); }, -25, 0, nullptr},
    {"either: contact refused, from 1", 3, 1, [](auto& r) { r.command(kContact, "", 0x07); }, -25, 1, nullptr},
    {"either: contact refused, from 2", 3, 2, [](auto& r) { r.command(kContact, "", 0x0A); }, -25, 2, nullptr},
    {"either: contact silent, from 0", 3, 0, [](auto& r) { r.silent(kContact); }, -11, 0, nullptr},
    {"either: contact silent, from 2", 3, 2, [](auto& r) { r.silent(kContact); }, -11, 2, nullptr},
};

TEST_F(ReaderSlots, TheUsersCardIsPoweredAsTheModeSays)
{
    for (const OpenRow& row : kOpenRows) {
        SCOPED_TRACE(row.name);
        m_VrICType = row.before;
        row.script(reader);
        const Answered answered = open(row.mode);
        EXPECT_EQ(answered.result, row.result);
        EXPECT_EQ(m_VrICType, row.after);
        if (row.atr != nullptr) {
            EXPECT_EQ(answered.hex(), row.atr);
        } else {
            EXPECT_TRUE(answered.untouched());
        }
        EXPECT_TRUE(reader.done());
        reader.clear();
    }
}

TEST_F(ReaderSlots, AnotherModeIsRefusedAndNothingIsAsked)
{
    for (const int mode : {0, 4, -1, 255, 257}) {
        SCOPED_TRACE(mode);
        m_VrICType = 1;
        line.forget();
        const Answered answered = open(mode);
        EXPECT_EQ(answered.result, -1);
        EXPECT_EQ(answered.length, -77);
        EXPECT_EQ(m_VrICType, 1);
        line.serve();
        EXPECT_TRUE(line.sent().empty());
    }
    EXPECT_EQ(serviceLog(), "");
}

// ---------------------------------------------------------------- powering it down

TEST_F(ReaderSlots, TheInterfaceDecidesHowTheCardIsPoweredDown)
{
    const struct {
        unsigned char interface;
        const char* command;
    } rows[] = {{0, "32 25 00 00"}, {1, "32 23 00"}, {2, "32 25 00 00"}, {9, "32 25 00 00"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(int{row.interface});
        m_VrICType = row.interface;
        reader.command(row.command).command(row.command, "", 0x06).command(row.command, "", 0x02);
        reader.command(row.command, "", 0x11).silent(row.command);
        EXPECT_EQ(vr_closeicc(), 0);
        EXPECT_EQ(vr_closeicc(), -9);
        EXPECT_EQ(vr_closeicc(), -9);
        EXPECT_EQ(vr_closeicc(), -10);
        EXPECT_EQ(vr_closeicc(), -11);
        EXPECT_EQ(m_VrICType, row.interface);
    }
}

} // namespace
