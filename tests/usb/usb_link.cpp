// SPDX-License-Identifier: Apache-2.0
// The USB half of the link through the real libusb: what a host sees, and what the device sees of it.
#include "support/card_text.h"
#include "usb/usb_test.h"

#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

using namespace vorn::test;

namespace {

using Calls = std::vector<std::string>;

constexpr std::uint8_t kStx = 0x02;
constexpr std::uint8_t kEtx = 0x03;
const char kParameter[] = "VID_3A5C&PID_7E21";

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes filled(std::size_t count, std::uint8_t byte) { return Bytes(count, byte); }

// So many different characters as a reply's body has them.
Bytes body(std::size_t count)
{
    Bytes bytes;
    for (std::size_t i = 0; i < count; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(0x30 + i % 16));
    }
    return bytes;
}

class UsbLinkTest : public UsbTest {
protected:
    int open(const std::string& parameter = kParameter, int mode = 1)
    {
        std::vector<char> text(parameter.begin(), parameter.end());
        text.push_back('\0');
        handle = run([&] { return OpenDev(mode, text.data()); });
        mended.assign(text.begin(), text.end() - 1);
        return handle;
    }

    void close()
    {
        run([this] {
            closeDev(handle);
            return 0;
        });
    }

    // Reads a reply into a buffer of the documented size.
    int readFrame(int max = 1000, int timeoutS = 1)
    {
        const auto room = static_cast<std::size_t>(max) + 1;
        got.assign(room + 8, 0xEE);
        const int count = run([&] { return ReadBytes_Ex(handle, got.data(), max, kStx, kEtx, timeoutS); });
        EXPECT_TRUE(std::all_of(got.begin() + static_cast<std::ptrdiff_t>(room), got.end(), [](std::uint8_t byte) {
            return byte == 0xEE;
        })) << "written behind max + 1 bytes";
        got.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return count;
    }

    int command(const std::string& hex)
    {
        const Bytes bytes = fromHex(hex);
        Bytes payload(VORN_PAYLOAD_MAX);
        int length = -1;
        const int result =
            run([&] { return trans_icc_cmd(bytes.data(), static_cast<int>(bytes.size()), payload.data(), &length); });
        payload.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
        got = payload;
        return result;
    }

    int handle = -1;
    std::string mended; // the parameter after OpenDev
    Bytes got;
};

// "Cannot ...\n: " and one line of the system.
void expectSystemError(const std::string& text, const std::string& prefix)
{
    ASSERT_EQ(text.substr(0, prefix.size() + 3), prefix + "\n: ");
    EXPECT_GT(text.size(), prefix.size() + 4);
    EXPECT_EQ(text.find('\n', prefix.size() + 1), text.size() - 1);
}

class UsbOpening : public UsbLinkTest {};

} // namespace

// ---------------------------------------------------------------- opening and closing

TEST_F(UsbOpening, ClaimsTheInterfaceOfTheDeviceWithTheGivenIds)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    EXPECT_EQ(m_portmode, 1);
    EXPECT_EQ(device.calls(), (Calls{"driver?", "claim 0"}));
    EXPECT_TRUE(device.claimed());
    EXPECT_EQ(out, "Device Opened\n");
    EXPECT_EQ(err, "");
    EXPECT_EQ(mended, kParameter);
}

TEST_F(UsbOpening, ClosingReleasesTheInterfaceAndTheDevice)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    device.forget();
    close();
    EXPECT_EQ(m_portmode, 0);
    EXPECT_EQ(device.calls(), Calls{"release 0"});
    EXPECT_EQ(device.openHandles(), 0);
    EXPECT_EQ(out, "Released Interface!\n");
    EXPECT_EQ(err, "");
}

TEST_F(UsbOpening, EveryModeButZeroIsUsb)
{
    for (const int mode : {1, 2, -1, 1000}) {
        EXPECT_EQ(open(kParameter, mode), VORN_USB_HANDLE) << mode;
        close();
    }
}

TEST_F(UsbOpening, IdsAreReadInEitherCase)
{
    EXPECT_EQ(open("VID_3a5c&PID_7e21"), VORN_USB_HANDLE);
    EXPECT_EQ(mended, "VID_3a5c&PID_7e21");
}

// Of the search for the endpoints, too: they are others than any device before had.
TEST_F(UsbOpening, OfIdsWithMoreThanFourDigitsTheLastFourCount)
{
    std::uint8_t endpoint = 0x09;
    for (const char* ids : {"VID_13A5C&PID_7E21", "VID_3A5C&PID_FF7E21"}) {
        SCOPED_TRACE(ids);
        ++endpoint;
        device.plug({0x3A5C, 0x7E21, {{{endpoint, 0x8F}}}});
        EXPECT_EQ(open(ids), VORN_USB_HANDLE);
        run([this] { return WriteBytes(handle, "?", 1); });
        ASSERT_EQ(device.writes().size(), 1U);
        EXPECT_EQ(device.writes().front().endpoint, endpoint);
        close();
    }
    EXPECT_EQ(open("VID_3A5C1&PID_7E21"), -1);
}

TEST_F(UsbOpening, OtherIdsFindTheirOwnDevice)
{
    device.plug({0x0B05, 0x00C9, {{{0x01, 0x81}}}});
    EXPECT_EQ(open("VID_0B05&PID_00C9"), VORN_USB_HANDLE);
}

TEST_F(UsbOpening, AMalformedParameterIsRefusedWithoutAWord)
{
    for (const std::string parameter :
         {"", "VID_3A5C", "VID_3A5C&", "VID_3A5CPID_7E21", "PID_7E21", "&PID_7E21VID_3A5C", "vid_3A5C&pid_7E21",
          "VID_3A5C&pid_7E21", "ttyS1:9600,N,8,1"}) {
        EXPECT_EQ(open(parameter), -1) << parameter;
        EXPECT_EQ(mended, parameter);
        EXPECT_EQ(out + err, "") << parameter;
    }
    EXPECT_EQ(run([] { return OpenDev(1, nullptr); }), -1);
    EXPECT_EQ(m_portmode, 0);
    EXPECT_EQ(device.calls(), Calls{});
}

