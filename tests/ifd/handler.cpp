// SPDX-License-Identifier: Apache-2.0
// The built driver, called as the PC/SC daemon calls it.
#include "support/scripted_reader.h"

#pragma GCC visibility push(default)
extern "C" {
#include <ifdhandler.h>
#include <reader.h>
}
#pragma GCC visibility pop

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using namespace vorn::test;

namespace {

std::string& daemonLog()
{
    static std::string text;
    return text;
}

constexpr DWORD kReader = 0x30000;
constexpr DWORD kContact = kReader, kField = kReader + 1;

struct Answered {
    RESPONSECODE code = -1;
    DWORD length = 0;
    Bytes bytes;
    bool untouched = false;

    std::string hex() const { return toHex(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length))); }
};

// Calls with a buffer of just this room, and a guard behind it.
template <class Call>
Answered into(std::size_t room, Call call)
{
    constexpr std::uint8_t kGuard = 0xEE;
    Answered answered;
    answered.bytes.assign(room + 16, kGuard);
    answered.length = room;
    answered.code = call(answered.bytes.data(), &answered.length);
    for (std::size_t i = room; i < answered.bytes.size(); ++i) {
        EXPECT_EQ(answered.bytes[i], kGuard) << "a byte behind the room of " << room;
    }
    answered.untouched = answered.bytes == Bytes(room + 16, kGuard);
    EXPECT_LE(answered.length, room);
    return answered;
}

Answered capability(DWORD lun, DWORD tag, std::size_t room = 64)
{
    return into(room, [&](UCHAR* bytes, DWORD* length) { return IFDHGetCapabilities(lun, tag, length, bytes); });
}

Answered power(DWORD lun, DWORD action)
{
    return into(MAX_ATR_SIZE, [&](UCHAR* bytes, DWORD* length) { return IFDHPowerICC(lun, action, bytes, length); });
}

Answered transmit(DWORD lun, const std::string& apdu, std::size_t room = MAX_BUFFER_SIZE)
{
    Bytes command = fromHex(apdu);
    SCARD_IO_HEADER send{};
    SCARD_IO_HEADER received{};
    send.Protocol = 1;
    const Answered answered = into(room, [&](UCHAR* bytes, DWORD* length) {
        return IFDHTransmitToICC(lun, send, command.data(), command.size(), bytes, length, &received);
    });
    EXPECT_EQ(received.Protocol, 1U);
    return answered;
}

Answered control(DWORD lun, DWORD code, std::size_t room = 64)
{
    return into(room,
                [&](UCHAR* bytes, DWORD* length) { return IFDHControl(lun, code, nullptr, 0, bytes, room, length); });
}

RESPONSECODE protocol(DWORD lun, DWORD wanted, UCHAR flags = 0)
{
    return IFDHSetProtocolParameters(lun, wanted, flags, 0, 0, 0);
}

class DriverTest : public ReaderTest {
protected:
    DriverTest() { daemonLog().clear(); }
    ~DriverTest() override
    {
        for (DWORD lun = kReader; lun < kReader + 6; ++lun) {
            IFDHCloseChannel(lun);
        }
        EXPECT_TRUE(linkClosed());
        EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::current_path())) << "the driver wrote a file";
    }

    RESPONSECODE create(DWORD lun, const std::string& tail = "")
    {
        std::string name = "/dev/" + line.port() + tail;
        return IFDHCreateChannelByName(lun, name.data());
    }
    void createAll()
    {
        for (DWORD lun = kReader; lun < kReader + 6; ++lun) {
            ASSERT_EQ(create(lun), IFD_SUCCESS);
        }
    }
    void powerContact(const std::string& atr)
    {
        createAll();
        reader.command("32 23 00", "", 0x02).command("32 22 01 80 00", atr);
        ASSERT_EQ(power(kContact, IFD_POWER_UP).hex(), toHex(fromHex(atr)));
    }
};

const std::string kT0Atr = "3B 02 14 50";
const std::string kT1Atr = "3B 81 01 AA 2A";

std::vector<std::string> linesOf(const std::string& command)
{
    std::vector<std::string> lines;
    FILE* const pipe = popen(command.c_str(), "r");
    char line[512];
    while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr) {
        lines.emplace_back(line);
    }
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0) << command;
    return lines;
}

} // namespace

