// SPDX-License-Identifier: Apache-2.0
// The acceptance run of a reader on USB: the tool itself, in a process of its own, with the emulated device.
#include "sim/profiles/profile.h"
#include "sim/reader/behaviour.h"
#include "sim/reader/reader.h"
#include "tools/running_tool.h"
#include "usb/usb_device.h"

#include <cstdlib>
#include <map>
#include <set>

namespace {

using vorn::sim::Behaviour;
using vorn::sim::Bytes;
using vorn::test::Json;
using vorn::test::Process;
using vorn::test::Result;
using vorn::test::UsbDevice;

class UsbAcceptance : public ::testing::Test {
protected:
    UsbAcceptance() { ::setenv("LD_PRELOAD", "libumockdev-preload.so.0", 1); }
    ~UsbAcceptance() override
    {
        device.unplug();
        ::unsetenv("LD_PRELOAD");
    }

    void SetUp() override
    {
#if defined(__SANITIZE_ADDRESS__)
        GTEST_SKIP() << "the sanitizer's own library has to be loaded before the emulation's";
#endif
    }

    // Plugs in a reader that behaves so, with the cards of a profile.
    void plug(const Behaviour& unit = {})
    {
        reader = std::make_unique<vorn::sim::Reader>();
        vorn::sim::load(vorn::sim::findProfile("debit"), *reader);
        reader->behave(unit);
        device.plug();
        device.onWrite = [this](const Bytes& bytes) {
            for (const auto& output : reader->receive(bytes)) {
                if (!output.ifSilent) {
                    send(output.bytes);
                }
            }
        };
    }

    void send(const Bytes& bytes)
    {
        const auto most = static_cast<std::size_t>(reader->behaviour().packetSize);
        for (std::size_t at = 0; at < bytes.size(); at += most) {
            device.sendPacket({bytes.begin() + static_cast<std::ptrdiff_t>(at),
                               bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), at + most))});
        }
        if (reader->behaviour().zeroPacket == Behaviour::ZeroPacket::Always) {
            device.sendPacket({});
        }
    }

    Result accept() { return vorn::test::run(scratch, {"accept", "--port", "USB", "--json"}); }

    vorn::test::Scratch scratch;
    UsbDevice& device = UsbDevice::instance();
    std::unique_ptr<vorn::sim::Reader> reader;
};

std::set<std::string> marked(const Json& report)
{
    std::set<std::string> names;
    for (const auto& [name, observation] : report.at("observations").items()) {
        if (observation.at("differs").get<bool>()) {
            names.insert(name);
        }
    }
    return names;
}

TEST_F(UsbAcceptance, ThePlainReaderIsFoundToBePlain)
{
    plug();
    const Result result = accept();
    EXPECT_EQ(result.code, vorn::test::kOk) << result.output << result.errors;
    const Json report = result.json();
    const Json& seen = report.at("observations");
    EXPECT_EQ(marked(report), std::set<std::string>()) << result.output;
    EXPECT_EQ(seen.at("usb.device").at("value"), "12010002000000405C3A217E000101020301");
    EXPECT_EQ(seen.at("usb.endpoints").at("value"), "01 bulk out 64, 81 bulk in 64");
    EXPECT_EQ(seen.at("usb.cut").at("value"), "64 10") << "a record of 31 bytes";
    EXPECT_EQ(seen.at("usb.packet").at("value"), 64);
    EXPECT_EQ(seen.at("usb.zero").at("value"), "never");
    EXPECT_EQ(seen.at("frames.longest").at("value"), 2050);
    EXPECT_EQ(seen.count("line.speed"), 0U);
    EXPECT_FALSE(device.claimed());
    EXPECT_EQ(device.openHandles(), 0);
}

TEST_F(UsbAcceptance, AUnitsPacketsAndAnswersAreFound)
{
    Behaviour unit;
    unit.packetSize = 32;
    unit.zeroPacket = Behaviour::ZeroPacket::Always;
    unit.wrongCheck = vorn::sim::UnitAnswer::ofStatus(0x55);
    plug(unit);
    const Result result = accept();
    EXPECT_EQ(result.code, vorn::test::kDiffers) << result.output << result.errors;
    EXPECT_EQ(marked(result.json()), (std::set<std::string>{"usb.packet", "usb.zero", "malformed.check"}))
        << result.output;
}

TEST_F(UsbAcceptance, AReaderThatIsPulledOutIsGone)
{
    plug();
    Process accept(scratch, {"accept", "--port", "USB"});
    ASSERT_TRUE(accept.outputReaches("field"));
    device.vanish();
    std::string output, errors;
    EXPECT_EQ(accept.finish(output, errors), vorn::test::kPort) << output << errors;
    EXPECT_NE(errors.find("is gone"), std::string::npos) << errors;
}

TEST_F(UsbAcceptance, WithoutAReaderThereIsNothingToTry)
{
    device.plug();
    device.unplug();
    EXPECT_EQ(accept().code, vorn::test::kPort);
}

} // namespace
