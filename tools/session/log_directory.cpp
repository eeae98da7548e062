// SPDX-License-Identifier: Apache-2.0
#include "tools/session/log_directory.h"

#include "tools/cli/errors.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"

#include <fcntl.h>
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
    if (::mkdtemp(path.data()) == nullptr) {
        throw Failure(Exit::Output, "no directory for the log files: " + path + ": " + std::strerror(errno),
                      "set TMPDIR, or name one with --log-dir");
    }
    return std::filesystem::absolute(path).string();
}

} // namespace

LogDirectory::LogDirectory(const std::string& wanted, bool keep) : remove_(wanted.empty() && !keep)
{
    ::umask(S_IRWXG | S_IRWXO);
    if (wanted.empty()) {
        path_ = ownDirectory();
    } else {
        if (::mkdir(wanted.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
            throw Failure(Exit::Output, "cannot make the directory " + wanted + ": " + std::strerror(errno));
        }
        path_ = std::filesystem::absolute(wanted).string();
    }
    if (remove_) {
        removeOnSecondInterrupt(path_);
    }
    previous_ = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (::chdir(path_.c_str()) != 0) {
        throw Failure(Exit::Output, "cannot use the directory " + path_ + ": " + std::strerror(errno));
    }
    const int chatter = ::open(kChatterFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (chatter < 0) {
        throw Failure(Exit::Output, "cannot write to the directory " + path_ + ": " + std::strerror(errno));
    }
    divertChatter(chatter);
    ::close(chatter);
}

LogDirectory::~LogDirectory()
{
    std::fflush(stdout);
    if (previous_ >= 0) {
        if (::fchdir(previous_) != 0) {
            note("cannot go back to the working directory");
        }
        ::close(previous_);
    }
    if (!remove_) {
        note("log files with card data in clear: " + path_);
        return;
    }
    for (const char* const file : kLogFiles) {
        ::unlink((path_ + "/" + file).c_str());
    }
    ::rmdir(path_.c_str());
    keepOnSecondInterrupt();
}

} // namespace vorn::tool