// The daemon's log, which the driver finds by this name.
extern "C" __attribute__((visibility("default"), format(printf, 2, 3))) void log_msg(const int, const char* format,
                                                                                     ...);
extern "C" void log_msg(const int, const char* format, ...)
{
    char text[512];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    daemonLog() += std::string(text) + "\n";
}

// ---------------------------------------------------------------- the built file

TEST(BuiltDriver, ExportsWhatTheDaemonCallsAndNothingElse)
{
    std::set<std::string> names;
    for (const std::string& symbol : linesOf(VORN_NM " -D --defined-only " VORN_DRIVER)) {
        const std::string name = symbol.substr(symbol.rfind(' ') + 1);
        if (name.rfind("__odr_asan", 0) != 0) {
            names.insert(name.substr(0, name.find('\n')));
        }
    }
    EXPECT_EQ(names, (std::set<std::string>{"IFDHCreateChannel", "IFDHCreateChannelByName", "IFDHCloseChannel",
                                            "IFDHGetCapabilities", "IFDHSetCapabilities", "IFDHSetProtocolParameters",
                                            "IFDHPowerICC", "IFDHTransmitToICC", "IFDHControl", "IFDHICCPresence"}));
}

TEST(BuiltDriver, NeedsNothingOfTheCxxRuntime)
{
    int needed = 0;
    for (const std::string& entry : linesOf("LC_ALL=C " VORN_READELF " -Wd " VORN_DRIVER)) {
        needed += entry.find("(NEEDED)") != std::string::npos ? 1 : 0;
        EXPECT_EQ(entry.find("libstdc++"), std::string::npos);
    }
    EXPECT_GE(needed, 2);
}

// ---------------------------------------------------------------- channels

TEST_F(DriverTest, AWholeReaderHasSixSlots)
{
    createAll();
    for (DWORD lun = kReader; lun < kReader + 6; ++lun) {
        EXPECT_EQ(capability(lun, TAG_IFD_SLOTS_NUMBER, 1).hex(), "06");
    }
    EXPECT_EQ(create(kReader + 6), IFD_NO_SUCH_DEVICE);
}

TEST_F(DriverTest, APlaceMayBeAReaderOfItsOwn)
{
    constexpr DWORD kFirst = 0x10000, kSecond = 0x20000;
    ASSERT_EQ(create(kFirst, ":psam4"), IFD_SUCCESS);
    ASSERT_EQ(create(kSecond, ":contactless"), IFD_SUCCESS);
    EXPECT_EQ(capability(kFirst, TAG_IFD_SLOTS_NUMBER, 1).hex(), "01");
    EXPECT_STREQ(reinterpret_cast<const char*>(capability(kFirst, SCARD_ATTR_VENDOR_IFD_TYPE).bytes.data()),
                 "DK7710 PSAM 4");
    reader.command("32 23 13", "", 0x02).command("32 22 01 80 13", kT0Atr);
    EXPECT_EQ(power(kFirst, IFD_POWER_UP).code, IFD_SUCCESS);
    reader.command("32 25 00 00").command("32 24 01 80", "05 78 33 88 02");
    EXPECT_EQ(power(kSecond, IFD_POWER_UP).hex(), "3B80800101");
    EXPECT_EQ(create(kFirst + 1, ":psam4"), IFD_NO_SUCH_DEVICE);   // it has one slot
    EXPECT_EQ(create(kReader, ":psam4"), IFD_COMMUNICATION_ERROR); // named twice
    EXPECT_EQ(create(kReader, ":magnetic"), IFD_NO_SUCH_DEVICE);   // no such place
    reader.command("32 23 13");
    EXPECT_EQ(IFDHCloseChannel(kFirst), IFD_SUCCESS);
    EXPECT_FALSE(linkClosed());
    reader.command("32 25 00 00");
    EXPECT_EQ(IFDHCloseChannel(kSecond), IFD_SUCCESS);
    EXPECT_TRUE(linkClosed());
}

