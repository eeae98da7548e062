// SPDX-License-Identifier: Apache-2.0
#include "tools/session/line_relay.h"

#include "tools/session/port_name.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace vorn::tool {

namespace {

using Kind = sim::RecordedLine::Kind;

// While so many bytes of a direction wait, no more of them are read: who sends them waits as on a line that is busy.
constexpr std::size_t kWaitingMax = 65536;
// A host that changes its speed without a flush is not told of; it is looked at so often, in milliseconds.
constexpr int kLookAgain = 20;
constexpr int kLastLook = 50; // for the reader's answer to what a host wrote at its end
constexpr std::chrono::seconds kLongestEnd{3};

constexpr speed_t kCodes[] = {B300,   B600,   B1200,   B2400,   B4800,   B9600,  B19200,
                              B38400, B57600, B115200, B230400, B460800, B921600};

bool transient() { return errno == EAGAIN || errno == EINTR; }

short waitFor(bool read, bool write) { return static_cast<short>((read ? POLLIN : 0) | (write ? POLLOUT : 0)); }

} // namespace

LineRelay::LineRelay(const std::string& path, const std::string& link, Recorder recorder)
    : recorder_(std::move(recorder)), terminal_(link), knownSpeed_(sim::speedOf(terminal_.hostSpeed()))
{
    openPort(path);
    setPortSpeed(knownSpeed_);
}

void LineRelay::openPort(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    termios settings{};
    if (fd < 0 || ::tcgetattr(fd, &settings) != 0) {
        if (fd >= 0) {
            ::close(fd);
        }
        throw portFailure(path.substr(std::string("/dev/").size()));
    }
    port_ = sim::Descriptor(fd, path);
    ::cfmakeraw(&settings);
    settings.c_cflag &= ~(CSTOPB | CRTSCTS);
    settings.c_cflag |= CREAD | CLOCAL;
    settings.c_cc[VMIN] = 1; // a read of nothing is a line that was hung up
    settings.c_cc[VTIME] = 0;
    if (::tcsetattr(fd, TCSANOW, &settings) != 0) {
        throw portFailure(path.substr(std::string("/dev/").size()));
    }
}

std::chrono::microseconds LineRelay::now() const
{
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begun_);
}

void LineRelay::record(Kind kind, int speed, const Bytes& bytes)
{
    const auto at = now();
    std::size_t done = 0;
    do {
        const std::size_t end = std::min(done + sim::RecordedLine::kBytesMax, bytes.size());
        sim::RecordedLine line;
        line.at = at;
        line.kind = kind;
        line.speed = speed;
        line.bytes.assign(bytes.begin() + static_cast<std::ptrdiff_t>(done),
                          bytes.begin() + static_cast<std::ptrdiff_t>(end));
        recorder_(std::move(line));
        done = end;
    } while (done < bytes.size());
}

// ---------------------------------------------------------------- both directions

void LineRelay::work(int other)
{
    const bool port = !gone_;
    std::array<pollfd, 3> waiting{
        {{other, POLLIN, 0},
         {terminal_.master(), waitFor(toPortBytes_ < kWaitingMax, !toHost_.empty()), 0},
         {port ? port_.get() : -1, waitFor(toHost_.size() < kWaitingMax, !toPort_.empty()), 0}}};
    ::poll(waiting.data(), waiting.size(), kLookAgain);
    readHost();
    writePort();
    readPort();
    writeHost();
}

void LineRelay::finish()
{
    const auto end = now() + kLongestEnd;
    readHost();
    while (!gone_ && !toPort_.empty() && now() < end) {
        pollfd port{port_.get(), POLLOUT, 0};
        ::poll(&port, 1, kLookAgain);
        writePort();
    }
    pollfd port{port_.get(), POLLIN, 0};
    while (!gone_ && now() < end && ::poll(&port, 1, kLastLook) > 0) {
        readPort();
        toHost_.clear();
    }
}

// ---------------------------------------------------------------- from the host

