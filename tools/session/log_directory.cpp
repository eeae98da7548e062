// SPDX-License-Identifier: Apache-2.0
#include "tools/session/log_directory.h"

#include "tools/cli/errors.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace vorn::tool {

namespace {

std::string ownDirectory()
{
    const char* const place = std::getenv("TMPDIR");
    std::string path = (place != nullptr && *place != '\0' ? std::string(place) : "/tmp") + "/vorn-XXXXXX";
    path = std::filesystem::absolute(path).string();
    if (::mkdtemp(path.data()) == nullptr) {
        throw Failure(Exit::Output, "no directory for the log files: " + path + ": " + std::strerror(errno),
                      "set TMPDIR, or name one with --log-dir");
    }
    return path;
}

} // namespace

LogDirectory::LogDirectory(const std::string& wanted, bool keep) : remove_(wanted.empty() && !keep)
{
    if (wanted.empty()) {
        path_ = ownDirectory();
    } else {
        path_ = std::filesystem::absolute(wanted).string();
        if (::mkdir(path_.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
            throw Failure(Exit::Output, "cannot make the directory " + wanted + ": " + std::strerror(errno));
        }
        if (::access(path_.c_str(), R_OK | W_OK | X_OK) != 0) {
            throw Failure(Exit::Output, "cannot use the directory " + path_ + ": " + std::strerror(errno));
        }
    }
    if (remove_) {
        removeInAnyCase(path_);
    }
}

LogDirectory::~LogDirectory()
{
    if (!remove_) {
        note("log files with card data in clear: " + path_);
        return;
    }
    for (const char* const file : kLogFiles) {
        ::unlink((path_ + "/" + file).c_str());
    }
    ::rmdir(path_.c_str());
    removedAlready();
}

} // namespace vorn::tool
