// SPDX-License-Identifier: Apache-2.0
// The description of the attached reader: GetDevInfo over the tty at 9600 baud, and the JSON around it.
#include "support/scripted_reader.h"
#include "support/service_call.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

using namespace vorn::test;

namespace {

const std::string kVersionCommand = "1B4B544C564E"; // ESC K T L V N

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

class DeviceInfo : public ReaderTest {
protected:
    DeviceInfo() { line.onBytes = {}; } // this command is no frame

    // What the reader answers to the version command.
    void answer(const std::string& text)
    {
        line.onBytes = [this, text](const Bytes& bytes, int) {
            EXPECT_EQ(toHex(bytes), kVersionCommand);
            line.send(bytesOf(text));
        };
    }
    // Pieces of the answer, each so many milliseconds after the command.
    void answerLater(std::vector<std::pair<int, std::string>> pieces)
    {
        line.onBytes = [this, pieces](const Bytes&, int) {
            for (const auto& [milliseconds, text] : pieces) {
                line.sendLater(bytesOf(text), milliseconds);
            }
        };
    }

    int call() { return GetDevInfo(port(), version.text(), date.text(), serial.text()); }

    void expectUntouched() const { EXPECT_TRUE(version.untouched() && date.untouched() && serial.untouched()); }

    Output version{ICC_DEVICE_TEXT_CAPACITY};
    Output date{1};
    Output serial{1};
};

} // namespace

// ---------------------------------------------------------------- GetDevInfo

TEST_F(DeviceInfo, AsksForTheVersionAtTheRestingSpeedWithoutSwitchingTheReader)
{
    answer("DK7710 V2.31");
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(version.value(), "DK7710 V2.31");
    EXPECT_EQ(date.value(), "");
    EXPECT_EQ(serial.value(), "");
    EXPECT_EQ(line.pieces(), std::vector<std::string>{kVersionCommand + "@9600"});
    EXPECT_TRUE(linkClosed());
}

TEST_F(DeviceInfo, SleepsOnlyWhileItPollsForTheAnswer)
{
    answer("V1");
    EXPECT_EQ(call(), 0);
    ASSERT_FALSE(Clock::sleeps().empty());
    for (const unsigned sleep : Clock::sleeps()) {
        EXPECT_EQ(sleep, 1000U);
    }
}

TEST_F(DeviceInfo, WritesNoLog)
{
    answer("V1");
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(serviceLog(), "");
    EXPECT_EQ(traceLog(), "");
}

TEST_F(DeviceInfo, TheAnswerIsWaitedForTwoSeconds)
{
    answerLater({{1990, "LATE"}});
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(version.value(), "LATE");
}

TEST_F(DeviceInfo, AnAnswerAfterTwoSecondsIsNone)
{
    answerLater({{2010, "TOO LATE"}});
    EXPECT_EQ(call(), VORN_NO_REPLY);
    expectUntouched();
    EXPECT_TRUE(linkClosed());
}

TEST_F(DeviceInfo, GapsBelowFiftyMillisecondsBelongToTheAnswer)
{
    answerLater({{100, "DK"}, {145, "77"}, {190, "10"}});
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(version.value(), "DK7710");
}

TEST_F(DeviceInfo, ALongerGapEndsTheAnswer)
{
    answerLater({{100, "DK77"}, {160, "10"}});
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(version.value(), "DK77");
}

TEST_F(DeviceInfo, ASilentReaderIsNoReply)
{
    EXPECT_EQ(call(), VORN_NO_REPLY);
    expectUntouched();
    EXPECT_TRUE(linkClosed());
}

TEST_F(DeviceInfo, APortThatCannotBeOpenedIsReported)
{
    EXPECT_EQ(GetDevInfo("no-such-tty", version.text(), date.text(), serial.text()), VORN_OPEN_FAILED);
    EXPECT_EQ(GetDevInfo("", version.text(), date.text(), serial.text()), VORN_OPEN_FAILED);
    EXPECT_EQ(GetDevInfo(nullptr, version.text(), date.text(), serial.text()), VORN_OPEN_FAILED);
    expectUntouched();
    EXPECT_TRUE(line.sent().empty());
}