void LineRelay::readHost()
{
    std::array<std::uint8_t, 1 + sim::RecordedLine::kBytesMax> buffer{};
    while (toPortBytes_ < kWaitingMax) {
        const int speed = sim::speedOf(terminal_.hostSpeed());
        const ssize_t count = ::read(terminal_.master(), buffer.data(), buffer.size());
        if (count <= 0) {
            noteSpeed(speed); // what is read next was sent after it was looked at
            break;
        }
        if (buffer[0] != TIOCPKT_DATA) {
            if ((buffer[0] & TIOCPKT_FLUSHREAD) != 0) {
                dropUnread();
            }
        } else if (count > 1) {
            hostSent(Bytes(buffer.begin() + 1, buffer.begin() + count));
        }
    }
}

void LineRelay::hostSent(const Bytes& bytes)
{
    const int speed = sim::speedOf(terminal_.hostSpeed());
    for (auto& piece : speeds_.split(bytes, knownSpeed_, speed)) {
        noteSpeed(piece.speed);
        record(Kind::FromHost, piece.speed, piece.bytes);
        toPortBytes_ += piece.bytes.size();
        toPort_.push_back({std::move(piece.bytes), piece.speed});
    }
    noteSpeed(speed);
}

void LineRelay::noteSpeed(int speed)
{
    if (speed != knownSpeed_) {
        knownSpeed_ = speed;
        record(Kind::Speed, speed);
        toPort_.push_back({{}, speed});
    }
}

// The host throws away what it has not read. On a line of its own that would be what the port holds, too.
void LineRelay::dropUnread()
{
    toHost_.clear();
    for (Bytes bytes = takeFromPort(); !bytes.empty(); bytes = takeFromPort()) {
        record(Kind::Dropped, knownSpeed_, bytes);
    }
}

// What the port's own buffer does not take at once stays here.
void LineRelay::writePort()
{
    while (!gone_ && !toPort_.empty()) {
        Piece& piece = toPort_.front();
        if (piece.speed != portSpeed_ && !setPortSpeed(piece.speed)) {
            return;
        }
        if (!piece.bytes.empty()) {
            const ssize_t count = ::write(port_.get(), piece.bytes.data(), piece.bytes.size());
            if (count < 0 && !transient()) {
                lose();
            }
            if (count <= 0) {
                return;
            }
            toPortBytes_ -= static_cast<std::size_t>(count);
            piece.bytes.erase(piece.bytes.begin(), piece.bytes.begin() + count);
        }
        if (piece.bytes.empty()) {
            toPort_.pop_front();
        }
    }
}

// Not before what was written at the old speed has left.
bool LineRelay::setPortSpeed(int speed)
{
    const auto* const code =
        std::find_if(std::begin(kCodes), std::end(kCodes), [speed](speed_t c) { return sim::speedOf(c) == speed; });
    portSpeed_ = speed;
    if (code == std::end(kCodes)) {
        return true; // a speed that nobody has a name for: the port stays as it is
    }
    termios settings{};
    if (::tcgetattr(port_.get(), &settings) != 0) {
        lose();
        return false;
    }
    ::cfsetspeed(&settings, *code);
    ::tcsetattr(port_.get(), TCSADRAIN, &settings);
    return true;
}

// ---------------------------------------------------------------- from the reader

Bytes LineRelay::takeFromPort()
{
    std::array<std::uint8_t, sim::RecordedLine::kBytesMax> buffer{};
    const ssize_t count = gone_ ? 0 : ::read(port_.get(), buffer.data(), buffer.size());
    if (!gone_ && (count == 0 || (count < 0 && !transient()))) {
        lose();
    }
    return count > 0 ? Bytes(buffer.begin(), buffer.begin() + count) : Bytes();
}

void LineRelay::readPort()
{
    while (toHost_.size() < kWaitingMax) {
        const Bytes bytes = takeFromPort();
        if (bytes.empty()) {
            return;
        }
        toHost_.insert(toHost_.end(), bytes.begin(), bytes.end());
        writeHost();
        record(Kind::FromReader, knownSpeed_, bytes);
    }
}

void LineRelay::writeHost()
{
    while (!toHost_.empty()) {
        const ssize_t count = ::write(terminal_.master(), toHost_.data(), toHost_.size());
        if (count <= 0) {
            return;
        }
        toHost_.erase(toHost_.begin(), toHost_.begin() + count);
    }
}

void LineRelay::lose()
{
    gone_ = true;
    toPort_.clear();
    toPortBytes_ = 0;
    record(Kind::Gone, 0);
}

} // namespace vorn::tool
