// SPDX-License-Identifier: Apache-2.0
#include "tools/session/port_list.h"

#include "tools/session/port_lock.h"
#include "tools/session/sysfs.h"
#include "tools/session/usb_reader.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace vorn::tool {

namespace fs = std::filesystem;

namespace {

// The kernel lists more serial ports than there are; those without hardware have type 0.
bool hasHardware(const fs::path& tty)
{
    std::error_code error;
    return fs::exists(tty / "device", error) && attribute(tty / "type") != "0";
}

std::string groupOf(gid_t id)
{
    const group* const entry = ::getgrgid(id);
    return entry == nullptr ? std::to_string(id) : entry->gr_name;
}

// Whether it is there, whose it is, and whether this user may open it. Returns its mode.
mode_t noteAccess(const std::string& path, PortInfo& info)
{
    struct stat file {};
    info.there = ::stat(path.c_str(), &file) == 0;
    info.allowed = info.there && ::access(path.c_str(), R_OK | W_OK) == 0;
    info.group = info.there ? groupOf(file.st_gid) : "";
    return file.st_mode;
}

PortInfo usbInfo()
{
    PortInfo info;
    info.name = "USB";
    info.device = "USB reader";
    if (const std::optional<UsbReader> reader = attachedUsbReader()) {
        info.device += reader->driver.empty() ? "" : ", kernel's driver " + reader->driver;
        noteAccess(reader->node, info);
        info.holder = openedBy(reader->node);
        info.advice = usbAccessAdvice(info.group);
    }
    return info;
}

} // namespace

PortInfo portInfo(const std::string& name)
{
    if (name == "USB") {
        return usbInfo();
    }
    PortInfo info;
    info.name = name;
    const std::string path = "/dev/" + name;
    info.tty = S_ISCHR(noteAccess(path, info));
    info.advice = info.group == "root" ? "have a udev rule give it to a group of its users, such as dialout"
                                       : "sudo adduser $USER " + info.group + ", then log in again";
    info.device = driverOf("/sys/class/tty/" + name + "/device");
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
    if (attachedUsbReader().has_value()) {
        ports.push_back(portInfo("USB"));
    }
    return ports;
}

} // namespace vorn::tool
