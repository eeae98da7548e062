// SPDX-License-Identifier: Apache-2.0
#include "sim/data/named_file.h"

#include "sim/data/printable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <utility>

namespace vorn::sim {
namespace {

const char* const kInside = "expected a file in the profile's folder, no absolute name and no \"..\"";
const char* const kRegular = "expected a regular file, no link, device or folder";

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor()
    {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

// The folder that the file lies in, reached step by step, and its name there.
struct Place {
    Descriptor folder;
    std::string name;
};

Place placeOf(const NamedFile& file, const char* failure)
{
    Place place{Descriptor(::open(file.folder.empty() ? "." : file.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)),
                file.name};
    for (std::size_t slash = place.name.find('/'); place.folder; slash = place.name.find('/')) {
        const std::string step = place.name.substr(0, slash);
        if (step.empty() || step == "." || step == ".." || step.find('\0') != std::string::npos) {
            throw FileError(file, kInside);
        }
        if (slash == std::string::npos) {
            return place;
        }
        place.folder =
            Descriptor(::openat(place.folder.get(), step.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        place.name.erase(0, slash + 1);
    }
    throw FileError(file, errno == ENOTDIR || errno == ELOOP ? kInside : failure);
}

// A name that nobody has in the folder, and the open file with it.
std::pair<Descriptor, std::string> temporaryFile(const Place& place)
{
    static std::atomic<unsigned> counter{0};
    constexpr int kTries = 100;
    for (int i = 0; i < kTries; ++i) {
        std::string name =
            "." + place.name + "." + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1));
        Descriptor file(
            ::openat(place.folder.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (file || errno != EEXIST) {
            return {std::move(file), std::move(name)};
        }
    }
    return {Descriptor(-1), std::string()};
}

bool writeAll(int fd, const std::string& text)
{
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t written = ::write(fd, text.data() + at, text.size() - at);
        if (written < 0 && errno != EINTR) {
            return false;
        }
        at += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
    return true;
}

} // namespace

std::string NamedFile::path() const { return folder.empty() ? name : folder + "/" + name; }

FileError::FileError(const NamedFile& file, const std::string& what)
    : std::runtime_error(printable(file.path() + ": " + what))
{}

std::string readFile(const NamedFile& file, std::size_t most)
{
    const char* const failure = "cannot be read";
    const Place place = placeOf(file, failure);
    // Not blocking: a FIFO would wait for somebody to write before anyone could see what it is.
    const Descriptor opened(
        ::openat(place.folder.get(), place.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!opened) {
        throw FileError(file, errno == ELOOP ? kRegular : failure);
    }
    struct stat status {};
    if (::fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw FileError(file, kRegular);
    }
    std::string text;
    std::array<char, 4096> buffer{};
    while (text.size() <= most) {
        const ssize_t count = ::read(opened.get(), buffer.data(), buffer.size());
        if (count == 0) {
            return text;
        }
        if (count < 0 && errno != EINTR) {
            throw FileError(file, failure);
        }
        text.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    throw FileError(file, "longer than " + std::to_string(most) + " bytes");
}

void replaceFile(const NamedFile& file, const std::string& text)
{
    const char* const failure = "cannot be written";
    const Place place = placeOf(file, failure);
    struct stat status {};
    const bool exists = ::fstatat(place.folder.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        throw FileError(file, kRegular);
    }
    const auto [temporary, name] = temporaryFile(place);
    if (!temporary) {
        throw FileError(file, failure);
    }
    if (!writeAll(temporary.get(), text) ||
        ::renameat(place.folder.get(), name.c_str(), place.folder.get(), place.name.c_str()) != 0) {
        ::unlinkat(place.folder.get(), name.c_str(), 0);
        throw FileError(file, failure);
    }
}

} // namespace vorn::sim
