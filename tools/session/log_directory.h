// SPDX-License-Identifier: Apache-2.0
// Where the library's log files go. They hold card numbers in clear and are written to the working directory, so the
// library works in a directory that only its user may enter, which is taken away afterwards.
#pragma once

#include "vorn/log.h"

#include <array>
#include <string>

namespace vorn::tool {

constexpr const char* kConsoleFile = "console.txt"; // what the library prints, on either standard stream
constexpr std::array<const char*, 3> kLogFiles = {VORN_TRACE_FILE, VORN_SERVICE_FILE, kConsoleFile};

class LogDirectory {
public:
    // wanted: empty for a directory of its own, which is removed unless it is to be kept.
    LogDirectory(const std::string& wanted, bool keep);
    ~LogDirectory();
    LogDirectory(const LogDirectory&) = delete;
    LogDirectory& operator=(const LogDirectory&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
    bool remove_ = false;
};

} // namespace vorn::tool
