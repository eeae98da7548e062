// SPDX-License-Identifier: Apache-2.0
// The library's log files go where it is started; a measurement has a directory of its own, which goes away with it.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace vorn::bench {

// For measurements of so many calls that the files would grow large.
inline void removeLogs()
{
    for (const char* file : {"ICC_COMM_VORN.log", "vr_log.txt"}) {
        std::error_code ignored;
        std::filesystem::remove(file, ignored);
    }
}

class OwnDirectory {
public:
    OwnDirectory()
    {
        path_ = (std::filesystem::temp_directory_path() / "vorn-bench-XXXXXX").string();
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no working directory for the measurement");
        }
        std::filesystem::current_path(path_);
    }
    ~OwnDirectory()
    {
        std::error_code ignored;
        std::filesystem::current_path("/", ignored);
        std::filesystem::remove_all(path_, ignored);
    }
    OwnDirectory(const OwnDirectory&) = delete;
    OwnDirectory& operator=(const OwnDirectory&) = delete;

private:
    std::string path_;
};

} // namespace vorn::bench
