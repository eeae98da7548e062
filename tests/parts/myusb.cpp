// SPDX-License-Identifier: Apache-2.0
// The class below the USB link, with a libusb of the test's own.
#include "link/myusb.h"

#include "support/scripted_reader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

// One device, 3A5C:7E21, with these endpoints in its first two interfaces.
struct Bus {
    std::vector<std::uint8_t> endpoints[2];
    int result = 0;     // of the next transfer
    std::string packet; // that it brings
    std::vector<std::string> transfers;
};
Bus bus;

libusb_device* const kDevice = reinterpret_cast<libusb_device*>(&bus);
libusb_device_handle* const kHandle = reinterpret_cast<libusb_device_handle*>(&bus);

} // namespace

extern "C" {

int libusb_init(libusb_context**) { return 0; }
void libusb_exit(libusb_context*) {}
ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list)
{
    *list = new libusb_device* [] { kDevice, nullptr };
    return 1;
}
void libusb_free_device_list(libusb_device** list, int) { delete[] list; }
int libusb_get_device_descriptor(libusb_device*, libusb_device_descriptor* descriptor)
{
    descriptor->idVendor = 0x3A5C;
    descriptor->idProduct = 0x7E21;
    return 0;
}
int libusb_get_config_descriptor(libusb_device*, std::uint8_t, libusb_config_descriptor** config)
{
    static libusb_endpoint_descriptor endpoints[2][8];
    static libusb_interface_descriptor alternates[2];
    static libusb_interface interfaces[2];
    static libusb_config_descriptor one;
    for (int i = 0; i < 2; ++i) {
        for (std::size_t e = 0; e < bus.endpoints[i].size(); ++e) {
            endpoints[i][e].bEndpointAddress = bus.endpoints[i][e];
        }
        alternates[i].bNumEndpoints = static_cast<std::uint8_t>(bus.endpoints[i].size());
        alternates[i].endpoint = endpoints[i];
        interfaces[i] = {&alternates[i], 1};
    }
    one.bNumInterfaces = 2;
    one.interface = interfaces;
    *config = &one;
    return 0;
}
void libusb_free_config_descriptor(libusb_config_descriptor*) {}
libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context*, std::uint16_t, std::uint16_t) { return kHandle; }
int libusb_kernel_driver_active(libusb_device_handle*, int) { return 0; }
int libusb_detach_kernel_driver(libusb_device_handle*, int) { return 0; }
int libusb_claim_interface(libusb_device_handle*, int) { return 0; }
int libusb_release_interface(libusb_device_handle*, int) { return 0; }
void libusb_close(libusb_device_handle*) {}
int libusb_bulk_transfer(libusb_device_handle*, unsigned char endpoint, unsigned char* data, int length,
                         int* transferred, unsigned timeout)
{
    bus.transfers.push_back(vorn::test::toHex({endpoint}) + " of " + std::to_string(length) + " in " +
                            std::to_string(timeout) + " ms");
    *transferred = static_cast<int>(bus.packet.size());
    std::memcpy(data, bus.packet.data(), bus.packet.size());
    return bus.result;
}

} // extern "C"

namespace {

class UsbClass : public ::testing::Test {
protected:
    UsbClass()
    {
        bus = Bus();
        bus.endpoints[0] = {0x01, 0x81};
        bus.endpoints[1] = {0x02, 0x82};
    }
    ~UsbClass() override { usb.release(); }

    int open(int interface)
    {
        int result = -7;
        err = vorn::test::standardErrorOf([&] {
            out = vorn::test::standardOutputOf([&] {
                usb.init(0x3A5C, 0x7E21);
                EXPECT_EQ(usb.setInterface(interface), 0);
                result = usb.open(0x3A5C, 0x7E21);
            });
        });
        return result;
    }

    int read(unsigned char* bytes, int count)
    {
        int result = -7;
        out = vorn::test::standardOutputOf([&] { result = usb.read(bytes, count); });
        return result;
    }

    Myusb usb;
    std::string out, err;
};

} // namespace

TEST_F(UsbClass, ReadsOnePacketWithinTenSeconds)
{
    ASSERT_EQ(open(0), 0);
    bus.packet = "ABC";
    unsigned char bytes[16] = {};
    EXPECT_EQ(read(bytes, sizeof bytes), 0);
    EXPECT_EQ(out, "read Successful!\nread-ret = 0, transferred =3\n");
    EXPECT_STREQ(reinterpret_cast<const char*>(bytes), "ABC");
    EXPECT_EQ(usb.transferred(), 3);
    EXPECT_EQ(bus.transfers, std::vector<std::string>{"81 of 16 in 10000 ms"});
}

TEST_F(UsbClass, ReadingFailsWithMinusOneWhateverTheCause)
{
    ASSERT_EQ(open(0), 0);
    for (const int error : {LIBUSB_ERROR_IO, LIBUSB_ERROR_TIMEOUT, LIBUSB_ERROR_OTHER}) {
        bus.result = error;
        unsigned char bytes[16] = {};
        EXPECT_EQ(read(bytes, sizeof bytes), -1);
        EXPECT_EQ(out, "read error!\n");
    }
}

TEST_F(UsbClass, ReadsNothingWithoutADevice)
{
    unsigned char bytes[16] = {};
    EXPECT_EQ(read(bytes, sizeof bytes), -1);
    EXPECT_TRUE(bus.transfers.empty());
}

TEST_F(UsbClass, TakesTheEndpointsOfTheInterfaceChosen)
{
    ASSERT_EQ(open(1), 0);
    unsigned char bytes[16] = {};
    EXPECT_EQ(read(bytes, sizeof bytes), 0);
    EXPECT_EQ(bus.transfers, std::vector<std::string>{"82 of 16 in 10000 ms"});
}

TEST_F(UsbClass, AnInterfaceThatNoDeviceCanHaveHasNoEndpoints)
{
    for (const int interface : {-1, 10, 1000000}) {
        SCOPED_TRACE(interface);
        EXPECT_EQ(open(interface), -1);
        EXPECT_EQ(err.find("Cannot open device\n"), 0U);
    }
}
