// SPDX-License-Identifier: Apache-2.0
// Every service call over USB, against the simulated reader behind the emulated device; and the same calls over a tty
// against the same reader, which must give the same.
#include "sim/issuer/issuer.h"
#include "sim/profiles/profile.h"
#include "sim/reader/reader.h"
#include "support/service_call.h"
#include "usb/usb_test.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <vector>

using namespace vorn::test;
namespace sim = vorn::sim;

namespace {

using Transcript = std::vector<std::string>;
using Session = std::function<Transcript(const char* port)>;

// A card of either interface that answers every command with the command and 9000.
struct EchoCard : sim::Card {
    explicit EchoCard(const std::string& atrHex) : atr(fromHex(atrHex)) {}
    sim::Bytes powerOn() override { return atr; }
    void powerOff() override {}
    sim::Bytes transmit(const sim::Bytes& command) override
    {
        sim::Bytes response = command;
        response.insert(response.end(), {0x90, 0x00});
        return response;
    }
    sim::Bytes atr;
};

// A call's result and its texts as one line each.
class Record {
public:
    void add(const std::string& call, int result, const std::string& text = "")
    {
        lines_.push_back(call + " " + std::to_string(result) + (text.empty() ? "" : " " + text));
    }
    const Transcript& lines() const { return lines_; }

private:
    Transcript lines_;
};

class UsbServices : public UsbTest {
protected:
    using Fill = std::function<void(sim::Reader&)>;

    static Fill profile(const std::string& name)
    {
        return [name](sim::Reader& reader) { sim::load(sim::findProfile(name), reader); };
    }

    // Puts a reader behind the device. Every reply comes in full packets but for the last.
    void attach(const Fill& fill)
    {
        reader_ = std::make_unique<sim::Reader>();
        fill(*reader_);
        commands = 0;
        device.onWrite = [this](const Bytes& bytes) {
            ++commands;
            if (beforeReply && !beforeReply(commands)) {
                return;
            }
            for (const sim::Reader::Output& output : reader_->receive(bytes)) {
                device.send(output.bytes);
            }
        };
    }

    Transcript overUsb(const Fill& fill, const Session& session)
    {
        attach(fill);
        Transcript transcript;
        run([&] {
            transcript = session("USB");
            return 0;
        });
        return transcript;
    }

    static Transcript overTty(const Fill& fill, const Session& session)
    {
        sim::Reader reader;
        fill(reader);
        reader.checkLineSpeed(true);
        Line line;
        line.onBytes = [&](const Bytes& bytes, int speed) {
            for (const sim::Reader::Output& output : reader.receive(bytes, speed)) {
                line.send(output.bytes);
            }
        };
        return session(line.port().c_str());
    }

    // Runs the session over USB, and expects the same of it over a tty.
    Transcript onBothLinks(const Fill& fill, const Session& session)
    {
        const Transcript usb = overUsb(fill, session);
        EXPECT_EQ(usb, overTty(fill, session));
        return usb;
    }

    // One call over USB.
    int call(const std::function<int()>& theCall)
    {
        return run([&] { return theCall(); });
    }

    int commands = 0;                     // pieces that the reader was sent
    std::function<bool(int)> beforeReply; // false: the reader does not get the piece

private:
    std::unique_ptr<sim::Reader> reader_;
};

Transcript cardInformation(const char* port)
{
    Record record;
    Output info{ICC_USER_INFO_CAPACITY};
    int type = 3, length = -1;
    const int result = IC_GetInfo(port, "", 9600, 5, &type, "", "ABCDEFGHIJKL", &length, info.text());
    record.add("type", type);
    record.add("length", length);
    record.add("IC_GetInfo", result, info.value());
    return record.lines();
}

Transcript transactionLog(const char* port)
{
    Record record;
    Output detail{ICC_TX_DETAIL_CAPACITY};
    int type = 1, length = -1;
    const int result = IC_GetTranDeta(port, "", 9600, 5, &type, "A000000333", &length, detail.text());
    record.add("length", length);
    record.add("IC_GetTranDeta", result, detail.value());
    return record.lines();
}

Transcript onlineTransaction(const std::string& profileName, const std::string& data, const char* port)
{
    Record record;
    Output arqc{ICC_CRYPTOGRAM_CAPACITY}, state{ICC_STATE_CAPACITY}, tc{ICC_CRYPTOGRAM_CAPACITY};
    Output script{ICC_SCRIPT_RESULT_CAPACITY};
    int type = 1, arqcLength = -1, tcLength = -1;
    const int first = IC_GenARQC(port, "", 9600, 5, &type, "", data.c_str(), &arqcLength, arqc.text(), state.text());
    record.add("IC_GenARQC", first, arqc.value());
    record.add("state", arqcLength, state.value());

    const auto issuer = sim::issuerOf(sim::findProfile(profileName));
    const sim::Authorisation authorisation = issuer->authorise(arqc.value());
    record.add("verified", authorisation.request.verified ? 1 : 0, authorisation.text);
    const int second = IC_CtlScriptData(port, "", 9600, 5, &type, data.c_str(), authorisation.text.c_str(), &tcLength,
                                        tc.text(), script.text(), state.value().c_str());
    record.add("IC_CtlScriptData", second, tc.value());
    record.add("script", tcLength, script.value());
    return record.lines();
}

} // namespace