TEST_F(UsbOpening, TheParameterIsMendedAtItsNinthCharacterWhereverItWasCut)
{
    EXPECT_EQ(open("USB VID_3A5C&PID_7E21"), VORN_USB_HANDLE);
    EXPECT_EQ(mended, std::string("USB VID_&A5C\0PID_7E21", 21));
}

TEST_F(UsbOpening, ShortIdsAreReadThoughTheMendingComesLater)
{
    device.plug({0x0007, 0x0009, {{{0x01, 0x81}}}});
    EXPECT_EQ(open("VID_7&PID_9"), VORN_USB_HANDLE);
    EXPECT_EQ(mended, std::string("VID_7\0PI&_9", 11));
}

TEST_F(UsbOpening, TheParameterIsMendedThoughThereIsNoSuchDevice)
{
    device.unplug();
    EXPECT_EQ(open(), -1);
    EXPECT_EQ(mended, kParameter);
}

TEST_F(UsbOpening, AMissingDeviceIsReportedWithTheSystemsError)
{
    device.unplug();
    EXPECT_EQ(open(), -1);
    EXPECT_EQ(m_portmode, 0);
    EXPECT_EQ(out, "");
    expectSystemError(err, "Cannot open device");
}

TEST_F(UsbOpening, ADeviceWithOtherIdsIsAMissingDevice)
{
    for (const auto& [vendor, product] : {std::pair<std::uint16_t, std::uint16_t>{0x3A5C, 0x7E22}, {0x3A5D, 0x7E21}}) {
        device.plug({vendor, product, {{{0x01, 0x81}}}});
        EXPECT_EQ(open(), -1);
        EXPECT_EQ(out, "");
        expectSystemError(err, "Cannot open device");
        EXPECT_EQ(device.openHandles(), 0);
    }
}

TEST_F(UsbOpening, ABoundKernelDriverIsDetachedFirst)
{
    device.bindDriver("usbhid");
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    EXPECT_EQ(out, "Device Opened\nKernel Driver Active\nKernel Driver Detached!\n");
    EXPECT_EQ(err, "");
    const Calls calls = device.calls();
    ASSERT_GE(calls.size(), 2U);
    EXPECT_EQ(calls.front(), "driver?");
    EXPECT_EQ(calls[calls.size() - 2], "detach");
    EXPECT_EQ(calls.back(), "claim 0");
}

TEST_F(UsbOpening, AKernelDriverThatStaysMakesTheClaimFail)
{
    device.bindDriver("cdc_acm");
    device.refuseDetaching(true);
    EXPECT_EQ(open(), -1);
    EXPECT_EQ(m_portmode, 0);
    EXPECT_EQ(out, "Device Opened\nKernel Driver Active\n");
    expectSystemError(err, "Cannot Claim Interface");
    EXPECT_EQ(device.calls().back(), "claim 0 busy");
    EXPECT_EQ(device.openHandles(), 0); // what could not be used is not kept
}

TEST_F(UsbOpening, AnInterfaceThatAnotherProgramHoldsIsBusy)
{
    libusb_context* context = nullptr;
    ASSERT_EQ(libusb_init(&context), 0);
    libusb_device_handle* other = libusb_open_device_with_vid_pid(context, 0x3A5C, 0x7E21);
    ASSERT_NE(other, nullptr);
    ASSERT_EQ(libusb_claim_interface(other, 0), 0);

    EXPECT_EQ(open(), -1);
    EXPECT_EQ(out, "Device Opened\n"); // the other program is no kernel driver to detach
    EXPECT_EQ(err, "Cannot Claim Interface\n: Device or resource busy\n");
    EXPECT_EQ(device.openHandles(), 1);

    libusb_release_interface(other, 0);
    libusb_close(other);
    libusb_exit(context);
    EXPECT_EQ(open(), VORN_USB_HANDLE);
}

TEST_F(UsbOpening, OpdevAndCldevLeaveTheReaderUnswitched)
{
    EXPECT_EQ(run([] { return opdev(); }), 0);
    EXPECT_EQ(out, "Device Opened\n");
    EXPECT_EQ(vrdk03com_handle, VORN_USB_HANDLE);
    EXPECT_EQ(sleeps(), std::vector<unsigned>{});
    EXPECT_EQ(run([] { return cldev(); }), 0);
    EXPECT_EQ(out, "Released Interface!\n");
    EXPECT_EQ(sleeps(), std::vector<unsigned>{3000});
    EXPECT_TRUE(device.writes().empty());
    EXPECT_FALSE(device.claimed());
}

TEST_F(UsbOpening, OpdevReportsAMissingDevice)
{
    device.unplug();
    EXPECT_EQ(run([] { return opdev(); }), VORN_OPEN_FAILED);
    expectSystemError(err, "Cannot open device");
    EXPECT_TRUE(sleeps().empty());
}

// Which endpoints are used.
TEST_F(UsbOpening, TheSmallerOfTheFirstTwoEndpointsIsForWriting)
{
    struct Row {
        const char* what;
        std::vector<UsbDescription::Alternates> interfaces;
        std::uint8_t out, in;
    };
    const Row rows[] = {
        {"in order", {{{0x01, 0x81}}}, 0x01, 0x81},
        {"the other way round", {{{0x82, 0x02}}}, 0x02, 0x82},
        {"numbers that differ", {{{0x86, 0x05}}}, 0x05, 0x86},
        {"more than two", {{{0x03, 0x83, 0x04, 0x84}}}, 0x03, 0x83},
        {"a later alternate setting writes over an earlier one", {{{0x01, 0x81}, {0x07, 0x87}}}, 0x07, 0x87},
        {"an alternate setting of one endpoint writes over one", {{{0x01, 0x81}, {0x06}}}, 0x06, 0x81},
        {"other interfaces do not count", {{{0x01, 0x81}}, {{0x02, 0x82}}, {{0x03, 0x83}}}, 0x01, 0x81},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        device.plug({0x3A5C, 0x7E21, row.interfaces});
        ASSERT_EQ(open(), VORN_USB_HANDLE);
        device.send({kStx, 0x31, kEtx});
        run([this] { return WriteBytes(handle, "?", 1); });
        EXPECT_EQ(readFrame(), 3);
        ASSERT_EQ(device.writes().size(), 1U);
        EXPECT_EQ(device.writes().front().endpoint, row.out);
        EXPECT_EQ(device.lastReadEndpoint(), row.in);
        close();
    }
}

