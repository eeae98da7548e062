// SPDX-License-Identifier: Apache-2.0
#include "tools/session/port_name.h"

#include "tools/cli/quote.h"
#include "tools/session/usb_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

namespace vorn::tool {

namespace fs = std::filesystem;

namespace {

const std::string kDev = "/dev/";
constexpr std::size_t kLongestName = 115; // what the library's port parameter has room for

bool startsWith(const std::string& text, const std::string& beginning)
{
    return text.compare(0, beginning.size(), beginning) == 0;
}

std::optional<std::string> belowDev(const fs::path& path)
{
    std::error_code error;
    const std::string real = fs::canonical(path, error).string();
    if (error || !startsWith(real, kDev)) {
        return std::nullopt;
    }
    return real.substr(kDev.size());
}

// "..": a port lies below /dev, wherever a name leads on its way.
bool climbs(const fs::path& name) { return std::find(name.begin(), name.end(), "..") != name.end(); }

Failure usbFailure()
{
    const std::optional<UsbReader> reader = attachedUsbReader();
    if (!reader.has_value()) {
        return {Exit::Port, "no reader on USB (3A5C:7E21)",
                "plug it in, or name the tty it is attached to with --port"};
    }
    if (::access(reader->node.c_str(), R_OK | W_OK) != 0) {
        return {Exit::Permission, "no permission to use the reader on USB (" + reader->node + ")",
                "'vorn doctor --port USB' tells what is missing: udev rule or group"};
    }
    return {Exit::Permission, "the reader on USB could not be opened",
            "another program may use it; 'vorn doctor --port USB' tells which"};
}

Failure openFailure(const std::string& path, int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
        return {Exit::Permission, "no permission to use " + path,
                "join the group that owns it, as a rule dialout ('sudo adduser $USER dialout', then log in again)"};
    case ENOENT:
    case ENOTDIR:
    case ENXIO:
    case ENODEV:
        return {Exit::Port, "no such port: " + path,
                "'ls /dev/tty*' shows the ttys; 'vorn sim' makes one without hardware"};
    case EBUSY:
        return {Exit::Port, path + " is used by another program", "end that program"};
    default:
        return {Exit::Port, path + " cannot be opened: " + std::strerror(error)};
    }
}

} // namespace

std::string portName(const std::string& written)
{
    std::string name = written;
    if (startsWith(name, kDev)) {
        name.erase(0, kDev.size());
    } else if (startsWith(name, "/")) {
        name = belowDev(name).value_or(name);
    }
    // The library ends the name at the first colon, and /dev/serial/by-path has names with colons.
    if (name.find_first_of(":,") != std::string::npos) {
        name = belowDev(kDev + name).value_or(name);
    }
    if (climbs(name)) {
        throw Failure(Exit::Usage, inQuotes(written) + " cannot be the name of a port", "a port is a tty below /dev");
    }
    if (startsWith(name, "/")) {
        throw Failure(Exit::Port, "no such port: " + inQuotes(written),
                      "a port is a tty below /dev, a link to one, or USB");
    }
    if (name.empty() || name.size() > kLongestName || name.find_first_of(":,") != std::string::npos) {
        throw Failure(Exit::Usage, inQuotes(written) + " cannot be the name of a port",
                      "for example ttyS1, pts/3 or USB");
    }
    return name;
}

Failure portFailure(const std::string& port)
{
    if (port == "USB") {
        return usbFailure();
    }
    const std::string path = kDev + port;
    std::string lower = port;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    if (lower == "usb") {
        return {Exit::Port, "no such port: " + path, "the reader on USB is named in capitals: --port USB"};
    }
    const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return openFailure(path, errno);
    }
    const bool tty = ::isatty(fd) == 1;
    ::close(fd);
    if (!tty) {
        return {Exit::Port, path + " is not a tty", "name the tty that the reader is attached to"};
    }
    return {Exit::Port, path + " does not take the line settings", "it may be a port without hardware behind it"};
}

} // namespace vorn::tool
