// SPDX-License-Identifier: Apache-2.0
#include "support/line.h"

#include "support/clock.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace vorn::test {
namespace {

int check(int result, const char* what)
{
    if (result < 0) {
        throw std::runtime_error(what);
    }
    return result;
}

int bitsPerSecond(speed_t code)
{
    static const struct {
        speed_t code;
        int speed;
    } table[] = {
        {B1200, 1200}, {B2400, 2400}, {B4800, 4800}, {B9600, 9600}, {B19200, 19200}, {B38400, 38400}, {B115200, 115200},
    };
    for (const auto& row : table) {
        if (row.code == code) {
            return row.speed;
        }
    }
    return -1;
}

} // namespace

Bytes fromHex(const std::string& hex)
{
    Bytes bytes;
    std::string digits;
    for (const char c : hex) {
        if (std::isspace(static_cast<unsigned char>(c)) != 0) {
            continue;
        }
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) {
            throw std::invalid_argument("not hex: " + hex);
        }
        digits += c;
    }
    if (digits.size() % 2 != 0) {
        throw std::invalid_argument("odd hex: " + hex);
    }
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

std::string toHex(const Bytes& bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

Line::Line()
{
    master_ = check(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "no pseudo-terminal");
    check(grantpt(master_), "grantpt");
    check(unlockpt(master_), "unlockpt");
    char name[64];
    check(ptsname_r(master_, name, sizeof name) == 0 ? 0 : -1, "ptsname");
    port_ = std::string(name).substr(sizeof "/dev/" - 1);
    keeper_ = check(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC), "the pseudo-terminal's other end");
    Clock::onSleep([this] { serve(); });
}

Line::~Line()
{
    Clock::onSleep({});
    close(keeper_);
    if (master_ >= 0) {
        close(master_);
    }
}

void Line::send(const Bytes& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(master_, bytes.data() + done, bytes.size() - done);
        if (n <= 0) {
            throw std::runtime_error("the line takes no more");
        }
        done += static_cast<std::size_t>(n);
    }
}

void Line::sendAndArrive(const Bytes& bytes)
{
    const auto received = [this] {
        int count = 0;
        check(ioctl(keeper_, FIONREAD, &count), "FIONREAD");
        return static_cast<std::size_t>(count);
    };
    const std::size_t before = received();
    send(bytes);
    for (int tries = 0; received() < before + bytes.size(); ++tries) {
        check(tries < 100000 ? 0 : -1, "the bytes do not arrive");
        usleep(100);
    }
}

void Line::sendLater(const Bytes& bytes, int afterMs)
{
    pending_.push_back({Clock::microseconds() + std::int64_t{afterMs} * 1000, bytes});
}

void Line::forget()
{
    pieces_.clear();
    sent_.clear();
}

int Line::speed() const
{
    struct termios now {};
    check(tcgetattr(keeper_, &now), "tcgetattr");
    return bitsPerSecond(cfgetospeed(&now));
}

struct termio Line::settings() const
{
    struct termio now {};
    check(ioctl(keeper_, TCGETA, &now), "TCGETA");
    return now;
}

void Line::setSettings(const struct termio& settings) { check(ioctl(keeper_, TCSETA, &settings), "TCSETA"); }

void Line::setRaw()
{
    struct termios settings {};
    check(tcgetattr(keeper_, &settings), "tcgetattr");
    cfmakeraw(&settings);
    check(tcsetattr(keeper_, TCSANOW, &settings), "tcsetattr");
}

void Line::hangUp()
{
    close(master_);
    master_ = -1;
}

void Line::discardUnread()
{
    pending_.clear();
    const struct termio before = settings();
    struct termio raw = before;
    raw.c_lflag = 0;
    raw.c_iflag = 0;
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    setSettings(raw);
    // A pty hands bytes over from a thread of the kernel, in order: all is through when this mark is.
    static const Bytes mark = fromHex("FE01FD02FC03FB04");
    send(mark);
    for (Bytes unread; unread.size() < mark.size() || !std::equal(mark.rbegin(), mark.rend(), unread.rbegin());) {
        std::uint8_t byte = 0;
        check(static_cast<int>(read(keeper_, &byte, 1)), "the pseudo-terminal's other end");
        unread.push_back(byte);
    }
    setSettings(before);
}

void Line::serve()
{
    if (master_ < 0) {
        return;
    }
    Bytes bytes;
    std::uint8_t part[4096];
    for (ssize_t n = 0; (n = read(master_, part, sizeof part)) > 0;) {
        bytes.insert(bytes.end(), part, part + n);
    }
    if (!bytes.empty()) {
        const int speedNow = speed();
        pieces_.push_back(toHex(bytes) + "@" + std::to_string(speedNow));
        sent_.insert(sent_.end(), bytes.begin(), bytes.end());
        if (onBytes) {
            onBytes(bytes, speedNow);
        }
    }
    while (!pending_.empty() && pending_.front().due <= Clock::microseconds()) {
        const Bytes due = std::move(pending_.front().bytes);
        pending_.erase(pending_.begin());
        send(due);
    }
}

} // namespace vorn::test
