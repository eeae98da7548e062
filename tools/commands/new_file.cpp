// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/new_file.h"

#include "tools/cli/errors.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vorn::tool {

NewFile::NewFile(const std::string& path, bool replace)
    : path_(path), fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (replace ? O_TRUNC : O_EXCL), 0600))
{
    if (fd_ < 0) {
        const bool there = errno == EEXIST;
        throw Failure(Exit::Output, path + ": " + std::strerror(errno), there ? "--force replaces it" : "");
    }
    ::fchmod(fd_, 0600);
}

NewFile::~NewFile()
{
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

void NewFile::write(const std::string& text)
{
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(fd_, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            throw Failure(Exit::Output, path_ + ": " + std::strerror(errno));
        }
        done += count < 0 ? 0 : static_cast<std::size_t>(count);
    }
}

void NewFile::close()
{
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) {
        throw Failure(Exit::Output, path_ + ": " + std::strerror(errno));
    }
}

} // namespace vorn::tool
