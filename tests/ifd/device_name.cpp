// SPDX-License-Identifier: Apache-2.0
#include "ifd/device_name.h"

#include <gtest/gtest.h>

#include <string>

using namespace vorn::ifd;

TEST(DeviceName, OfATtyIsAWholeReader)
{
    DeviceName name;
    ASSERT_TRUE(readDeviceName("/dev/ttyS1", name));
    EXPECT_EQ(name.port.mode, 0);
    EXPECT_STREQ(name.port.parameter, "ttyS1:9600,N,8,1");
    EXPECT_STREQ(name.port.tty, "/dev/ttyS1");
    EXPECT_EQ(name.slots, 6U);
    EXPECT_EQ(name.first, Place::Contact);
}

TEST(DeviceName, MayNameOnePlaceOfAReader)
{
    for (unsigned i = 0; i < kPlaces; ++i) {
        DeviceName name;
        ASSERT_TRUE(readDeviceName((std::string("/dev/serial/by-id/x:") + kPlaceRows[i].name).c_str(), name));
        EXPECT_STREQ(name.port.parameter, "serial/by-id/x:9600,N,8,1");
        EXPECT_STREQ(name.port.tty, "/dev/serial/by-id/x");
        EXPECT_EQ(name.slots, 1U);
        EXPECT_EQ(name.first, static_cast<Place>(i));
    }
}

TEST(DeviceName, OfUsbHasItsIds)
{
    DeviceName name;
    ASSERT_TRUE(readDeviceName("usb:3a5c/7e21:libudev:0:/dev/bus/usb/001/002", name));
    EXPECT_EQ(name.port.mode, 1);
    EXPECT_STREQ(name.port.parameter, "VID_3A5C&PID_7E21");
    EXPECT_STREQ(name.port.tty, "");
    EXPECT_EQ(name.slots, 6U);
}

TEST(DeviceName, OfAnythingElseIsRefused)
{
    DeviceName name;
    EXPECT_FALSE(readDeviceName(nullptr, name));
    for (const std::string& text :
         {std::string(), std::string("ttyS1"), std::string("/dev/"), std::string("/dev/:contact"),
          std::string("/dev/ttyS1:"), std::string("/dev/ttyS1:psam5"), std::string("/dev/ttyS1:psam1:psam2"),
          std::string("/dev/../etc/passwd"), std::string("/tmp/tty"), std::string("usb:"), std::string("usb:3a5c"),
          std::string("usb:3a5c/"), std::string("usb:/7e21"), std::string("usb:13a5c/7e21"), std::string("usb:zz/7e21"),
          "/dev/" + std::string(122, 'x'), "/dev/" + std::string(5000, 'x')}) {
        EXPECT_FALSE(readDeviceName(text.c_str(), name)) << text;
    }
}

TEST(DeviceName, MayBeAsLongAsTheLinkTakes)
{
    DeviceName name;
    EXPECT_TRUE(readDeviceName(("/dev/" + std::string(116, 'x')).c_str(), name));
    EXPECT_FALSE(readDeviceName(("/dev/" + std::string(117, 'x')).c_str(), name));
}