TEST_F(DriverTest, ASecondReaderIsRefusedAndTheFirstGoesOn)
{
    createAll();
    char other[] = "/dev/ttyS63";
    EXPECT_EQ(IFDHCreateChannelByName(0x40000, other), IFD_COMMUNICATION_ERROR);
    EXPECT_NE(daemonLog().find("works one reader"), std::string::npos) << daemonLog();
    EXPECT_EQ(IFDHICCPresence(0x40000), IFD_NO_SUCH_DEVICE);
    EXPECT_EQ(IFDHCloseChannel(0x40000), IFD_NO_SUCH_DEVICE);
    reader.command("32 23 00", "", 0x02).command("32 22 01 80 00", "", 0x02);
    EXPECT_EQ(IFDHICCPresence(kContact), IFD_ICC_NOT_PRESENT);
}

TEST_F(DriverTest, AReaderWithoutANameIsRefused)
{
    EXPECT_EQ(IFDHCreateChannel(kReader, 1), IFD_NO_SUCH_DEVICE);
    EXPECT_EQ(IFDHCreateChannelByName(kReader, nullptr), IFD_NO_SUCH_DEVICE);
    EXPECT_FALSE(daemonLog().empty());
}

TEST_F(DriverTest, NothingIsThereBehindANumberThatIsNotOpen)
{
    for (const DWORD lun : {DWORD{0}, kReader, ~DWORD{0}}) {
        EXPECT_EQ(IFDHICCPresence(lun), IFD_NO_SUCH_DEVICE);
        EXPECT_EQ(IFDHCloseChannel(lun), IFD_NO_SUCH_DEVICE);
        EXPECT_EQ(power(lun, IFD_POWER_UP).code, IFD_NO_SUCH_DEVICE);
        EXPECT_EQ(transmit(lun, "00B0000000").code, IFD_NO_SUCH_DEVICE);
        EXPECT_EQ(transmit(lun, "00B0000000").length, 0U);
        EXPECT_EQ(capability(lun, TAG_IFD_SLOTS_NUMBER).code, IFD_NO_SUCH_DEVICE);
        EXPECT_EQ(control(lun, CM_IOCTL_GET_FEATURE_REQUEST).code, IFD_NO_SUCH_DEVICE);
        EXPECT_EQ(protocol(lun, SCARD_PROTOCOL_T0), IFD_NO_SUCH_DEVICE);
    }
}

TEST_F(DriverTest, AReaderIsPluggedInAgain)
{
    for (int i = 0; i < 3; ++i) {
        powerContact(kT0Atr);
        reader.command("32 23 00");
        for (DWORD lun = kReader; lun < kReader + 6; ++lun) {
            EXPECT_EQ(IFDHCloseChannel(lun), IFD_SUCCESS);
        }
        EXPECT_TRUE(reader.done());
        EXPECT_TRUE(linkClosed());
    }
}

// ---------------------------------------------------------------- capabilities and attributes

TEST_F(DriverTest, TellsWhatItCanDo)
{
    createAll();
    EXPECT_EQ(capability(kContact, TAG_IFD_SIMULTANEOUS_ACCESS, 1).hex(), "06");
    EXPECT_EQ(capability(kContact, TAG_IFD_THREAD_SAFE, 1).hex(), "01");
    EXPECT_EQ(capability(kContact, TAG_IFD_SLOT_THREAD_SAFE, 1).hex(), "01");
    EXPECT_EQ(capability(kContact, TAG_IFD_POLLING_THREAD_WITH_TIMEOUT).code, IFD_ERROR_TAG);
    EXPECT_EQ(capability(kContact, SCARD_ATTR_VENDOR_NAME).hex(), toHex({'V', 'O', 'R', 'N', 0}));
    EXPECT_EQ(capability(kContact, SCARD_ATTR_MAXINPUT).hex(), "05010000");
    EXPECT_EQ(capability(kContact, SCARD_ATTR_ASYNC_PROTOCOL_TYPES).hex(), "03000000");
    EXPECT_EQ(capability(kContact, SCARD_ATTR_CHANNEL_ID).hex(), "00000100");
    EXPECT_EQ(capability(kContact, SCARD_ATTR_VENDOR_IFD_SERIAL_NO).code, IFD_ERROR_TAG);
    EXPECT_EQ(capability(kContact, SCARD_ATTR_CURRENT_CLK).code, IFD_ERROR_TAG);
    EXPECT_EQ(capability(kContact, 0).code, IFD_ERROR_TAG);
}