TEST_F(DeviceInfo, ThePortIsRememberedLikeThatOfTheOtherCalls)
{
    answer("V1");
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(vr_comportmode, 0);
    EXPECT_EQ(vr_comportparam, line.param());
}

TEST_F(DeviceInfo, TheTextEndsAtAZeroByte)
{
    answer(std::string("AB\0CD", 5));
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(version.value(), "AB");
}

TEST_F(DeviceInfo, EveryOtherByteIsPartOfTheText)
{
    const std::string text = "\x01\x02\x03\r\n\x1B\x7F\x80\xFF end";
    answer(text);
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(version.value(), text);
}

TEST_F(DeviceInfo, ALongAnswerIsCutToTheDocumentedCapacity)
{
    for (const std::size_t size : {298U, 299U, 300U, 301U, 2000U}) {
        SCOPED_TRACE(size);
        answer(std::string(size, 'V'));
        EXPECT_EQ(call(), 0);
        EXPECT_EQ(version.value(), std::string(std::min<std::size_t>(size, ICC_DEVICE_TEXT_CAPACITY - 1), 'V'));
        EXPECT_TRUE(linkClosed());
    }
}

TEST_F(DeviceInfo, OutputsThatAreMissingAreNotWritten)
{
    answer("V1");
    EXPECT_EQ(GetDevInfo(port(), nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(GetDevInfo(port(), version.text(), nullptr, nullptr), 0);
    EXPECT_EQ(version.value(), "V1");
}

TEST_F(DeviceInfo, ALinkLeftOpenByAMemoryCardCallIsGivenBack)
{
    const int before = openDescriptors();
    line.onBytes = [this](const Bytes& bytes, int) {
        if (bytes.front() == 0x02) {
            line.send(replyFrame(0x00, {0x11, 0x22}));
        } else if (toHex(bytes) == kVersionCommand) {
            line.send(bytesOf("V9"));
        }
    };
    Output uid{ICC_ATR_CAPACITY};
    unsigned char flag = 0;
    EXPECT_EQ(IC_M1ActiveCard(port(), "", 0, 1, &flag, uid.text()), 0);
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(version.value(), "V9");
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_TRUE(linkClosed());
    EXPECT_EQ(line.pieces().back(), kVersionCommand + "@9600");
}

// ---------------------------------------------------------------- DEV_CommCall

namespace {

// The reply as cJSON prints it.
std::string document(const std::string& version)
{
    return "{\n"
           "\t\"ErrorCode\":\t\"0\",\n"
           "\t\"ErrorMessage\":\t\"success\",\n"
           "\t\"DeviceBrand\":\t\"VORN\",\n"
           "\t\"DllVersion\":\t\"1.0.0.8\",\n"
           "\t\"DeviceVersion\":\t\"" +
           version +
           "\",\n"
           "\t\"ProductionDate\":\t\"\",\n"
           "\t\"DeviceSN\":\t\"\",\n"
           "\t\"DeviceModel\":\t\"DK7710\"\n"
           "}";
}

struct RequestRow {
    const char* name;
    const char* request;
    const char* port; // as the log says
};

// The port numbers here belong to no tty: what is left to see is which port was tried.
const RequestRow kRequests[] = {
    {"ANumberAsText", R"({"RequestPort":"60001"})", "COM60001"},
    {"LeadingBlanks", R"({"RequestPort":"  60002"})", "COM60002"},
    {"ANumberAndMore", R"({"RequestPort":"60003,N,8,1"})", "COM60003"},
    {"LeadingZeros", R"({"RequestPort":"0060004"})", "COM60004"},
    {"ANegativeNumber", R"({"RequestPort":"-5"})", "COM-5"},
    {"OtherMembersAround", R"({ "A" : 1, "RequestPort" : "60005", "B" : [ {} ] })", "COM60005"},
    {"Zero", R"({"RequestPort":"0"})", "USB"},
    {"TheTextUsb", R"({"RequestPort":"USB"})", "USB"},
    {"ATextThatIsNoNumber", R"({"RequestPort":"COM3"})", "USB"},
    {"AnEmptyText", R"({"RequestPort":""})", "USB"},
    {"ANumber", R"({"RequestPort":3})", "USB"},
    {"Null", R"({"RequestPort":null})", "USB"},
    {"AnObject", R"({"RequestPort":{"RequestPort":"60006"}})", "USB"},
    {"NoSuchMember", R"({"Port":"60007"})", "USB"},
    {"LowerCase", R"({"requestport":"60012"})", "USB"},
    {"UpperCase", R"({"REQUESTPORT":"60013"})", "USB"},
    {"AnotherLetterCaseBefore", R"({"requestPort":"60014","RequestPort":"60015"})", "COM60015"},
    {"GivenTwice", R"({"RequestPort":"60016","RequestPort":"60017"})", "COM60016"},
    {"GivenTwiceFirstAsANumber", R"({"RequestPort":60018,"RequestPort":"60019"})", "USB"},
    {"TextBehindTheJson", R"({"RequestPort":"60020"} and more)", "COM60020"},
    {"AnotherRequestBehindTheJson", R"({"RequestPort":"60021"}{"RequestPort":"60022"})", "COM60021"},
    {"AnEmptyObject", "{}", "USB"},
    {"AnArray", R"(["RequestPort","60008"])", "USB"},
    {"AText", R"("60009")", "USB"},
    {"NoJson", "RequestPort=60010", "USB"},
    {"CutJson", R"({"RequestPort":"60011)", "USB"},
    {"Nothing", "", "USB"},
    {"Missing", nullptr, "USB"},
};

class DeviceRequest : public DeviceInfo {
protected:
    // libusb has its say on the console where there is no reader.
    int request(const char* text)
    {
        int result = -99;
        standardErrorOf(
            [&] { standardOutputOf([&] { result = DEV_CommCall(text, nullptr, reply.text(), &length); }); });
        return result;
    }

    Output reply{ICC_DEVICE_JSON_CAPACITY};
    int length = -3;
};

// A tty of the name COM<n> that leads to the test's line; only somebody who may write to /dev can make one.
class ComPort {
public:
    explicit ComPort(const std::string& target)
    {
        for (int number = 7301; number < 7400 && number_ == 0; ++number) {
            path_ = "/dev/COM" + std::to_string(number);
            number_ = symlink(("/dev/" + target).c_str(), path_.c_str()) == 0 ? number : 0;
        }
    }
    ~ComPort()
    {
        if (number_ != 0) {
            unlink(path_.c_str());
        }
    }
    ComPort(const ComPort&) = delete;
    ComPort& operator=(const ComPort&) = delete;

    int number() const { return number_; }
    std::string request() const { return R"({"RequestPort":")" + std::to_string(number_) + R"("})"; }

private:
    std::string path_;
    int number_ = 0;
};

class ComPortRequest : public DeviceRequest {
protected:
    void SetUp() override
    {
        if (com.number() == 0) {
            std::fprintf(stderr, "**** NOT TESTED: DEV_CommCall over a tty, no link below /dev can be made here\n");
            GTEST_SKIP() << "no link below /dev can be made here";
        }
    }

    ComPort com{line.port()};
};

} // namespace

class EachDeviceRequest : public DeviceRequest, public ::testing::WithParamInterface<RequestRow> {};

INSTANTIATE_TEST_SUITE_P(Requests, EachDeviceRequest, ::testing::ValuesIn(kRequests),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(EachDeviceRequest, NamesAPortAndIsAnsweredWithSuccessThoughNoReaderIsThere)
{
    EXPECT_EQ(request(GetParam().request), 0);
    EXPECT_EQ(reply.value(), document(""));
    EXPECT_EQ(length, static_cast<int>(document("").size()));
    EXPECT_EQ(serviceLog(), std::string("DEV_CommCall") + GetParam().port);
    EXPECT_EQ(traceLog(), "");
    EXPECT_EQ(vr_comportmode, std::string(GetParam().port) == "USB" ? 1 : 0);
}

TEST_F(DeviceRequest, TheLibraryUsesTheUsbReadersIdsForPortZero)
{
    EXPECT_EQ(request(R"({"RequestPort":"0"})"), 0);
    EXPECT_STREQ(vr_comportparam, "VID_3A5C&PID_7E21");
}

TEST_F(DeviceRequest, ANumberThatNoIntHoldsIsSomePort)
{
    for (const std::string number : {"99999999999", "-99999999999", "2147483648", "4294967296", "-9223372036854775808",
                                     "123456789012345678901234567890"}) {
        SCOPED_TRACE(number);
        forgetLogs();
        EXPECT_EQ(request(("{\"RequestPort\":\"" + number + "\"}").c_str()), 0);
        EXPECT_EQ(reply.value(), document(""));
        const std::string named = serviceLog();
        const std::string call = "DEV_CommCall";
        ASSERT_EQ(named.substr(0, call.size()), call);
        const std::string tried = named.substr(call.size());
        if (tried != "USB") {
            ASSERT_EQ(tried.substr(0, 3), "COM");
            EXPECT_EQ("COM" + std::to_string(std::stoi(tried.substr(3))), tried); // a whole int, not cut
        }
    }
}

TEST_F(DeviceRequest, MissingOutputsAreNotWritten)
{
    int result = -1;
    standardErrorOf([&] { result = DEV_CommCall(R"({"RequestPort":"60001"})", nullptr, nullptr, nullptr); });
    EXPECT_EQ(result, 0);
}

TEST_F(ComPortRequest, ReportsTheVersionThatTheReaderGave)
{
    answer("DK7710-FW 4.02 (2023)");
    EXPECT_EQ(request(com.request().c_str()), 0);
    EXPECT_EQ(reply.value(), document("DK7710-FW 4.02 (2023)"));
    EXPECT_EQ(length, static_cast<int>(reply.value().size()));
    EXPECT_EQ(serviceLog(), "DEV_CommCallCOM" + std::to_string(com.number()));
    EXPECT_EQ(line.pieces(), std::vector<std::string>{kVersionCommand + "@9600"});
    EXPECT_TRUE(linkClosed());
}

TEST_F(ComPortRequest, AReaderThatDoesNotAnswerShowsInTheEmptyVersionOnly)
{
    EXPECT_EQ(request(com.request().c_str()), 0);
    EXPECT_EQ(reply.value(), document(""));
    EXPECT_EQ(line.pieces(), std::vector<std::string>{kVersionCommand + "@9600"});
    EXPECT_TRUE(linkClosed());
}

TEST_F(ComPortRequest, TheVersionIsEscapedAsJsonAsksFor)
{
    answer("A\"B\\C\tD\r\n\x01");
    EXPECT_EQ(request(com.request().c_str()), 0);
    EXPECT_EQ(reply.value(), document("A\\\"B\\\\C\\tD\\r\\n\\u0001"));
}

TEST_F(ComPortRequest, TheLongestVersionStaysWithinTheDocumentedCapacity)
{
    answer(std::string(2000, '\x02')); // six characters each in JSON
    EXPECT_EQ(request(com.request().c_str()), 0);
    std::string escaped;
    for (int i = 0; i < ICC_DEVICE_TEXT_CAPACITY - 1; ++i) {
        escaped += "\\u0002";
    }
    EXPECT_EQ(reply.value(), document(escaped));
    EXPECT_LT(length, int{ICC_DEVICE_JSON_CAPACITY});
}

TEST_F(ComPortRequest, AnEarlierVersionIsNotRemembered)
{
    answer("V1");
    EXPECT_EQ(request(com.request().c_str()), 0);
    line.onBytes = {};
    EXPECT_EQ(request(com.request().c_str()), 0);
    EXPECT_EQ(reply.value(), document(""));
}
