// SPDX-License-Identifier: Apache-2.0
#include "tools/session/port_lock.h"

#include "tools/cli/errors.h"
#include "tools/explain/present.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace vorn::tool {

namespace fs = std::filesystem;

namespace {

std::string programOf(const std::string& process)
{
    std::string name;
    std::getline(std::ifstream("/proc/" + process + "/comm"), name);
    return (name.empty() ? "a program" : printable(name)) + " (process " + process + ")";
}

bool isNumber(const std::string& text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

Failure busy(const std::string& path, const std::string& holder)
{
    return {Exit::PortBusy, path + " is used by " + (holder.empty() ? "another program" : holder),
            "end that program, or wait until it is done"};
}

} // namespace

// Lines of /proc/locks: "1: FLOCK  ADVISORY  WRITE 4711 00:18:5 0 EOF", the device's numbers in hex.
std::string lockHolder(const std::string& path)
{
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return {};
    }
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream fields(line);
        std::string number, kind, advisory, access, process, file;
        fields >> number >> kind >> advisory >> access >> process >> file;
        unsigned major = 0, minor = 0;
        unsigned long node = 0;
        if (std::sscanf(file.c_str(), "%x:%x:%lu", &major, &minor, &node) == 3 && node == info.st_ino &&
            major == gnu_dev_major(info.st_dev) && minor == gnu_dev_minor(info.st_dev) && isNumber(process)) {
            return programOf(process);
        }
    }
    return {};
}

std::string openedBy(const std::string& path)
{
    std::error_code error;
    const std::string self = std::to_string(::getpid());
    for (const auto& process : fs::directory_iterator("/proc", error)) {
        const std::string number = process.path().filename().string();
        if (!isNumber(number) || number == self) {
            continue;
        }
        for (const auto& file : fs::directory_iterator(process.path() / "fd", error)) {
            if (fs::read_symlink(file.path(), error) == path) {
                return programOf(number);
            }
        }
    }
    return {};
}

PortLock::PortLock(const std::string& path)
{
    descriptor_ = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor_ < 0) {
        if (errno == EBUSY) {
            throw busy(path, openedBy(path));
        }
        return;
    }
    if (::isatty(descriptor_) != 1) {
        ::close(descriptor_);
        descriptor_ = -1;
        return;
    }
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        const Failure failure = busy(path, lockHolder(path));
        ::close(descriptor_);
        throw failure;
    }
    known_ = ::tcgetattr(descriptor_, &settings_) == 0;
}

PortLock::~PortLock()
{
    if (descriptor_ >= 0) {
        restoreSettings();
        ::close(descriptor_);
    }
}

void PortLock::restoreSettings() const
{
    termios now{};
    if (known_ && ::tcgetattr(descriptor_, &now) == 0 && std::memcmp(&now, &settings_, sizeof now) != 0) {
        ::tcsetattr(descriptor_, TCSANOW, &settings_);
    }
}

} // namespace vorn::tool