TEST_F(DriverTest, EachSlotTellsItsName)
{
    createAll();
    const char* const names[] = {"DK7710 contact", "DK7710 contactless", "DK7710 PSAM 1",
                                 "DK7710 PSAM 2",  "DK7710 PSAM 3",      "DK7710 PSAM 4"};
    for (DWORD slot = 0; slot < 6; ++slot) {
        const Answered name = capability(kReader + slot, SCARD_ATTR_VENDOR_IFD_TYPE);
        EXPECT_STREQ(reinterpret_cast<const char*>(name.bytes.data()), names[slot]);
    }
}

TEST_F(DriverTest, AttributesOfACardNeedACard)
{
    createAll();
    for (const DWORD tag :
         {DWORD{TAG_IFD_ATR}, DWORD{SCARD_ATTR_ATR_STRING}, DWORD{SCARD_ATTR_CURRENT_PROTOCOL_TYPE}}) {
        EXPECT_EQ(capability(kContact, tag).code, IFD_ICC_NOT_PRESENT);
    }
    EXPECT_EQ(capability(kContact, SCARD_ATTR_ICC_INTERFACE_STATUS).hex(), "00");
    EXPECT_EQ(capability(kContact, SCARD_ATTR_ICC_TYPE_PER_ATR).hex(), "00");
    reader.command("32 23 00", "", 0x02).command("32 22 01 80 00", kT1Atr);
    ASSERT_EQ(power(kContact, IFD_POWER_UP).code, IFD_SUCCESS);
    EXPECT_EQ(capability(kContact, TAG_IFD_ATR).hex(), toHex(fromHex(kT1Atr)));
    EXPECT_EQ(capability(kContact, SCARD_ATTR_ATR_STRING).hex(), toHex(fromHex(kT1Atr)));
    EXPECT_EQ(capability(kContact, SCARD_ATTR_CURRENT_PROTOCOL_TYPE).hex(), "02000000");
    EXPECT_EQ(capability(kContact, SCARD_ATTR_ICC_PRESENCE).hex(), "02");
    EXPECT_EQ(capability(kContact, SCARD_ATTR_ICC_INTERFACE_STATUS).hex(), "01");
    EXPECT_EQ(capability(kContact, SCARD_ATTR_ICC_TYPE_PER_ATR).hex(), "01");
    reader.command("32 23 00");
}