// ---------------------------------------------------------------- raw access

TEST_F(UsbServices, AContactCardIsPoweredAskedAndPoweredOff)
{
    const auto fill = [](sim::Reader& reader) {
        reader.insert(sim::Slot::Contact, std::make_shared<EchoCard>("3B6500002063CB6800"));
    };
    const Transcript transcript = onBothLinks(fill, [](const char* port) {
        Record record;
        Output atr{ICC_ATR_CAPACITY}, response{ICC_RESPONSE_CAPACITY};
        const int on = IC_PowerOn(port, "", 9600, 5, 1, 0, atr.text());
        record.add("IC_PowerOn", on, atr.value());
        for (const std::string apdu : {"00A4040000", "0084000008", "80CA9F3600"}) {
            const int sent = IC_SendAPDU(port, "", 9600, 5, 1, 0, apdu.c_str(), response.text());
            record.add("IC_SendAPDU", sent, response.value());
        }
        // The longest command: its frame is eight pieces, its reply sixteen packets.
        const std::string longest(2 * 490, 'B');
        const int sent = IC_SendAPDU(port, "", 9600, 5, 1, 0, longest.c_str(), response.text());
        record.add("long", sent, response.value());
        record.add("IC_PowerOff", IC_PowerOff(port, "", 9600, 5, 1, 0));
        return record.lines();
    });
    EXPECT_EQ(transcript, (Transcript{"IC_PowerOn 0 3B6500002063CB6800", "IC_SendAPDU 0 00A40400009000",
                                      "IC_SendAPDU 0 00840000089000", "IC_SendAPDU 0 80CA9F36009000",
                                      "long 0 " + std::string(2 * 490, 'B') + "9000", "IC_PowerOff 0"}));
    EXPECT_FALSE(device.claimed());
    EXPECT_EQ(device.openHandles(), 0);
}

TEST_F(UsbServices, AContactlessCardIsFoundWhenNoContactCardIsThere)
{
    const auto fill = [](sim::Reader& reader) {
        reader.insert(sim::Slot::Field, std::make_shared<EchoCard>("3B8001"));
    };
    const Transcript transcript = onBothLinks(fill, [](const char* port) {
        Record record;
        Output atr{ICC_ATR_CAPACITY}, response{ICC_RESPONSE_CAPACITY};
        const int on = IC_PowerOn(port, "", 9600, 5, 1, 0, atr.text());
        record.add("IC_PowerOn", on, atr.value());
        const int sent = IC_SendAPDU(port, "", 9600, 5, 1, 0, "00B0000000", response.text());
        record.add("IC_SendAPDU", sent, response.value());
        record.add("IC_PowerOff", IC_PowerOff(port, "", 9600, 5, 1, 0));
        record.add("interface", m_VrICType);
        return record.lines();
    });
    EXPECT_EQ(transcript,
              (Transcript{"IC_PowerOn 0 3B8001", "IC_SendAPDU 0 00B00000009000", "IC_PowerOff 0", "interface 2"}));
}

