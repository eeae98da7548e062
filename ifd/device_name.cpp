// SPDX-License-Identifier: Apache-2.0
#include "ifd/device_name.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vorn::ifd {
namespace {

constexpr char kDev[] = "/dev/";
constexpr char kUsb[] = "usb:";

bool beginsWith(const char* text, const char* beginning)
{
    return std::strncmp(text, beginning, std::strlen(beginning)) == 0;
}

template <std::size_t N>
bool fits(int printed, const char (&)[N])
{
    return printed > 0 && static_cast<std::size_t>(printed) < N;
}

bool readPlace(const char* text, DeviceName& name)
{
    for (unsigned i = 0; i < kPlaces; ++i) {
        if (std::strcmp(text, kPlaceRows[i].name) == 0) {
            name.first = static_cast<Place>(i);
            name.slots = 1;
            return true;
        }
    }
    return false;
}

bool readTty(const char* text, DeviceName& name)
{
    const char* const colon = std::strchr(text, ':');
    if (colon != nullptr && !readPlace(colon + 1, name)) {
        return false;
    }
    const std::size_t length = colon != nullptr ? static_cast<std::size_t>(colon - text) : std::strlen(text);
    const std::size_t lead = sizeof kDev - 1;
    if (length <= lead || length >= sizeof name.port.tty || std::strstr(text, "..") != nullptr) {
        return false;
    }
    std::memcpy(name.port.tty, text, length);
    return fits(std::snprintf(name.port.parameter, sizeof name.port.parameter, "%s:9600,N,8,1", name.port.tty + lead),
                name.port.parameter);
}

bool readUsb(const char* text, DeviceName& name)
{
    char* rest = nullptr;
    const unsigned long vendor = std::strtoul(text, &rest, 16);
    if (rest == text || *rest != '/') {
        return false;
    }
    const char* const second = rest + 1;
    const unsigned long product = std::strtoul(second, &rest, 16);
    if (rest == second || vendor > 0xFFFF || product > 0xFFFF) {
        return false;
    }
    name.port.mode = 1;
    return fits(std::snprintf(name.port.parameter, sizeof name.port.parameter, "VID_%04lX&PID_%04lX", vendor, product),
                name.port.parameter);
}

} // namespace

bool Port::operator==(const Port& other) const
{
    return mode == other.mode && std::strcmp(parameter, other.parameter) == 0;
}

bool readDeviceName(const char* text, DeviceName& name)
{
    name = DeviceName{};
    if (text == nullptr) {
        return false;
    }
    if (beginsWith(text, kDev)) {
        return readTty(text, name);
    }
    return beginsWith(text, kUsb) && readUsb(text + sizeof kUsb - 1, name);
}

} // namespace vorn::ifd
