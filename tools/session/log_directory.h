// SPDX-License-Identifier: Apache-2.0
// Where the library's log files go. They hold card numbers in clear and are written to the working directory, so the
// tool works in a directory that only its user may enter, and takes it away afterwards.
#pragma once

#include "vorn/log.h"

#include <array>
#include <string>

namespace vorn::tool {

constexpr const char* kChatterFile = "console.txt"; // what the library prints
constexpr std::array<const char*, 3> kLogFiles = {VORN_TRACE_FILE, VORN_SERVICE_FILE, kChatterFile};

class LogDirectory {
public:
    // wanted: empty for a directory of its own, which is removed unless it is to be kept.
    LogDirectory(const std::string& wanted, bool keep);
    ~LogDirectory();
    LogDirectory(const LogDirectory&) = delete;
    LogDirectory& operator=(const LogDirectory&) = delete;

    std::string serviceLog() const { return path_ + "/" + VORN_SERVICE_FILE; }

private:
    std::string path_;
    int previous_ = -1; // the working directory before
    bool remove_ = false;
};

} // namespace vorn::tool