// A transfer to the other direction's endpoint would write where nothing may be written, or never come to an end.
TEST_F(UsbOpening, ADeviceWithoutOneEndpointOutAndOneInIsRefused)
{
    const struct {
        const char* what;
        std::vector<UsbDescription::Alternates> interfaces;
    } rows[] = {
        {"two in", {{{0x81, 0x82}}}},
        {"two out", {{{0x01, 0x02}}}},
        {"two in before one out", {{{0x81, 0x82, 0x01}}}},
        {"two in by a later alternate setting", {{{0x01, 0x81}, {0x83, 0x84}}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        device.plug({0x3A5C, 0x7E21, row.interfaces});
        EXPECT_EQ(open(), -1);
        EXPECT_EQ(out, "");
        expectSystemError(err, "Cannot open device");
        EXPECT_EQ(m_portmode, 0);
        EXPECT_FALSE(device.claimed());
        EXPECT_EQ(device.openHandles(), 0);
    }
    device.plug();
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    close();
}

// What an earlier device left in the table of endpoints would fill the gap, so each of these is the first of its process
// (an entry of ctest each).
namespace {

class UsbFirstDevice : public UsbLinkTest {
protected:
    void expectRefused(const std::vector<UsbDescription::Alternates>& interfaces)
    {
        device.plug({0x3A5C, 0x7E21, interfaces});
        EXPECT_EQ(open(), -1);
        EXPECT_EQ(out, "");
        expectSystemError(err, "Cannot open device");
        EXPECT_EQ(m_portmode, 0);
        EXPECT_FALSE(device.claimed());
        EXPECT_EQ(device.openHandles(), 0);
        EXPECT_TRUE(device.writes().empty());
        EXPECT_TRUE(device.readSizes().empty());
    }
};
class UsbFirstDeviceOnlyIn : public UsbFirstDevice {};
class UsbFirstDeviceOnlyOut : public UsbFirstDevice {};
class UsbFirstDeviceWithout : public UsbFirstDevice {};

} // namespace

TEST_F(UsbFirstDeviceOnlyIn, IsRefused) { expectRefused({{{0x81}}}); }

TEST_F(UsbFirstDeviceOnlyOut, IsRefused) { expectRefused({{{0x01}}}); }

TEST_F(UsbFirstDeviceWithout, AnyEndpointIsRefused) { expectRefused({{{}}}); }

TEST_F(UsbOpening, MoreInterfacesAndEndpointsThanCanBeNotedDoNoHarm)
{
    UsbDescription::Endpoints many;
    for (std::uint8_t number = 1; number <= 8; ++number) {
        many.push_back(number);
        many.push_back(static_cast<std::uint8_t>(number | 0x80));
    }
    device.plug({0x3A5C, 0x7E21, std::vector<UsbDescription::Alternates>(14, UsbDescription::Alternates(3, many))});
    ASSERT_EQ(open(), VORN_USB_HANDLE);
    device.send({kStx, kEtx});
    EXPECT_EQ(readFrame(), 2);
    EXPECT_EQ(device.lastReadEndpoint(), 0x81);
}

TEST_F(UsbOpening, AnotherDevicesEndpointsAreNotTaken)
{
    for (const UsbDescription& bystander :
         {UsbDescription{0x3A5C, 0x7E22, {{{0x09, 0x89}}}}, UsbDescription{0x1D6B, 0x7E21, {{{0x0A, 0x8A}}}}}) {
        device.plug();
        device.plugBystanders(bystander);
        ASSERT_EQ(open(), VORN_USB_HANDLE);
        device.send({kStx, kEtx});
        run([this] { return WriteBytes(handle, "?", 1); });
        EXPECT_EQ(readFrame(), 2);
        EXPECT_EQ(device.writes().front().endpoint, 0x01);
        EXPECT_EQ(device.lastReadEndpoint(), 0x81);
        close();
    }
}

// ---------------------------------------------------------------- links left open

namespace {

class UsbReopening : public UsbLinkTest {};

int openedTimes(const Line& tty)
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        count += std::filesystem::read_symlink(entry.path(), gone) == "/dev/" + tty.port() ? 1 : 0;
    }
    return count;
}

} // namespace

TEST_F(UsbReopening, ALinkLeftOpenIsReleasedWithoutAWordByTheNextOpening)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    device.forget();
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    EXPECT_EQ(device.calls(), (Calls{"release 0", "driver?", "claim 0"}));
    EXPECT_EQ(device.openHandles(), 1);
    EXPECT_EQ(out, "Device Opened\n");
    EXPECT_EQ(err, "");
}

TEST_F(UsbReopening, ALinkLeftOpenIsReleasedByTheOpeningOfATty)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    device.forget();
    Line tty;
    EXPECT_GE(open(tty.param(), 0), 0);
    EXPECT_EQ(m_portmode, 0);
    EXPECT_EQ(device.calls(), Calls{"release 0"});
    EXPECT_EQ(device.openHandles(), 0);
    EXPECT_EQ(out + err, "");
    close();
}

TEST_F(UsbReopening, ATtyLeftOpenIsReleasedByAUsbOpening)
{
    Line tty;
    const struct termio settings = tty.settings();
    EXPECT_GE(open(tty.param(), 0), 0);
    EXPECT_NE(tty.settings().c_lflag, settings.c_lflag);
    EXPECT_EQ(openedTimes(tty), 2);
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    EXPECT_EQ(out, "Device Opened\n");
    EXPECT_EQ(openedTimes(tty), 1); // the test's own
    EXPECT_EQ(tty.settings().c_lflag, settings.c_lflag);
}

TEST_F(UsbReopening, AFailedOpeningReleasesWhatWasOpenToo)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    EXPECT_EQ(open("VID_3A5C&PID_0000"), -1);
    EXPECT_EQ(device.openHandles(), 0);
    EXPECT_EQ(m_portmode, 0);
}

TEST_F(UsbReopening, OpeningAndClosingLeavesNoDescriptorBehind)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    close();
    const int before = settledDescriptors();
    for (int i = 0; i < 25; ++i) {
        ASSERT_EQ(open(), VORN_USB_HANDLE);
        if (i % 2 == 0) {
            close(); // every other time the link is left open
        }
    }
    close();
    EXPECT_EQ(settledDescriptors(), before);
    EXPECT_EQ(device.openHandles(), 0);
}