TEST_F(UsbServices, PsamsAreReachedThroughTheirSlots)
{
    const Transcript transcript = onBothLinks(profile("psam"), [](const char* port) {
        Record record;
        Output atr{ICC_ATR_CAPACITY}, response{ICC_RESPONSE_CAPACITY};
        for (const int slot : {1, 2}) {
            const int on = IC_PowerOn(port, "", 9600, 5, 2, slot, atr.text());
            record.add("IC_PowerOn", on, atr.value());
            const int sent = IC_SendAPDU(port, "", 9600, 5, 2, slot, "00B0950000", response.text());
            record.add("IC_SendAPDU", sent, response.value());
            record.add("IC_PowerOff", IC_PowerOff(port, "", 9600, 5, 2, slot));
        }
        record.add("empty slot", IC_PowerOn(port, "", 9600, 5, 2, 3, atr.text()));
        return record.lines();
    });
    EXPECT_EQ(transcript,
              (Transcript{"IC_PowerOn 0 3B6D000080318065000000000000100001", "IC_SendAPDU 0 801234567890000000019000",
                          "IC_PowerOff 0", "IC_PowerOn 0 3B6800000102030405060708", "IC_SendAPDU 0 000000029000",
                          "IC_PowerOff 0", "empty slot -9"}));
}

TEST_F(UsbServices, WithoutACardTheWaitEnds)
{
    attach([](sim::Reader&) {});
    Output atr{ICC_ATR_CAPACITY};
    EXPECT_EQ(call([&] { return IC_PowerOn("USB", "", 9600, 0, 1, 0, atr.text()); }), VORN_NO_CARD_IN_TIME);
    EXPECT_EQ(atr.value(), "");
    EXPECT_FALSE(device.claimed());
}

// ---------------------------------------------------------------- card services

TEST_F(UsbServices, CardInformation)
{
    const Transcript transcript = onBothLinks(profile("debit"), cardInformation);
    ASSERT_EQ(transcript.size(), 3U);
    EXPECT_EQ(transcript[0], "type 1");
    EXPECT_EQ(transcript[2].compare(0, 13, "IC_GetInfo 0 "), 0) << transcript[2];
    EXPECT_NE(transcript[2].find("6229990000710246589"), std::string::npos) << transcript[2];
    EXPECT_NE(fileText(VORN_TRACE_FILE).find("Actual input is:\r\nVID_3A5C&PID_7E21\r\n"), std::string::npos);
    EXPECT_FALSE(device.claimed());
}

TEST_F(UsbServices, CardInformationOfACardThatAsksForGetResponse)
{
    const Transcript transcript = onBothLinks(profile("credit"), cardInformation);
    ASSERT_EQ(transcript.size(), 3U);
    EXPECT_NE(transcript[2].find("6250990710031424"), std::string::npos) << transcript[2];
}

TEST_F(UsbServices, TheTransactionLog)
{
    const Transcript transcript = onBothLinks(profile("debit"), transactionLog);
    ASSERT_EQ(transcript.size(), 2U);
    EXPECT_EQ(transcript[1].compare(0, 25, "IC_GetTranDeta 0 P012Q012"), 0) << transcript[1];
    for (const char* date : {"S006260918", "S006260917", "S006260915", "S006260912", "S006260909", "S006260903"}) {
        EXPECT_NE(transcript[1].find(date), std::string::npos) << date;
    }
    EXPECT_NE(transcript[1].find("青禾加油站"), std::string::npos);
    EXPECT_NE(fileText(VORN_TRACE_FILE).find("Actual input is:\r\nVID_3A5C&PID_7E21\r\n"), std::string::npos);
}

TEST_F(UsbServices, AnOnlineTransactionWithAnIssuerScript)
{
    const std::string data = "P012000000012345Q012000000000000S006240318U006101112K0089A8B7C6D";
    const Transcript transcript =
        onBothLinks(profile("debit"), [&](const char* port) { return onlineTransaction("debit", data, port); });
    ASSERT_EQ(transcript.size(), 5U);
    EXPECT_EQ(transcript[0].compare(0, 13, "IC_GenARQC 0 "), 0) << transcript[0];
    EXPECT_EQ(transcript[2].compare(0, 11, "verified 1 "), 0) << transcript[2];
    EXPECT_EQ(transcript[3].compare(0, 19, "IC_CtlScriptData 0 "), 0) << transcript[3];
    EXPECT_NE(transcript[4].find(" DF31052"), std::string::npos) << transcript[4];
    EXPECT_FALSE(device.claimed());
}

