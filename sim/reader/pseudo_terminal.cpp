// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/pseudo_terminal.h"

#include "sim/data/printable.h"

#include <climits>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace vorn::sim {

namespace {

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), printable(what));
}

struct SpeedRow {
    speed_t code;
    int speed;
};
constexpr SpeedRow kSpeeds[] = {{B300, 300},      {B600, 600},       {B1200, 1200},     {B2400, 2400},
                                {B4800, 4800},    {B9600, 9600},     {B19200, 19200},   {B38400, 38400},
                                {B57600, 57600},  {B115200, 115200}, {B230400, 230400}, {B460800, 460800},
                                {B921600, 921600}};

} // namespace

Descriptor::Descriptor(int fd, const std::string& what) : fd_(fd)
{
    if (fd < 0) {
        fail(what);
    }
}

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    std::swap(fd_, other.fd_);
    return *this;
}

Descriptor::~Descriptor()
{
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

int speedOf(speed_t code)
{
    const auto* const row =
        std::find_if(std::begin(kSpeeds), std::end(kSpeeds), [code](const SpeedRow& r) { return r.code == code; });
    return row == std::end(kSpeeds) ? -1 : row->speed;
}

PseudoTerminal::PseudoTerminal(std::string link) : link_(std::move(link))
{
    open();
    makeLink();
}

PseudoTerminal::~PseudoTerminal()
{
    std::array<char, PATH_MAX> target{};
    if (!link_.empty() && ::readlink(link_.c_str(), target.data(), target.size() - 1) > 0 && path_ == target.data()) {
        ::unlink(link_.c_str());
    }
}

void PseudoTerminal::open()
{
    master_ = Descriptor(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "cannot open a pseudo-terminal");
    if (::grantpt(master_.get()) != 0 || ::unlockpt(master_.get()) != 0) {
        fail("cannot unlock the pseudo-terminal");
    }
    std::array<char, 64> text{};
    if (const int error = ::ptsname_r(master_.get(), text.data(), text.size()); error != 0) {
        throw std::system_error(error, std::generic_category(), "cannot find the pseudo-terminal's name");
    }
    path_ = text.data();
    name_ = path_.substr(std::string("/dev/").size());

    // While no one has the tty open the master only fails with EIO, and its settings are forgotten: hold it open.
    keeper_ = Descriptor(::open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "cannot open " + path_);
    termios settings{};
    if (::tcgetattr(keeper_.get(), &settings) != 0) {
        fail("cannot read the settings of " + path_);
    }
    ::cfmakeraw(&settings);
    ::cfsetspeed(&settings, B9600);
    if (::tcsetattr(keeper_.get(), TCSANOW, &settings) != 0) {
        fail("cannot set " + path_ + " to raw bytes");
    }
    int on = 1;
    if (::ioctl(master_.get(), TIOCPKT, &on) != 0) {
        fail("cannot watch the settings of " + path_);
    }
}

void PseudoTerminal::makeLink() const
{
    const char* const link = link_.c_str();
    if (link_.empty() || ::symlink(path_.c_str(), link) == 0) {
        return;
    }
    std::array<char, 1> first{};
    const int error = errno;
    if (error == EEXIST && ::readlink(link, first.data(), first.size()) > 0) {
        if (::unlink(link) != 0 || ::symlink(path_.c_str(), link) != 0) {
            fail("cannot replace the link " + link_);
        }
        return;
    }
    throw std::system_error(error, std::generic_category(), printable("cannot make the link " + link_));
}

// The master sees its own tty's settings.
speed_t PseudoTerminal::hostSpeed() const
{
    termios settings{};
    return ::tcgetattr(master_.get(), &settings) == 0 ? ::cfgetospeed(&settings) : B0;
}

} // namespace vorn::sim