TEST_F(UsbReopening, FailedOpeningsLeaveNoDescriptorBehind)
{
    device.bindDriver("usbhid");
    device.refuseDetaching(true);
    EXPECT_EQ(open(), -1);
    const int before = settledDescriptors();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(open(), -1);
    }
    EXPECT_EQ(settledDescriptors(), before);
    device.unplug();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(open(), -1);
    }
    EXPECT_LE(settledDescriptors(), before);
}

// ---------------------------------------------------------------- the console

namespace {

class UsbConsole : public UsbLinkTest {
protected:
    void SetUp() override
    {
        ASSERT_EQ(open(), VORN_USB_HANDLE);
        vrdk03com_handle = handle;
    }
};

} // namespace

TEST_F(UsbConsole, OneExchangeInOnePacket)
{
    const Bytes reply = replyFrame(0x00, {0x3B, 0x00});
    device.onWrite = [&](const Bytes&) { device.send(reply); };
    EXPECT_EQ(command("32 22 01 80 00"), 0);
    EXPECT_EQ(toHex(got), "3B00");
    EXPECT_EQ(out, "write Successful!\nread Successful!\nreadtimeout-ret = 0, transferred =16\n");
    EXPECT_EQ(err, "");
}

TEST_F(UsbConsole, AReplyOfThreePackets)
{
    const Bytes reply = replyFrame(0x00, filled(70, 0x6B)); // 152 characters
    device.onWrite = [&](const Bytes&) { device.send(reply); };
    EXPECT_EQ(command("32 26 00 00 B2 01 0C 00"), 0);
    EXPECT_EQ(got, filled(70, 0x6B));
    EXPECT_EQ(out, "write Successful!\n"
                   "read Successful!\nreadtimeout-ret = 0, transferred =64\n"
                   "read Successful!\nreadtimeout-ret = 0, transferred =64\n"
                   "read Successful!\nreadtimeout-ret = 0, transferred =24\n");
}

TEST_F(UsbConsole, ACommandOfTwoPiecesIsTwoWrites)
{
    device.onWrite = [&](const Bytes& bytes) {
        if (bytes.back() == kEtx) {
            device.send(replyFrame(0x00, {}));
        }
    };
    EXPECT_EQ(command(repeated("32", 61)), 0);
    EXPECT_EQ(out, "write Successful!\nwrite Successful!\nread Successful!\nreadtimeout-ret = 0, transferred =12\n");
}

TEST_F(UsbConsole, AWriteThatFailsIsReportedAndTheReplyReadAllTheSame)
{
    device.refuseWrites(-EPIPE);
    device.send(replyFrame(0x06, {}));
    EXPECT_EQ(command("32230A"), VORN_READER_NO_CARD);
    EXPECT_EQ(out, "write error!\nread Successful!\nreadtimeout-ret = 0, transferred =12\n");
    EXPECT_EQ(err, "");
}

TEST_F(UsbConsole, AReadThatFailsShowsLibusbsCode)
{
    const std::pair<int, const char*> rows[] = {
        {-EPIPE, "-9"}, {-EPROTO, "-1"}, {-EILSEQ, "-1"}, {-EOVERFLOW, "-8"}, {-ETIME, "-1"}};
    for (const auto& [status, code] : rows) {
        device.sendError(status);
        EXPECT_EQ(readFrame(), -5);
        EXPECT_EQ(out, std::string("read error!\nreadtimeout-ret = ") + code + ", transferred =0\n");
        EXPECT_EQ(err, "");
    }
}

TEST_F(UsbConsole, APacketThatIsTooLongIsAnOverflow)
{
    device.sendPacket(Bytes{kStx} + body(98) + Bytes{kEtx});
    EXPECT_EQ(readFrame(), -5);
    EXPECT_EQ(out.substr(0, 34), "read error!\nreadtimeout-ret = -8, ");
}