TEST_F(UsbServices, AnOnlineTransactionWithoutAScript)
{
    const std::string data = "P012000000098700S006240318U006101112K00811223344";
    const Transcript transcript =
        onBothLinks(profile("credit"), [&](const char* port) { return onlineTransaction("credit", data, port); });
    ASSERT_EQ(transcript.size(), 5U);
    EXPECT_EQ(transcript[2].compare(0, 11, "verified 1 "), 0) << transcript[2];
    EXPECT_EQ(transcript[3].compare(0, 19, "IC_CtlScriptData 0 "), 0) << transcript[3];
}

TEST_F(UsbServices, TheHardWallet)
{
    const Transcript transcript = onBothLinks(profile("wallet"), [](const char* port) {
        Record record;
        Output context{ICC_CONTEXT_ID_CAPACITY}, mode{ICC_WALLET_TEXT_CAPACITY}, aid{ICC_WALLET_TEXT_CAPACITY};
        const int result = IC_GetZzhHardWalletInfo(port, "", 9600, 5, context.text(), mode.text(), aid.text());
        record.add("IC_GetZzhHardWalletInfo", result, context.value() + "/" + mode.value() + "/" + aid.value());
        return record.lines();
    });
    EXPECT_EQ(transcript, Transcript{"IC_GetZzhHardWalletInfo 0 3156201908770042/0102/A00000087249"});
}

TEST_F(UsbServices, TheDeviceInformationHasNoVersionThoughTheReaderAnswers)
{
    attach([](sim::Reader& reader) { reader.setVersion("DK7710 V2.0"); });
    Output version{ICC_DEVICE_TEXT_CAPACITY}, date{1}, serial{1}, reply{ICC_DEVICE_JSON_CAPACITY};
    EXPECT_EQ(call([&] { return GetDevInfo("USB", version.text(), date.text(), serial.text()); }), VORN_NO_REPLY);
    EXPECT_TRUE(version.untouched() && date.untouched() && serial.untouched());
    EXPECT_EQ(out, "Device Opened\nwrite Successful!\nread Successful!\nreadtimeout-ret = 0, transferred =11\n"
                   "Released Interface!\n");
    ASSERT_EQ(device.writes().size(), 1U);
    EXPECT_EQ(toHex(device.writes().front().bytes), "1B4B544C564E");

    int length = 0;
    EXPECT_EQ(call([&] { return DEV_CommCall(R"({"RequestPort":"USB"})", nullptr, reply.text(), &length); }), 0);
    EXPECT_EQ(reply.value(), "{\n\t\"ErrorCode\":\t\"0\",\n\t\"ErrorMessage\":\t\"success\",\n"
                             "\t\"DeviceBrand\":\t\"VORN\",\n\t\"DllVersion\":\t\"1.0.0.8\",\n"
                             "\t\"DeviceVersion\":\t\"\",\n\t\"ProductionDate\":\t\"\",\n\t\"DeviceSN\":\t\"\",\n"
                             "\t\"DeviceModel\":\t\"DK7710\"\n}");
    EXPECT_EQ(length, static_cast<int>(reply.value().size()));
    EXPECT_EQ(fileText(VORN_SERVICE_FILE), "DEV_CommCallUSB");
    EXPECT_EQ(device.writes().size(), 2U);
    EXPECT_FALSE(device.claimed());
}

// ---------------------------------------------------------------- memory cards

namespace {

class UsbMemoryCards : public UsbServices {
protected:
    static Transcript session(const char* port)
    {
        static const unsigned char key[ICC_M1_KEY_SIZE] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
        static const unsigned char block[ICC_M1_BLOCK_SIZE] = {'o', 'v', 'e', 'r', ' ', 'e', 'i', 't',
                                                               'h', 'e', 'r', ' ', 'l', 'i', 'n', 'k'};
        const std::string mode = keyMode();
        Record record;
        Output flag{1}, uid{ICC_ATR_CAPACITY}, data{ICC_M1_BLOCK_SIZE};
        const int active = IC_M1ActiveCard(port, "", 9600, 5, flag.bytes(), uid.text());
        record.add("IC_M1ActiveCard", active, flag.hex(1) + "/" + uid.value());
        record.add("IC_M1CheckCardPin", IC_M1CheckCardPin(port, "", 9600, 5, 20, mode.c_str(), key));
        record.add("IC_M1WriteCard", IC_M1WriteCard(port, "", 9600, 5, 20, block));
        const int read = IC_M1ReadCard(port, "", 9600, 5, 20, data.bytes());
        record.add("IC_M1ReadCard", read, data.hex(16));
        record.add("IC_M1PowerOff", IC_M1PowerOff(port, "", 9600, 5));
        return record.lines();
    }

