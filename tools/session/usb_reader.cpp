// SPDX-License-Identifier: Apache-2.0
#include "tools/session/usb_reader.h"

#include "tools/session/sysfs.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace vorn::tool {

namespace fs = std::filesystem;

namespace {

const char* const kVendor = "3a5c";
const char* const kProduct = "7e21";
// Where udev reads rules from.
const char* const kRules[] = {"/etc/udev/rules.d", "/run/udev/rules.d", "/usr/local/lib/udev/rules.d",
                              "/usr/lib/udev/rules.d", "/lib/udev/rules.d"};

// The kernel numbers buses and devices; the node has three digits of either.
std::string nodeOf(const fs::path& device)
{
    char node[64];
    std::snprintf(node, sizeof node, "/dev/bus/usb/%03d/%03d", std::atoi(attribute(device / "busnum").c_str()),
                  std::atoi(attribute(device / "devnum").c_str()));
    return node;
}

fs::path firstInterfaceOf(const fs::path& device) { return device / (device.filename().string() + ":1.0"); }

bool namesTheReader(const fs::path& rules)
{
    std::ostringstream text;
    text << std::ifstream(rules).rdbuf();
    return text.str().find(kVendor) != std::string::npos && text.str().find(kProduct) != std::string::npos;
}

bool ruleIsInstalled()
{
    for (const char* const folder : kRules) {
        std::error_code error;
        for (const auto& file : fs::directory_iterator(folder, error)) {
            if (file.path().extension() == ".rules" && namesTheReader(file.path())) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

std::optional<UsbReader> attachedUsbReader()
{
    std::error_code error;
    for (const auto& device : fs::directory_iterator("/sys/bus/usb/devices", error)) {
        if (attribute(device.path() / "idVendor") == kVendor && attribute(device.path() / "idProduct") == kProduct) {
            return UsbReader{nodeOf(device.path()), driverOf(firstInterfaceOf(device.path()))};
        }
    }
    return std::nullopt;
}

std::string usbAccessAdvice(const std::string& group)
{
    if (!ruleIsInstalled()) {
        return "install 69-vorn.rules (it comes with this tool) in /etc/udev/rules.d, run 'sudo udevadm control "
               "--reload', and plug the reader in again";
    }
    if (group == "root") {
        return "its udev rule has not been applied: plug the reader in again";
    }
    return "sudo adduser $USER " + group + ", then log in again";
}

} // namespace vorn::tool
