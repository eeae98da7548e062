// SPDX-License-Identifier: Apache-2.0
#include "tools/accept/tty_channel.h"

#include "tools/accept/real_channel.h"
#include "tools/session/port_lock.h"
#include "tools/session/port_name.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

namespace vorn::tool::accept {

namespace {

constexpr std::size_t kPiece = 128; // what the library writes at once
constexpr Time kStalled{2000};      // no byte of the output has gone

class TtyChannel : public RealChannel {
public:
    explicit TtyChannel(std::string name) : name_(std::move(name)), lock_("/dev/" + name_)
    {
        descriptor_ = ::open(("/dev/" + name_).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        termios found{};
        if (descriptor_ < 0 || ::tcgetattr(descriptor_, &found) != 0) {
            const Failure failure = portFailure(name_);
            closeIt();
            throw failure;
        }
        settings_ = found;
        ::cfmakeraw(&settings_);
        settings_.c_cflag = CREAD | CLOCAL | CS8;
        if (!apply(9600)) {
            closeIt();
            throw portFailure(name_);
        }
    }
    ~TtyChannel() override { closeIt(); }

    bool isTty() const override { return true; }

    void setSpeed(int speed) override
    {
        drain();
        if (!apply(speed)) {
            throw gone();
        }
    }

    void send(const Bytes& bytes) override
    {
        ::tcflush(descriptor_, TCIFLUSH);
        for (std::size_t at = 0; at < bytes.size();) {
            at += write(bytes, at);
        }
        drain();
    }

    Heard listen(const Until& until) override
    {
        Heard heard;
        while (!complete(heard.bytes, until.frames)) {
            const bool text = until.frames == 0 && !heard.bytes.empty();
            if (!readable(text ? kTextSilence : until.patience)) {
                break;
            }
            if (const Bytes piece = read(); !piece.empty()) {
                notePiece(piece, heard);
            }
        }
        return heard;
    }

private:
    void closeIt()
    {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
            descriptor_ = -1;
        }
    }

    Failure gone() const { return {Exit::Port, "the port " + name_ + " is gone", "was the adapter pulled out?"}; }

    bool apply(int speed)
    {
        ::cfsetspeed(&settings_, speed == 9600 ? B9600 : B38400);
        return ::tcsetattr(descriptor_, TCSAFLUSH, &settings_) == 0;
    }

    std::size_t write(const Bytes& bytes, std::size_t at)
    {
        noteUnsent(Clock::now());
        const ssize_t count = ::write(descriptor_, bytes.data() + at, std::min(kPiece, bytes.size() - at));
        if (count >= 0) {
            return static_cast<std::size_t>(count);
        }
        if (errno != EAGAIN && errno != EINTR) {
            throw gone();
        }
        pollfd waiting{descriptor_, POLLOUT, 0};
        if (::poll(&waiting, 1, static_cast<int>(kStalled.count())) == 0) {
            throw Failure(Exit::ReaderSilent, "the port " + name_ + " takes no bytes", "check cable and adapter");
        }
        lookAtSignals();
        return 0;
    }

    int unsent()
    {
        const auto asked = Clock::now();
        int waiting = 0;
        if (::ioctl(descriptor_, TIOCOUTQ, &waiting) != 0 || waiting <= 0) {
            return 0;
        }
        noteUnsent(asked);
        return waiting;
    }

    // Waits until all is out, and drops the rest of what does not go.
    void drain()
    {
        auto progress = Clock::now();
        int before = 0;
        for (int waiting = unsent(); waiting > 0; waiting = unsent()) {
            if (waiting != before) {
                progress = Clock::now();
            } else if (Clock::now() - progress > kStalled) {
                ::tcflush(descriptor_, TCOFLUSH);
                return;
            }
            before = waiting;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }

    bool readable(Time patience) const
    {
        const auto end = Clock::now() + patience;
        for (;;) {
            lookAtSignals();
            const auto left = std::chrono::ceil<Time>(end - Clock::now());
            pollfd waiting{descriptor_, POLLIN, 0};
            const int ready = ::poll(&waiting, 1, static_cast<int>(std::max<Time::rep>(0, left.count())));
            if (ready > 0) {
                return true;
            }
            if (ready == 0) {
                return false;
            }
        }
    }

    Bytes read() const
    {
        std::uint8_t piece[512];
        const ssize_t count = ::read(descriptor_, piece, sizeof piece);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            throw gone();
        }
        return {piece, piece + std::max<ssize_t>(0, count)};
    }

    std::string name_;
    PortLock lock_;
    int descriptor_ = -1;
    termios settings_{};
};

} // namespace

std::unique_ptr<Channel> openTty(const std::string& name) { return std::make_unique<TtyChannel>(name); }

} // namespace vorn::tool::accept