    // The byte that the simulated reader takes for key A.
    static std::string keyMode() { return std::string(1, kKeyA); }
    static constexpr char kKeyA = 0x60;
};

} // namespace

TEST_F(UsbMemoryCards, AWholeSessionInOneProcess)
{
    const Transcript transcript = onBothLinks(profile("memory"), session);
    ASSERT_EQ(transcript.size(), 5U);
    EXPECT_EQ(transcript[0].compare(0, 21, "IC_M1ActiveCard 0 01/"), 0) << transcript[0];
    EXPECT_EQ(transcript[1], "IC_M1CheckCardPin 0");
    EXPECT_EQ(transcript[2], "IC_M1WriteCard 0");
    EXPECT_EQ(transcript[3], "IC_M1ReadCard 0 6F76657220656974686572206C696E6B");
    EXPECT_EQ(transcript[4], "IC_M1PowerOff 0");
}

TEST_F(UsbMemoryCards, TheInterfaceThatACallLeftClaimedIsReleasedBeforeTheNextOneClaimsIt)
{
    overUsb(profile("memory"), session);
    std::vector<std::string> expected = {"driver?", "claim 0"};
    for (int further = 0; further < 4; ++further) {
        expected.insert(expected.end(), {"release 0", "driver?", "claim 0"});
    }
    expected.emplace_back("release 0"); // by the call that switches the card off
    EXPECT_EQ(device.calls(), expected);
    EXPECT_FALSE(device.claimed());
    EXPECT_EQ(device.openHandles(), 0);
}

TEST_F(UsbMemoryCards, TheConsoleOfTwoCalls)
{
    attach(profile("memory"));
    Output flag{1}, uid{ICC_ATR_CAPACITY};
    EXPECT_EQ(call([&] { return IC_M1ActiveCard("USB", "", 9600, 5, flag.bytes(), uid.text()); }), 0);
    const std::string size = std::to_string(12 + uid.value().size()); // two characters a byte, in hex as on the line
    EXPECT_EQ(out,
              "Device Opened\nwrite Successful!\nread Successful!\nreadtimeout-ret = 0, transferred =" + size + "\n");
    EXPECT_TRUE(device.claimed());
    EXPECT_EQ(call([] { return IC_M1PowerOff("USB", "", 9600, 5); }), 0);
    EXPECT_EQ(out, "Device Opened\nwrite Successful!\nread Successful!\nreadtimeout-ret = 0, transferred =12\n"
                   "Released Interface!\n");
    EXPECT_EQ(err, "");
}

TEST_F(UsbMemoryCards, ARefusalReleasesTheInterface)
{
    attach(profile("memory"));
    Output flag{1}, uid{ICC_ATR_CAPACITY}, data{ICC_M1_BLOCK_SIZE};
    EXPECT_EQ(call([&] { return IC_M1ActiveCard("USB", "", 9600, 5, flag.bytes(), uid.text()); }), 0);
    EXPECT_TRUE(device.claimed());
    EXPECT_EQ(call([&] { return IC_M1ReadCard("USB", "", 9600, 5, 1, data.bytes()); }), VORN_READER_REFUSED);
    EXPECT_TRUE(data.untouched());
    EXPECT_FALSE(device.claimed());
    EXPECT_EQ(device.openHandles(), 0);
    EXPECT_EQ(out.substr(out.size() - 20), "Released Interface!\n");
}

TEST_F(UsbMemoryCards, OtherCallsWorkAfterOneThatLeftTheInterfaceClaimed)
{
    attach(profile("memory"));
    Output flag{1}, uid{ICC_ATR_CAPACITY}, atr{ICC_ATR_CAPACITY};
    const auto activate = [&] { return IC_M1ActiveCard("USB", "", 9600, 5, flag.bytes(), uid.text()); };
    EXPECT_EQ(call(activate), 0);
    EXPECT_EQ(call([&] { return IC_PowerOn("USB", "", 9600, 5, 2, 1, atr.text()); }), VORN_READER_NO_CARD);
    EXPECT_FALSE(device.claimed());
    EXPECT_EQ(call(activate), 0);
    EXPECT_EQ(call([] { return GetDevInfo("USB", nullptr, nullptr, nullptr); }), VORN_NO_REPLY);
    EXPECT_FALSE(device.claimed());
}

