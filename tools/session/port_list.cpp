// SPDX-License-Identifier: Apache-2.0
#include "tools/session/port_list.h"

#include "tools/session/port_lock.h"
#include "tools/session/port_name.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace vorn::tool {

namespace fs = std::filesystem;

namespace {

std::string firstLine(const fs::path& file)
{
    std::string line;
    std::ifstream in(file);
    std::getline(in, line);
    return line;
}

std::string driverOf(const fs::path& tty)
{
    std::error_code error;
    return fs::read_symlink(tty / "device" / "driver", error).filename().string();
}

// The kernel lists more serial ports than there are; those without hardware have type 0.
bool hasHardware(const fs::path& tty)
{
    std::error_code error;
    return fs::exists(tty / "device", error) && firstLine(tty / "type") != "0";
}

std::string groupOf(gid_t id)
{
    const group* const entry = ::getgrgid(id);
    return entry == nullptr ? std::to_string(id) : entry->gr_name;
}

} // namespace

PortInfo portInfo(const std::string& name)
{
    PortInfo info;
    info.name = name;
    if (name == "USB") {
        info.there = usbReaderAttached();
        info.allowed = info.there;
        info.device = "USB reader";
        return info;
    }
    const std::string path = "/dev/" + name;
    struct stat file {};
    info.there = ::stat(path.c_str(), &file) == 0;
    info.tty = info.there && S_ISCHR(file.st_mode);
    info.allowed = info.there && ::access(path.c_str(), R_OK | W_OK) == 0;
    info.group = info.there ? groupOf(file.st_gid) : "";
    info.device = driverOf("/sys/class/tty/" + name);
    info.holder = lockHolder(path);
    if (info.holder.empty() && name.compare(0, 4, "pts/") != 0) { // a pseudo-terminal's other end has it open too
        info.holder = openedBy(path);
    }
    return info;
}

std::vector<PortInfo> listPorts()
{
    std::vector<PortInfo> ports;
    std::error_code error;
    for (const auto& tty : fs::directory_iterator("/sys/class/tty", error)) {
        if (hasHardware(tty.path())) {
            ports.push_back(portInfo(tty.path().filename().string()));
        }
    }
    std::sort(ports.begin(), ports.end(), [](const PortInfo& a, const PortInfo& b) { return a.name < b.name; });
    if (usbReaderAttached()) {
        ports.push_back(portInfo("USB"));
    }
    return ports;
}

} // namespace vorn::tool
