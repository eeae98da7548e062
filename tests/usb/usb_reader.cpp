// SPDX-License-Identifier: Apache-2.0
// A reader on USB for another process: the emulated device with a simulated reader behind it. The first line on standard
// output is the directory that the other one gets as UMOCKDEV_DIR; then it does what it is told on standard input: "plug",
// "unplug", each answered by "done", until the input ends.
#include "sim/profiles/profile.h"
#include "sim/reader/reader.h"
#include "usb/usb_device.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

using vorn::test::Bytes;
using vorn::test::UsbDevice;

namespace {

void plug(UsbDevice& device, vorn::sim::Reader& reader)
{
    device.plug();
    device.onWrite = [&](const Bytes& bytes) {
        for (const vorn::sim::Reader::Output& output : reader.receive(bytes)) {
            device.send(output.bytes);
        }
    };
    device.announce();
}

int run(const std::string& profile)
{
    vorn::sim::Reader reader;
    vorn::sim::load(vorn::sim::findProfile(profile), reader);
    UsbDevice& device = UsbDevice::instance();
    const char* const directory = std::getenv("UMOCKDEV_DIR");
    std::cout << (directory != nullptr ? directory : "") << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        if (line == "plug") {
            plug(device, reader);
        } else if (line == "unplug") {
            device.unplug();
        } else {
            std::cerr << "neither plug nor unplug: " << line << "\n";
            return EXIT_FAILURE;
        }
        std::cout << "done" << std::endl;
    }
    device.unplug();
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: usb_reader PROFILE\n";
        return EXIT_FAILURE;
    }
    try {
        return run(argv[1]);
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return EXIT_FAILURE;
    }
}