TEST_F(UsbMemoryCards, ManySessionsLeaveNoDescriptorBehind)
{
    overUsb(profile("memory"), session);
    const int before = settledDescriptors();
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(overUsb(profile("memory"), session).back(), "IC_M1PowerOff 0");
    }
    EXPECT_EQ(settledDescriptors(), before);
    EXPECT_EQ(device.openHandles(), 0);
}

// ---------------------------------------------------------------- no device, and a device that goes

TEST_F(UsbServices, TheSecondHalfOfASaleNamesUsbOnItsLine)
{
    device.unplug();
    char tc[ICC_CRYPTOGRAM_CAPACITY] = "";
    char script[ICC_SCRIPT_RESULT_CAPACITY] = "";
    int type = 1, length = 0;
    const char data[] = "P012000000012345S006240318U006101112";
    const int result =
        run([&] { return IC_CtlScriptData("USB", "", 9600, 5, &type, data, "", &length, tc, script, ""); });
    EXPECT_EQ(result, VORN_OPEN_FAILED);
    EXPECT_EQ(out, "vr_comportparam = VID_3A5C&PID_7E21,vr_comportmode=1\n");
}

namespace {

struct ServiceRow {
    const char* name;
    int withoutDevice;
    int (*call)();
};

// Every call, with a profile's card behind it where it needs one.
int getInfo()
{
    Output info{ICC_USER_INFO_CAPACITY};
    int type = 1, length = 0;
    return IC_GetInfo("USB", "", 9600, 5, &type, "", "ABCDEFGHIJKL", &length, info.text());
}
int getTranDeta()
{
    Output detail{ICC_TX_DETAIL_CAPACITY};
    int type = 1, length = 0;
    return IC_GetTranDeta("USB", "", 9600, 5, &type, "", &length, detail.text());
}
int genArqc()
{
    Output arqc{ICC_CRYPTOGRAM_CAPACITY}, state{ICC_STATE_CAPACITY};
    int type = 1, length = 0;
    return IC_GenARQC("USB", "", 9600, 5, &type, "", "P012000000000100", &length, arqc.text(), state.text());
}
int wallet()
{
    Output context{ICC_CONTEXT_ID_CAPACITY}, mode{ICC_WALLET_TEXT_CAPACITY}, aid{ICC_WALLET_TEXT_CAPACITY};
    return IC_GetZzhHardWalletInfo("USB", "", 9600, 5, context.text(), mode.text(), aid.text());
}
int powerOn()
{
    Output atr{ICC_ATR_CAPACITY};
    return IC_PowerOn("USB", "", 9600, 5, 1, 0, atr.text());
}
int sendApdu()
{
    Output response{ICC_RESPONSE_CAPACITY};
    return IC_SendAPDU("USB", "", 9600, 5, 1, 0, "0084000008", response.text());
}
int powerOff() { return IC_PowerOff("USB", "", 9600, 5, 1, 0); }
int m1Activate()
{
    Output flag{1}, uid{ICC_ATR_CAPACITY};
    return IC_M1ActiveCard("USB", "", 9600, 5, flag.bytes(), uid.text());
}
int m1CheckPin()
{
    const unsigned char key[ICC_M1_KEY_SIZE] = {};
    return IC_M1CheckCardPin("USB", "", 9600, 5, 1, "a", key);
}
int m1Read()
{
    Output data{ICC_M1_BLOCK_SIZE};
    return IC_M1ReadCard("USB", "", 9600, 5, 1, data.bytes());
}
int m1Write()
{
    const unsigned char block[ICC_M1_BLOCK_SIZE] = {};
    return IC_M1WriteCard("USB", "", 9600, 5, 1, block);
}
int m1PowerOff() { return IC_M1PowerOff("USB", "", 9600, 5); }
int devInfo() { return GetDevInfo("USB", nullptr, nullptr, nullptr); }
int devCommCall()
{
    Output reply{ICC_DEVICE_JSON_CAPACITY};
    int length = 0;
    return DEV_CommCall(R"({"RequestPort":"0"})", nullptr, reply.text(), &length);
}

const ServiceRow kServices[] = {
    {"IC_PowerOn", VORN_OPEN_FAILED, powerOn},
    {"IC_SendAPDU", VORN_OPEN_FAILED, sendApdu},
    {"IC_PowerOff", VORN_OPEN_FAILED, powerOff},
    {"IC_GetInfo", VORN_OPEN_FAILED, getInfo},
    {"IC_GetTranDeta", VORN_OPEN_FAILED, getTranDeta},
    {"IC_GenARQC", VORN_OPEN_FAILED, genArqc},
    {"IC_GetZzhHardWalletInfo", VORN_OPEN_FAILED, wallet},
    {"IC_M1ActiveCard", VORN_OPEN_FAILED, m1Activate},
    {"IC_M1CheckCardPin", VORN_OPEN_FAILED, m1CheckPin},
    {"IC_M1ReadCard", VORN_OPEN_FAILED, m1Read},
    {"IC_M1WriteCard", VORN_OPEN_FAILED, m1Write},
    {"IC_M1PowerOff", VORN_OPEN_FAILED, m1PowerOff},
    {"GetDevInfo", VORN_OPEN_FAILED, devInfo},
    {"DEV_CommCall", VORN_OK, devCommCall},
};

class UsbServiceFailures : public UsbServices, public ::testing::WithParamInterface<ServiceRow> {
protected:
    Fill cards() const
    {
        const std::string name = GetParam().name;
        if (name.compare(0, 5, "IC_M1") == 0) {
            return profile("memory");
        }
        return profile(name == "IC_GetZzhHardWalletInfo" ? "wallet" : "debit");
    }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Calls, UsbServiceFailures, ::testing::ValuesIn(kServices),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(UsbServiceFailures, WithoutADevice)
{
    device.unplug();
    EXPECT_EQ(call(GetParam().call), GetParam().withoutDevice);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err.substr(0, 21), "Cannot open device\n: ");
    EXPECT_EQ(device.openHandles(), 0);
}

TEST_P(UsbServiceFailures, WithTheInterfaceHeldByAKernelDriverThatStays)
{
    device.bindDriver("usbhid");
    device.refuseDetaching(true);
    EXPECT_EQ(call(GetParam().call), GetParam().withoutDevice);
    EXPECT_EQ(out, "Device Opened\nKernel Driver Active\n");
    EXPECT_EQ(err.substr(0, 25), "Cannot Claim Interface\n: ");
    EXPECT_EQ(device.openHandles(), 0);
}

// At whatever command the reader goes: the call ends, and after plugging it in again everything works.
TEST_P(UsbServiceFailures, PulledOutAtAnyCommand)
{
    int last = 1;
    for (int at = 1; at <= last; ++at) {
        SCOPED_TRACE(at);
        device.plug();
        beforeReply = [&](int number) {
            if (number == at) {
                device.vanish();
            }
            return number < at;
        };
        attach(cards());
        call(GetParam().call);
        EXPECT_NE(out.find("Device Opened\n"), std::string::npos);
        EXPECT_NE(out.find("error!\n"), std::string::npos);
        EXPECT_EQ(device.openHandles(), 0);

        device.plug();
        beforeReply = {};
        attach(cards());
        call(GetParam().call);
        last = std::min(commands, 12);
        EXPECT_EQ(out.find("error!\n"), std::string::npos);
    }
}

TEST_P(UsbServiceFailures, AStallAtAnyCommandIsAFailureOfThatCommandOnly)
{
    int last = 1;
    for (int at = 1; at <= last; ++at) {
        SCOPED_TRACE(at);
        device.plug();
        beforeReply = [&](int number) {
            if (number == at) {
                device.sendError(-EPIPE);
            }
            return number != at;
        };
        attach(cards());
        call(GetParam().call);
        EXPECT_NE(out.find("read error!\nreadtimeout-ret = -9, transferred =0\n"), std::string::npos);
        EXPECT_EQ(device.packetsLeft(), 0U);

        beforeReply = {};
        attach(cards());
        call(GetParam().call);
        last = std::min(commands, 12);
        EXPECT_EQ(out.find("error!\n"), std::string::npos);
    }
}