TEST_F(UsbConsole, AWholeSession)
{
    close();
    device.onWrite = [&](const Bytes&) { device.send(replyFrame(0x00, {})); };
    const int result = run([] {
        const unsigned char powerOff[] = {0x32, 0x23, 0x00};
        int length = 0;
        return opdev() + trans_icc_cmd(powerOff, sizeof powerOff, nullptr, &length) + cldev();
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(out, "Device Opened\nwrite Successful!\nread Successful!\nreadtimeout-ret = 0, transferred =12\n"
                   "Released Interface!\n");
    EXPECT_EQ(err, "");
}

// ---------------------------------------------------------------- writing

namespace {

class UsbWriting : public UsbConsole {};

} // namespace

TEST_F(UsbWriting, WriteBytesIsOneTransferOfAnySize)
{
    for (const std::size_t size : {1U, 63U, 64U, 65U, 127U, 128U, 129U, 300U, 4000U}) {
        SCOPED_TRACE(size);
        device.forget();
        const Bytes bytes = body(size);
        EXPECT_EQ(run([&] { return WriteBytes(handle, bytes.data(), static_cast<int>(size)); }),
                  static_cast<int>(size));
        ASSERT_EQ(device.writes().size(), 1U);
        EXPECT_EQ(device.writes().front().bytes, bytes);
        EXPECT_EQ(out, "write Successful!\n");
    }
}

TEST_F(UsbWriting, WriteBytesReturnsItsCountThoughNothingIsTaken)
{
    device.refuseWrites(-EPROTO);
    EXPECT_EQ(run([&] { return WriteBytes(handle, "12345", 5); }), 5);
    EXPECT_EQ(out, "write error!\n");
}

TEST_F(UsbWriting, WritingNothingIsOneEmptyTransfer)
{
    EXPECT_EQ(run([this] { return WriteBytes(handle, "?", 0); }), 0);
    EXPECT_EQ(out.substr(0, 6), "write "); // what became of it is said; the emulation takes no empty transfer
    EXPECT_EQ(run([this] { return WriteBytes(handle, nullptr, 3); }), 3);
    EXPECT_EQ(out, "");
    EXPECT_EQ(run([this] { return WriteBytes(handle, "?", -2); }), -2);
    EXPECT_EQ(out, "");
    EXPECT_TRUE(device.writes().empty());
}

TEST_F(UsbWriting, EachPieceOfAFrameIsOneTransfer)
{
    const struct {
        std::size_t commandSize;
        std::vector<std::size_t> pieces;
    } rows[] = {{1, {10}},         {59, {126}},       {60, {128}},          {61, {128, 2}},
                {123, {128, 126}}, {124, {128, 128}}, {125, {128, 128, 2}}, {508, std::vector<std::size_t>(8, 128)}};
    device.onWrite = [&](const Bytes& bytes) {
        if (bytes.back() == kEtx) {
            device.send(replyFrame(0x00, {}));
        }
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.commandSize);
        device.forget();
        EXPECT_EQ(command(repeated("7D", row.commandSize)), 0);
        std::vector<std::size_t> pieces;
        Bytes all;
        for (const UsbDevice::Write& write : device.writes()) {
            pieces.push_back(write.bytes.size());
            all = all + write.bytes;
        }
        EXPECT_EQ(pieces, row.pieces);
        EXPECT_EQ(all, frame(filled(row.commandSize, 0x7D)));
    }
}

// ---------------------------------------------------------------- replies

namespace {

class UsbFrames : public UsbConsole {
protected:
    void SetUp() override
    {
        UsbConsole::SetUp();
        device.forget();
    }

    void sendPackets(const std::vector<Bytes>& packets)
    {
        for (const Bytes& packet : packets) {
            device.sendPacket(packet);
        }
    }
};

} // namespace

TEST_F(UsbFrames, OneShortPacket)
{
    device.sendPacket({kStx, 0x31, 0x32, kEtx});
    EXPECT_EQ(readFrame(), 4);
    EXPECT_EQ(got, (Bytes{kStx, 0x31, 0x32, kEtx}));
    EXPECT_EQ(device.readSizes(), std::vector<std::size_t>{64});
}

TEST_F(UsbFrames, TheStartByteMayStandAnywhereInThePacket)
{
    for (std::size_t at = 0; at < 64; ++at) {
        SCOPED_TRACE(at);
        const Bytes reply = Bytes{kStx} + body(70) + Bytes{kEtx};
        device.send(filled(at, 0x7F) + reply);
        EXPECT_EQ(readFrame(), static_cast<int>(reply.size()));
        EXPECT_EQ(got, reply);
    }
}

TEST_F(UsbFrames, PacketsBeforeTheStartByteAreDropped)
{
    for (std::size_t noise = 1; noise <= 4; ++noise) {
        sendPackets(std::vector<Bytes>(noise, filled(64, 0x30)));
        device.sendPacket(filled(5, 0x3F) + Bytes{kStx, 0x35, kEtx});
        EXPECT_EQ(readFrame(), 3);
        EXPECT_EQ(got, (Bytes{kStx, 0x35, kEtx}));
    }
}

TEST_F(UsbFrames, AnEndByteBeforeTheStartByteIsNoise)
{
    device.sendPacket({kEtx, kEtx, 0x44, kStx, 0x35, kEtx});
    EXPECT_EQ(readFrame(), 3);
}

TEST_F(UsbFrames, AnEmptyPacketIsPassedOver)
{
    sendPackets({{}, {kStx, 0x36, kEtx}});
    EXPECT_EQ(readFrame(), 3);
    EXPECT_EQ(got, (Bytes{kStx, 0x36, kEtx}));
}

TEST_F(UsbFrames, RepliesOfEveryLengthAroundThePacketsComeWhole)
{
    for (const std::size_t size : {2U, 3U, 62U, 63U, 64U, 65U, 66U, 127U, 128U, 129U, 191U, 192U, 193U, 999U, 1000U}) {
        SCOPED_TRACE(size);
        const Bytes reply = Bytes{kStx} + body(size - 2) + Bytes{kEtx};
        device.send(reply);
        EXPECT_EQ(readFrame(), static_cast<int>(size));
        EXPECT_EQ(got, reply);
        EXPECT_EQ(device.packetsLeft(), 0U);
    }
}

// All 64 positions of a packet count, however short it came: what lies behind the first packet's end is zero.
TEST_F(UsbFrames, AReplyCutAtAnyPlaceIsFilledUpWithZeros)
{
    const Bytes reply = Bytes{kStx} + body(30) + Bytes{kEtx};
    for (std::size_t cut = 1; cut < reply.size(); ++cut) {
        SCOPED_TRACE(cut);
        const Bytes first(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(cut));
        const Bytes second(reply.begin() + static_cast<std::ptrdiff_t>(cut), reply.end());
        sendPackets({first, second});
        EXPECT_EQ(readFrame(), static_cast<int>(64 + second.size()));
        EXPECT_EQ(got, first + filled(64 - cut, 0x00) + second);
    }
}

TEST_F(UsbFrames, BehindALaterShortPacketStandsWhatTheOneBeforeHeld)
{
    const Bytes first = Bytes{kStx} + filled(63, 0x41);
    sendPackets({first, {0x42, 0x42}, {0x43, kEtx}});
    EXPECT_EQ(readFrame(), 64 + 64 + 2);
    EXPECT_EQ(got, (first + Bytes{0x42, 0x42} + filled(62, 0x41) + Bytes{0x43, kEtx}));
}

TEST_F(UsbFrames, AnEndByteLeftFromThePacketBeforeEndsTheReply)
{
    sendPackets({filled(10, 0x30) + Bytes{kEtx}, {kStx, 0x31}});
    EXPECT_EQ(readFrame(), 11);
    EXPECT_EQ(got, (Bytes{kStx, 0x31} + filled(8, 0x30) + Bytes{kEtx}));
}

TEST_F(UsbFrames, NothingIsLeftFromTheReplyBefore)
{
    device.sendPacket(Bytes{kStx} + filled(62, 0x31) + Bytes{kEtx});
    EXPECT_EQ(readFrame(), 64);
    sendPackets({{kStx, 0x32}, {kEtx}});
    EXPECT_EQ(readFrame(), 65);
    EXPECT_EQ(got, (Bytes{kStx, 0x32} + filled(62, 0x00) + Bytes{kEtx}));
}

TEST_F(UsbFrames, WhatFollowsTheEndByteInItsPacketIsDropped)
{
    device.sendPacket({kStx, 0x31, kEtx, kStx, 0x32, kEtx});
    device.sendPacket({kStx, 0x33, kEtx});
    EXPECT_EQ(readFrame(), 3);
    EXPECT_EQ(got, (Bytes{kStx, 0x31, kEtx}));
    EXPECT_EQ(readFrame(), 3);
    EXPECT_EQ(got, (Bytes{kStx, 0x33, kEtx}));
}

// ---------------------------------------------------------------- replies that are nobody's

TEST_F(UsbFrames, WhatAnAnswerLeftBehindIsNotTheNextOne)
{
    const Bytes first = replyFrame(0, {0x01});
    device.onWrite = [this, &first, n = 0](const Bytes&) mutable {
        if (n++ == 0) {
            device.sendPacket(first + Bytes{kStx}); // the beginning of another, which nobody asked for
            device.send(body(100));
            device.send(replyFrame(0, {0x77}));
        } else {
            device.send(replyFrame(0, {0x02}));
        }
    };
    EXPECT_EQ(command("32 25 00 00"), 0);
    EXPECT_EQ(toHex(got), "01");
    EXPECT_EQ(command("32 25 00 00"), 0);
    EXPECT_EQ(toHex(got), "02");
    EXPECT_EQ(out,
              "write Successful!\nread Successful!\nreadtimeout-ret = 0, transferred =14\n"); // nor is it talked of
    EXPECT_EQ(command("32 25 00 00"), 0);
    EXPECT_EQ(toHex(got), "02");
}

TEST_F(UsbFrames, WhatComesBehindAFailureIsNotTheNextAnswer)
{
    device.onWrite = [this, n = 0](const Bytes&) mutable {
        if (n++ == 0) {
            device.sendError(-EPIPE);
            device.send(replyFrame(0, {0x01})); // late
        } else {
            device.send(replyFrame(0, {0x02}));
        }
    };
    EXPECT_EQ(command("32 25 00 00"), VORN_NO_REPLY);
    EXPECT_EQ(command("32 25 00 00"), 0);
    EXPECT_EQ(toHex(got), "02");
}

TEST_F(UsbFrames, WhatComesBehindAFailureIsNotTheNextCallsAnswerEither)
{
    device.onWrite = [this](const Bytes&) {
        device.sendError(-EPIPE);
        device.send(replyFrame(0, {0x01}));
    };
    EXPECT_EQ(command("32 25 00 00"), VORN_NO_REPLY);
    close();
    ASSERT_EQ(open(), VORN_USB_HANDLE);
    vrdk03com_handle = handle;
    device.onWrite = [this](const Bytes&) { device.send(replyFrame(0, {0x02})); };
    EXPECT_EQ(command("32 25 00 00"), 0);
    EXPECT_EQ(toHex(got), "02");
}

TEST_F(UsbFrames, ZerosThatFillAPacketAreNothingLeftBehind)
{
    device.onWrite = [this](const Bytes&) { device.sendPacket(replyFrame(0, {0x01}) + filled(50, 0x00)); };
    EXPECT_EQ(command("32 25 00 00"), 0);
    device.forget();
    EXPECT_EQ(command("32 25 00 00"), 0);
    EXPECT_EQ(device.readSizes().size(), 1U);
}

TEST_F(UsbFrames, AStartByteInsideTheReplyIsAByteLikeAnother)
{
    device.sendPacket({kStx, 0x31, kStx, 0x32, kEtx});
    EXPECT_EQ(readFrame(), 5);
}

TEST_F(UsbFrames, TheEndByteMayComeOneByteBeyondTheMost)
{
    device.sendPacket(Bytes{kStx} + body(4) + Bytes{kEtx});
    EXPECT_EQ(readFrame(5), 6);
}

TEST_F(UsbFrames, MoreThanTheMostWithoutAnEndByteIsRefused)
{
    device.sendPacket(Bytes{kStx} + body(5) + Bytes{kEtx});
    EXPECT_EQ(readFrame(5), -3);
    device.send(Bytes{kStx} + body(1000));
    EXPECT_EQ(readFrame(1000), -3);
    EXPECT_EQ(device.packetsLeft(), 0U);
}

TEST_F(UsbFrames, TheZerosOfAShortPacketCountTowardsTheMost)
{
    sendPackets({{kStx, 0x31}, {kEtx}});
    EXPECT_EQ(readFrame(60), -3);
}

TEST_F(UsbFrames, EachPlaceWhereAReadCanFailHasItsCode)
{
    for (const int status : {-EPIPE, -EPROTO, -EOVERFLOW}) {
        SCOPED_TRACE(status);
        device.sendError(status);
        EXPECT_EQ(readFrame(), -5);

        device.sendPacket(filled(64, 0x30));
        device.sendError(status);
        EXPECT_EQ(readFrame(), -2);

        device.sendPacket({kStx, 0x31});
        device.sendError(status);
        EXPECT_EQ(readFrame(), -4);
    }
}

TEST_F(UsbFrames, AFailureOfTheLaterPacketsKeepsItsCodeThroughTheReply)
{
    device.send(Bytes{kStx} + filled(63 + 64, 0x31));
    device.sendError(-EPIPE);
    EXPECT_EQ(readFrame(), -4);
    EXPECT_EQ(device.readSizes(), (std::vector<std::size_t>{64, 64, 64}));
}

TEST_F(UsbFrames, EveryFailureIsNoReplyToACommand)
{
    device.sendError(-EPIPE);
    EXPECT_EQ(command("322300"), VORN_NO_REPLY);
    device.sendPacket(filled(64, 0x31));
    device.sendError(-EPIPE);
    EXPECT_EQ(command("322300"), VORN_NO_REPLY);
    device.sendPacket({kStx, 0x30});
    device.sendError(-EPIPE);
    EXPECT_EQ(command("322300"), VORN_NO_REPLY);
    device.send(Bytes{kStx} + filled(1000, 0x30));
    EXPECT_EQ(command("322300"), VORN_NO_REPLY);
}

TEST_F(UsbFrames, TheLongestReplyToACommandComesWhole)
{
    device.onWrite = [&](const Bytes&) { device.send(replyFrame(0x00, filled(VORN_PAYLOAD_MAX, 0xC6))); };
    EXPECT_EQ(command("32260000B2010C00"), 0);
    EXPECT_EQ(got, filled(VORN_PAYLOAD_MAX, 0xC6));
}

// A reader that does not fill its packets up: the zeros end the text of the reply.
TEST_F(UsbFrames, AReplyCutInsideItsPayloadReadsAsZerosFromThere)
{
    const Bytes reply = replyFrame(0x00, {0x11, 0x22, 0x33, 0x44});
    const std::ptrdiff_t cut = 1 + 2 * 6; // behind the second byte of the payload
    sendPackets({Bytes(reply.begin(), reply.begin() + cut), Bytes(reply.begin() + cut, reply.end())});
    EXPECT_EQ(command("32260000B2010C00"), 0);
    EXPECT_EQ(toHex(got), "11220000");
}

// ---------------------------------------------------------------- the other two ways of reading

namespace {

class UsbIdFrames : public UsbFrames {
protected:
    int readIdFrame(int timeoutS = 1)
    {
        got.assign(VORN_ID2_CAPACITY + 8, 0xEE);
        const int count = run([&] { return _VRDK_ID2_Readstr(handle, got.data(), timeoutS); });
        EXPECT_EQ(Bytes(got.end() - 8, got.end()), filled(8, 0xEE)) << "written behind the documented capacity";
        got.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return count;
    }

    int readUntilSilence()
    {
        got.assign(VORN_READSTR_CAPACITY + 8, 0xEE);
        return run([&] { return _VRDK_Readstr(handle, got.data(), 1); });
    }

    const Bytes head = {0xAA, 0xAA, 0xAA, 0x96, 0x69};
};

class UsbReadstr : public UsbIdFrames {};

} // namespace

TEST_F(UsbIdFrames, OneByteMoreThanTheLengthIsTaken)
{
    device.sendPacket(head + Bytes{0x00, 0x04, 1, 2, 3, 4, 5, 6, 7});
    EXPECT_EQ(readIdFrame(), 12);
    EXPECT_EQ(got, head + (Bytes{0x00, 0x04, 1, 2, 3, 4, 5}));
}

TEST_F(UsbIdFrames, ALengthOfZeroTakesOneByte)
{
    device.sendPacket(head + Bytes{0x00, 0x00, 0x77, 0x78});
    EXPECT_EQ(readIdFrame(), 8);
    EXPECT_EQ(got, head + (Bytes{0x00, 0x00, 0x77}));
}

TEST_F(UsbIdFrames, TheByteMoreMayBeTheZeroBehindAShortPacket)
{
    device.sendPacket(head + Bytes{0x00, 0x02, 0x51, 0x52});
    EXPECT_EQ(readIdFrame(), 10);
    EXPECT_EQ(got, head + (Bytes{0x00, 0x02, 0x51, 0x52, 0x00}));
}

TEST_F(UsbIdFrames, TheByteMoreMayComeInTheNextPacket)
{
    device.sendPacket(head + Bytes{0x00, 57} + filled(57, 0x61));
    device.sendPacket({0x62});
    EXPECT_EQ(readIdFrame(), 7 + 57 + 1);
    EXPECT_EQ(got.back(), 0x62);
}

TEST_F(UsbIdFrames, TheLengthsHighByteComesFirst)
{
    const Bytes content = body(0x0140 + 1);
    device.send(head + Bytes{0x01, 0x40} + content);
    EXPECT_EQ(readIdFrame(), 7 + 0x0140 + 1);
    EXPECT_EQ(got, head + (Bytes{0x01, 0x40} + content));
}

TEST_F(UsbIdFrames, TheLongestFrameFillsTheDocumentedCapacity)
{
    device.send(head + Bytes{0xFF, 0xFF} + filled(65536, 0x5D));
    EXPECT_EQ(readIdFrame(), int{VORN_ID2_CAPACITY});
    EXPECT_EQ(device.packetsLeft(), 0U);
}

TEST_F(UsbIdFrames, NoiseBeforeThePreambleIsPassedOver)
{
    const std::pair<const char*, Bytes> rows[] = {
        {"other bytes", {0x00, 0x55, 0x96, 0x69}},
        {"one AA alone", {0xAA, 0x00}},
        {"two AA alone", {0xAA, 0xAA, 0x96}},
        {"three AA and another byte", {0xAA, 0xAA, 0xAA, 0x69}},
        {"four AA start over", {0xAA, 0xAA, 0xAA, 0xAA, 0x96, 0x69}},
        {"a preamble without its last byte", {0xAA, 0xAA, 0xAA, 0x96, 0x96}},
    };
    for (const auto& [what, noise] : rows) {
        SCOPED_TRACE(what);
        device.sendPacket(noise + head + Bytes{0x00, 0x01, 0x31, 0x32});
        EXPECT_EQ(readIdFrame(), 9);
        EXPECT_EQ(got, head + (Bytes{0x00, 0x01, 0x31, 0x32}));
    }
}

TEST_F(UsbIdFrames, ThePreambleMayBeCutByFullPackets)
{
    for (std::size_t before = 58; before < 64; ++before) {
        SCOPED_TRACE(before);
        device.send(filled(before, 0x11) + head + Bytes{0x00, 0x02, 0x31, 0x32, 0x33});
        EXPECT_EQ(readIdFrame(), 10);
        EXPECT_EQ(got, head + (Bytes{0x00, 0x02, 0x31, 0x32, 0x33}));
    }
}

TEST_F(UsbIdFrames, APreambleCutByAShortPacketIsBrokenByTheZeros)
{
    device.sendPacket({0xAA, 0xAA});
    device.sendPacket({0xAA, 0x96, 0x69, 0x00, 0x01, 0x31, 0x32});
    device.sendError(-EPIPE);
    EXPECT_EQ(readIdFrame(), -1);
}

TEST_F(UsbIdFrames, AReadThatFailsEndsIt)
{
    device.sendError(-EPIPE);
    EXPECT_EQ(readIdFrame(), -1);
    EXPECT_EQ(out, "read error!\nreadtimeout-ret = -9, transferred =0\n");
    device.sendPacket(head + Bytes{0x00, 0xF0} + filled(57, 0x31));
    device.sendError(-EPROTO);
    EXPECT_EQ(readIdFrame(), -1);
}

TEST_F(UsbReadstr, APacketThatCameIsNotCounted)
{
    for (const std::size_t size : {1U, 13U, 64U}) {
        device.forget();
        device.sendPacket(filled(size, 0x56));
        EXPECT_EQ(readUntilSilence(), -1);
        EXPECT_EQ(got, filled(VORN_READSTR_CAPACITY + 8, 0xEE));
        EXPECT_EQ(out, "read Successful!\nreadtimeout-ret = 0, transferred =" + std::to_string(size) + "\n");
        EXPECT_EQ(device.readSizes(), std::vector<std::size_t>{64});
        EXPECT_EQ(device.packetsLeft(), 0U);
    }
}

TEST_F(UsbReadstr, AFailedReadIsTheSame)
{
    device.sendError(-EPIPE);
    EXPECT_EQ(readUntilSilence(), -1);
    EXPECT_EQ(out, "read error!\nreadtimeout-ret = -9, transferred =0\n");
}

// ---------------------------------------------------------------- time-outs, in real time

namespace {

const char kTimedOut[] = "read error!\nreadtimeout-ret = -7, transferred =0\n";

class UsbTimeouts : public UsbFrames {};
class UsbReplyTimeouts : public UsbFrames {};
class UsbIdTimeouts : public UsbIdFrames {};

} // namespace

TEST_F(UsbTimeouts, ADeviceThatSendsNothing)
{
    EXPECT_EQ(readFrame(1000, 1), -5);
    EXPECT_EQ(out, kTimedOut);
    EXPECT_EQ(err, "");
}

TEST_F(UsbTimeouts, NoStartByte)
{
    device.sendPacket(filled(64, 0x33));
    EXPECT_EQ(readFrame(1000, 1), -2);
    EXPECT_EQ(out, std::string("read Successful!\nreadtimeout-ret = 0, transferred =64\n") + kTimedOut);
}

TEST_F(UsbTimeouts, NoEndByte)
{
    device.send(Bytes{kStx} + filled(63 + 64 + 10, 0x33));
    EXPECT_EQ(readFrame(1000, 1), -4);
    EXPECT_EQ(out, std::string("read Successful!\nreadtimeout-ret = 0, transferred =64\n"
                               "read Successful!\nreadtimeout-ret = 0, transferred =64\n"
                               "read Successful!\nreadtimeout-ret = 0, transferred =10\n") +
                       kTimedOut);
}

TEST_F(UsbTimeouts, TheLinkWorksAfterATimeout)
{
    device.sendPacket({kStx, 0x31});
    EXPECT_EQ(readFrame(1000, 1), -4);
    device.sendPacket({kStx, 0x31, kEtx});
    EXPECT_EQ(readFrame(1000, 1), 3);
    EXPECT_EQ(got, (Bytes{kStx, 0x31, kEtx}));
}

TEST_F(UsbReplyTimeouts, ACommandWithoutAReply)
{
    EXPECT_EQ(command("3222018000"), VORN_NO_REPLY);
    EXPECT_EQ(out, std::string("write Successful!\n") + kTimedOut);
}

TEST_F(UsbIdTimeouts, AnIdFrameThatDoesNotCome)
{
    EXPECT_EQ(readIdFrame(1), -1);
    EXPECT_EQ(out, kTimedOut);
}

TEST_F(UsbIdTimeouts, AnIdFrameThatStops)
{
    device.sendPacket(head + Bytes{0x00, 0x80} + filled(57, 0x31));
    EXPECT_EQ(readIdFrame(1), -1);
    EXPECT_EQ(out, std::string("read Successful!\nreadtimeout-ret = 0, transferred =64\n") + kTimedOut);
}

TEST_F(UsbIdTimeouts, ATextThatDoesNotCome)
{
    EXPECT_EQ(readUntilSilence(), -1);
    EXPECT_EQ(out, kTimedOut);
}

// ---------------------------------------------------------------- pulled out

namespace {

class UsbUnplugged : public UsbFrames {};

const char kGone[] = "read error!\nreadtimeout-ret = -4, transferred =0\n";

} // namespace

TEST_F(UsbUnplugged, WhileTheReplyIsAwaited)
{
    device.vanishWhenAsked();
    EXPECT_EQ(command("3222018000"), VORN_NO_REPLY);
    EXPECT_EQ(out, std::string("write Successful!\n") + kGone);
}

TEST_F(UsbUnplugged, InEachPartOfAReply)
{
    device.vanishWhenAsked();
    EXPECT_EQ(readFrame(), -5);
    EXPECT_EQ(out, kGone);

    device.plug();
    ASSERT_EQ(open(), VORN_USB_HANDLE);
    device.sendPacket(filled(64, 0x30));
    device.vanishWhenAsked();
    EXPECT_EQ(readFrame(), -2);

    device.plug();
    ASSERT_EQ(open(), VORN_USB_HANDLE);
    device.send(Bytes{kStx} + filled(80, 0x30));
    device.vanishWhenAsked();
    EXPECT_EQ(readFrame(), -4);
}

TEST_F(UsbUnplugged, WithTheCommandJustTaken)
{
    device.onWrite = [&](const Bytes&) { device.vanish(); };
    EXPECT_EQ(command("3222018000"), VORN_NO_REPLY);
    EXPECT_NE(out.find("read error!\n"), std::string::npos);
}

TEST_F(UsbUnplugged, BeforeTheCommand)
{
    device.vanish();
    EXPECT_EQ(command("3222018000"), VORN_NO_REPLY);
    EXPECT_EQ(out.substr(0, 47), "write error!\nread error!\nreadtimeout-ret = -4, ");
}

TEST_F(UsbUnplugged, ClosingSaysThatTheInterfaceCouldNotBeReleased)
{
    device.vanish();
    close();
    EXPECT_EQ(out, "Cannot Released Interface!\n");
    EXPECT_EQ(err, "");
    EXPECT_EQ(m_portmode, 0);
    EXPECT_EQ(device.openHandles(), 0);
}

TEST_F(UsbUnplugged, TheNextOpeningFindsNothingAndTheOneAfterPluggingInFindsIt)
{
    device.vanishWhenAsked();
    EXPECT_EQ(readFrame(), -5);
    device.unplug();
    EXPECT_EQ(open(), -1);
    expectSystemError(err, "Cannot open device");
    EXPECT_EQ(device.openHandles(), 0);
    device.plug();
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    device.sendPacket({kStx, 0x31, kEtx});
    EXPECT_EQ(readFrame(), 3);
}