TEST_F(DriverTest, ARoomThatIsTooSmallIsNotWrittenTo)
{
    createAll();
    const Answered name = capability(kContact, SCARD_ATTR_VENDOR_NAME, 4);
    EXPECT_EQ(name.code, IFD_ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(name.length, 0U);
    EXPECT_TRUE(name.untouched);
    EXPECT_EQ(capability(kContact, TAG_IFD_SLOTS_NUMBER, 0).code, IFD_ERROR_INSUFFICIENT_BUFFER);
    DWORD length = 8;
    EXPECT_EQ(IFDHGetCapabilities(kContact, TAG_IFD_SLOTS_NUMBER, &length, nullptr), IFD_ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(IFDHGetCapabilities(kContact, TAG_IFD_SLOTS_NUMBER, nullptr, nullptr), IFD_ERROR_INSUFFICIENT_BUFFER);
}

TEST_F(DriverTest, NothingCanBeSet)
{
    createAll();
    UCHAR value = 0;
    EXPECT_EQ(IFDHSetCapabilities(kContact, TAG_IFD_SLOTS_NUMBER, 1, &value), IFD_ERROR_VALUE_READ_ONLY);
    EXPECT_EQ(IFDHSetCapabilities(kContact, TAG_IFD_SLOTNUM, 1, &value), IFD_ERROR_TAG);
}

// ---------------------------------------------------------------- power and protocol

TEST_F(DriverTest, PowerGoesUpAndDownAndACardIsReset)
{
    powerContact(kT0Atr);
    reader.command("32 23 00").command("32 22 01 80 00", kT1Atr);
    EXPECT_EQ(power(kContact, IFD_RESET).hex(), toHex(fromHex(kT1Atr)));
    reader.command("32 23 00");
    EXPECT_EQ(power(kContact, IFD_POWER_DOWN).length, 0U);
    EXPECT_EQ(power(kContact, 499).code, IFD_NOT_SUPPORTED);
    reader.command("32 22 01 80 00", "", 0x02);
    const Answered gone = power(kContact, IFD_POWER_UP);
    EXPECT_EQ(gone.code, IFD_ERROR_POWER_ACTION);
    EXPECT_EQ(gone.length, 0U);
    EXPECT_TRUE(gone.untouched);
}

TEST_F(DriverTest, AMuteCardIsPresentAndCannotBePowered)
{
    createAll();
    reader.command("32 23 00").command("32 22 01 80 00", "", 0x04);
    EXPECT_EQ(IFDHICCPresence(kContact), IFD_ICC_PRESENT);
    reader.command("32 22 01 80 00", "", 0x04);
    EXPECT_EQ(power(kContact, IFD_POWER_UP).code, IFD_ERROR_POWER_ACTION);
}

TEST_F(DriverTest, TheProtocolIsTheOneOfTheCard)
{
    createAll();
    EXPECT_EQ(protocol(kContact, SCARD_PROTOCOL_T0), IFD_ICC_NOT_PRESENT);
    const struct {
        std::string atr;
        DWORD has, hasNot;
    } rows[] = {{kT0Atr, SCARD_PROTOCOL_T0, SCARD_PROTOCOL_T1}, {kT1Atr, SCARD_PROTOCOL_T1, SCARD_PROTOCOL_T0}};
    for (const auto& row : rows) {
        reader.command("32 23 00", "", 0x02).command("32 22 01 80 00", row.atr);
        ASSERT_EQ(power(kContact, IFD_RESET).code, IFD_SUCCESS);
        EXPECT_EQ(protocol(kContact, row.has), IFD_SUCCESS);
        EXPECT_EQ(protocol(kContact, row.hasNot), IFD_PROTOCOL_NOT_SUPPORTED);
        EXPECT_EQ(protocol(kContact, SCARD_PROTOCOL_RAW), IFD_PROTOCOL_NOT_SUPPORTED);
        EXPECT_EQ(protocol(kContact, SCARD_PROTOCOL_ANY), IFD_PROTOCOL_NOT_SUPPORTED);
        EXPECT_EQ(protocol(kContact, row.has, IFD_NEGOTIATE_PTS1), IFD_ERROR_PTS_FAILURE);
    }
    reader.command("32 23 00");
}

TEST_F(DriverTest, ACardInTheFieldTakesEitherProtocol)
{
    createAll();
    reader.command("32 25 00 00").command("32 24 01 80", "09 78 33 88 02 41 42 43 44");
    EXPECT_EQ(power(kField, IFD_POWER_UP).hex(), "3B8480014142434401");
    EXPECT_EQ(capability(kField, SCARD_ATTR_ICC_TYPE_PER_ATR).hex(), "00");
    EXPECT_EQ(capability(kField, SCARD_ATTR_CURRENT_PROTOCOL_TYPE).hex(), "03000000");
    EXPECT_EQ(protocol(kField, SCARD_PROTOCOL_T0), IFD_SUCCESS);
    EXPECT_EQ(protocol(kField, SCARD_PROTOCOL_T1), IFD_SUCCESS);
    EXPECT_EQ(capability(kField, SCARD_ATTR_CURRENT_PROTOCOL_TYPE).hex(), "02000000");
    reader.command("32 25 00 00");
}

// ---------------------------------------------------------------- commands

TEST_F(DriverTest, CommandsAndAnswersGoThroughAsTheyAre)
{
    powerContact(kT0Atr);
    const std::string data = toHex(Bytes(256, 0x5A));
    const struct {
        std::string apdu, answer;
    } rows[] = {{"00A40400", "9000"},
                {"00B0000000", data + "9000"},
                {"00A4040002", "6700"},
                {"00A40000023F00", "611C"},
                {"00B2010C00", "6C1D"},
                {"00D60000FF" + toHex(Bytes(255, 0x11)), "9000"},
                {"00DA0000FF" + toHex(Bytes(255, 0x11)) + "00", "62839000"}};
    for (const auto& row : rows) {
        reader.command("32 26 00" + row.apdu, row.answer);
        const Answered answered = transmit(kContact, row.apdu);
        EXPECT_EQ(answered.code, IFD_SUCCESS);
        EXPECT_EQ(answered.hex(), row.answer);
    }
    reader.command("32 23 00");
}

TEST_F(DriverTest, ExtendedLengthIsRefusedAndNotSent)
{
    powerContact(kT1Atr);
    for (const std::string& apdu : {std::string("00B00000000000"), "00D600000000FF" + toHex(Bytes(255, 0x11)),
                                    "00D60000FF" + toHex(Bytes(257, 0x11)), std::string("00B000"), std::string()}) {
        daemonLog().clear();
        const Answered answered = transmit(kContact, apdu);
        EXPECT_EQ(answered.code, IFD_NOT_SUPPORTED) << apdu;
        EXPECT_EQ(answered.length, 0U);
        EXPECT_NE(daemonLog().find("short APDUs, up to 261 bytes"), std::string::npos) << daemonLog();
    }
    reader.command("32 23 00");
}

TEST_F(DriverTest, AnAnswerThatIsLongerThanTheRoomIsNotWritten)
{
    powerContact(kT0Atr);
    reader.command("32 26 00 00B0000000", "0102039000");
    const Answered answered = transmit(kContact, "00B0000000", 4);
    EXPECT_EQ(answered.code, IFD_ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(answered.length, 0U);
    EXPECT_TRUE(answered.untouched);
    reader.command("32 23 00");
}

TEST_F(DriverTest, ACardThatIsGoneIsToldFromAReaderThatDoesNotAnswer)
{
    powerContact(kT0Atr);
    reader.command("32 26 00 00B0000000", "", 0x02);
    EXPECT_EQ(transmit(kContact, "00B0000000").code, IFD_ICC_NOT_PRESENT);
    EXPECT_EQ(IFDHICCPresence(kContact), IFD_ICC_NOT_PRESENT);
    reader.command("32 22 01 80 00", kT0Atr);
    ASSERT_EQ(power(kContact, IFD_POWER_UP).code, IFD_SUCCESS);
    reader.silent("32 26 00 00B0000000");
    EXPECT_EQ(transmit(kContact, "00B0000000").code, IFD_COMMUNICATION_ERROR);
    EXPECT_EQ(IFDHICCPresence(kContact), IFD_ICC_NOT_PRESENT);
    EXPECT_TRUE(linkClosed());
}

TEST_F(DriverTest, TheLogHoldsNothingOfACard)
{
    powerContact("3B 08 62 58 89 07 10 03 14 24");
    const std::string number = "6258890710031424";
    for (const int status : {0x00, 0x04}) {
        reader.command("32 26 00 00200080 08" + number, status == 0 ? number + "9000" : "",
                       static_cast<std::uint8_t>(status));
        if (status != 0) {
            reader.command("32 23 00");
        }
        transmit(kContact, "0020008008" + number, status == 0 ? 4 : 64);
    }
    transmit(kContact, "0020008000" + number + number);
    EXPECT_FALSE(daemonLog().empty());
    EXPECT_EQ(daemonLog().find("6258"), std::string::npos) << daemonLog();
    EXPECT_EQ(daemonLog().find("62 58"), std::string::npos) << daemonLog();
}

// ---------------------------------------------------------------- control codes

TEST_F(DriverTest, TheOneFeatureTellsTheLongestData)
{
    createAll();
    EXPECT_EQ(CM_IOCTL_GET_FEATURE_REQUEST, 0x42000D48U);
    EXPECT_EQ(control(kContact, CM_IOCTL_GET_FEATURE_REQUEST).hex(), "120442000E10");
    EXPECT_EQ(control(kContact, 0x42000E10).hex(), "0901000A0400010000");
}

TEST_F(DriverTest, OtherControlCodesAreNotSupported)
{
    createAll();
    for (const DWORD code : {DWORD{0}, DWORD{0x42000001}, ~DWORD{0}}) {
        const Answered answered = control(kContact, code);
        EXPECT_EQ(answered.code, IFD_ERROR_NOT_SUPPORTED);
        EXPECT_EQ(answered.length, 0U);
    }
    EXPECT_EQ(control(kContact, CM_IOCTL_GET_FEATURE_REQUEST, 5).code, IFD_ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(IFDHControl(kContact, CM_IOCTL_GET_FEATURE_REQUEST, nullptr, 0, nullptr, 64, nullptr),
              IFD_ERROR_INSUFFICIENT_BUFFER);
}
