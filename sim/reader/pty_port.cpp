// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/pty_port.h"

#include "sim/data/printable.h"

#include <climits>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/timerfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace vorn::sim {

namespace {

using Steady = std::chrono::steady_clock; // CLOCK_MONOTONIC, which the timer descriptor counts in too
using Time = Steady::time_point;

constexpr int kBitsPerByte = 10;       // 8N1
constexpr int kPiecesPerSecond = 1000; // a paced answer is handed over about a millisecond's worth at a time
constexpr std::size_t kReadSize = 4096;
// While so many bytes of either direction wait for their time, nothing more is read: a host that writes without end,
// or asks for answers that are delayed by an hour, waits as on a line that is busy.
constexpr std::size_t kWaitingMax = 65536;

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), printable(what));
}

class Descriptor {
public:
    Descriptor() = default;
    Descriptor(int fd, const std::string& what) : fd_(fd)
    {
        if (fd < 0) {
            fail(what);
        }
    }
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

private:
    int fd_ = -1;
};

struct SpeedRow {
    speed_t code;
    int speed;
};
constexpr SpeedRow kSpeeds[] = {{B1200, 1200},   {B2400, 2400},   {B4800, 4800},   {B9600, 9600},
                                {B19200, 19200}, {B38400, 38400}, {B57600, 57600}, {B115200, 115200}};

// The speed that the host has set: the master sees its own tty's settings. -1: one that no reader listens at.
int hostSpeed(int master)
{
    termios settings{};
    if (::tcgetattr(master, &settings) != 0) {
        return -1;
    }
    const speed_t code = ::cfgetospeed(&settings);
    const auto* const row =
        std::find_if(std::begin(kSpeeds), std::end(kSpeeds), [code](const SpeedRow& r) { return r.code == code; });
    return row == std::end(kSpeeds) ? -1 : row->speed;
}

Steady::duration timeOnLine(std::size_t bytes, int speed)
{
    const auto bits = static_cast<std::int64_t>(bytes) * kBitsPerByte;
    return std::chrono::nanoseconds(bits * 1'000'000'000 / speed);
}

// What came from the host: at which of its speeds (0: cannot be said), and when its last byte is through.
struct Arrival {
    Bytes bytes;
    int speed;
    Time at;
    std::optional<Time> complete;
};

struct Piece {
    Bytes bytes;
    Time due;
};

} // namespace

struct PtyPort::State {
    Reader& reader;
    Options options;
    Descriptor master, keeper, stop, timer;
    std::string path; // "/dev/pts/3"
    std::string name; // "pts/3"
    std::mutex mutex;
    std::atomic<unsigned long> toReader{0}, fromReader{0};
    std::thread thread;

    // The thread's own.
    std::deque<Arrival> arrivals;
    std::deque<Piece> pieces;
    std::optional<Piece> ifSilent;                   // goes out if nothing comes before it is due
    std::size_t arrivingBytes = 0, leavingBytes = 0; // in them
    Time receiverFree{}, senderFree{};
    int readerSpeed = 0;
    int knownSpeed = 0;
    bool speedUnsure = false;

    State(Reader& r, Options o) : reader(r), options(std::move(o)) {}
    void open();
    void makeLink() const;
    void removeLink() const;

    void serve();
    bool waitForWork();
    bool busy() const { return arrivingBytes >= kWaitingMax || leavingBytes >= kWaitingMax; }
    void setTimer() const;
    bool readMaster();
    void noteSpeedChange();
    void addArrival(const std::uint8_t* bytes, std::size_t count);
    void deliverArrivals();
    void queue(const Reader::Output& output, Time from);
    void writePieces();
};

// ---------------------------------------------------------------- opening

void PtyPort::State::open()
{
    master = Descriptor(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "cannot open a pseudo-terminal");
    if (::grantpt(master.get()) != 0 || ::unlockpt(master.get()) != 0) {
        fail("cannot unlock the pseudo-terminal");
    }
    std::array<char, 64> text{};
    if (const int error = ::ptsname_r(master.get(), text.data(), text.size()); error != 0) {
        throw std::system_error(error, std::generic_category(), "cannot find the pseudo-terminal's name");
    }
    path = text.data();
    name = path.substr(std::string("/dev/").size());

    // While no one has the tty open the master only fails with EIO, and its settings are forgotten: hold it open.
    keeper = Descriptor(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "cannot open " + path);
    termios settings{};
    if (::tcgetattr(keeper.get(), &settings) != 0) {
        fail("cannot read the settings of " + path);
    }
    ::cfmakeraw(&settings);
    ::cfsetspeed(&settings, B9600);
    if (::tcsetattr(keeper.get(), TCSANOW, &settings) != 0) {
        fail("cannot set " + path + " to raw bytes");
    }

    // Packet mode: the master is told when the host changes settings with a flush, so it knows at which speed the
    // bytes before and after were sent.
    int on = 1;
    if (::ioctl(master.get(), TIOCPKT, &on) != 0) {
        fail("cannot watch the settings of " + path);
    }
    stop = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "cannot make an event descriptor");
    timer = Descriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "cannot make a timer");
    makeLink();
}

// A link that an earlier run left behind is replaced; anything else of that name is not touched.
void PtyPort::State::makeLink() const
{
    const char* const link = options.link.c_str();
    if (options.link.empty() || ::symlink(path.c_str(), link) == 0) {
        return;
    }
    std::array<char, 1> first{};
    const int error = errno;
    if (error == EEXIST && ::readlink(link, first.data(), first.size()) > 0) {
        if (::unlink(link) != 0 || ::symlink(path.c_str(), link) != 0) {
            fail("cannot replace the link " + options.link);
        }
        return;
    }
    throw std::system_error(error, std::generic_category(), printable("cannot make the link " + options.link));
}

void PtyPort::State::removeLink() const
{
    std::array<char, PATH_MAX> target{};
    if (!options.link.empty() && ::readlink(options.link.c_str(), target.data(), target.size() - 1) > 0 &&
        path == target.data()) {
        ::unlink(options.link.c_str());
    }
}

// ---------------------------------------------------------------- the thread

void PtyPort::State::serve()
{
    do {
        deliverArrivals();
        writePieces();
        setTimer();
    } while (waitForWork());
}

// False: end, because told so or because the pseudo-terminal is gone.
bool PtyPort::State::waitForWork()
{
    const short wanted = busy() ? 0 : POLLIN;
    std::array<pollfd, 3> waiting{{{master.get(), wanted, 0}, {stop.get(), POLLIN, 0}, {timer.get(), POLLIN, 0}}};
    if (::poll(waiting.data(), waiting.size(), -1) < 0) {
        return errno == EINTR;
    }
    if (waiting[1].revents != 0) {
        return false;
    }
    if (waiting[2].revents != 0) {
        std::uint64_t expirations = 0;
        if (::read(timer.get(), &expirations, sizeof expirations) < 0 && errno != EAGAIN) {
            return false;
        }
    }
    return waiting[0].revents == 0 || readMaster();
}

// The next thing that is due, as an absolute time: what one wake-up is late does not move the next one.
void PtyPort::State::setTimer() const
{
    std::optional<Time> next;
    if (!arrivals.empty()) {
        next = arrivals.front().complete;
    }
    if (!pieces.empty() && (!next || pieces.front().due < *next)) {
        next = pieces.front().due;
    }
    if (ifSilent && (!next || ifSilent->due < *next)) {
        next = ifSilent->due;
    }
    itimerspec when{};
    if (next) {
        const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(next->time_since_epoch()).count();
        when.it_value.tv_sec = ns / 1'000'000'000;
        when.it_value.tv_nsec = ns % 1'000'000'000;
    }
    ::timerfd_settime(timer.get(), TFD_TIMER_ABSTIME, &when, nullptr);
}

bool PtyPort::State::readMaster()
{
    std::array<std::uint8_t, kReadSize> buffer{};
    while (!busy()) {
        const ssize_t count = ::read(master.get(), buffer.data(), buffer.size());
        if (count < 0) {
            speedUnsure = false; // whatever comes now was sent after the change
            return errno == EAGAIN || errno == EINTR;
        }
        if (count == 0) {
            return false;
        }
        if (buffer[0] != TIOCPKT_DATA) {
            noteSpeedChange();
        } else if (count > 1) {
            addArrival(buffer.data() + 1, static_cast<std::size_t>(count - 1));
        }
    }
    return true;
}

// The notice overtakes bytes that were already on their way. When some are waiting, nobody can say on which side of
// the change they were sent, and the reader gives the host the benefit of the doubt.
void PtyPort::State::noteSpeedChange()
{
    const int speed = hostSpeed(master.get());
    if (speed == knownSpeed) {
        return;
    }
    knownSpeed = speed;
    pollfd data{master.get(), POLLIN, 0};
    speedUnsure = ::poll(&data, 1, 0) == 1 && (data.revents & POLLIN) != 0;
}

void PtyPort::State::addArrival(const std::uint8_t* bytes, std::size_t count)
{
    toReader += count;
    arrivingBytes += count;
    const int speed = hostSpeed(master.get());
    const bool unsure = speedUnsure || speed != knownSpeed;
    knownSpeed = speed;
    ifSilent.reset();
    arrivals.push_back({Bytes(bytes, bytes + count), unsure ? 0 : speed, Steady::now(), std::nullopt});
}

// A command counts when its last byte is through. Bytes written back to back wait for the ones before them.
void PtyPort::State::deliverArrivals()
{
    while (!arrivals.empty()) {
        Arrival& head = arrivals.front();
        if (!head.complete) {
            const auto onLine = options.paced ? timeOnLine(head.bytes.size(), readerSpeed) : Steady::duration::zero();
            head.complete = std::max(head.at, receiverFree) + onLine;
        }
        if (*head.complete > Steady::now()) {
            return;
        }
        std::vector<Reader::Output> outputs;
        {
            const std::lock_guard<std::mutex> guard(mutex);
            outputs = reader.receive(head.bytes, head.speed);
            readerSpeed = reader.listeningSpeed();
        }
        receiverFree = *head.complete;
        for (const Reader::Output& output : outputs) {
            queue(output, receiverFree);
        }
        arrivingBytes -= head.bytes.size();
        arrivals.pop_front();
    }
}

void PtyPort::State::queue(const Reader::Output& output, Time from)
{
    if (output.ifSilent) {
        ifSilent = Piece{output.bytes, from + output.delay};
        return;
    }
    const Time start = std::max(from + output.delay, senderFree);
    const std::size_t size = output.bytes.size();
    leavingBytes += size;
    const auto perPiece = static_cast<std::size_t>(std::max(readerSpeed / kBitsPerByte / kPiecesPerSecond, 1));
    const std::size_t step = options.paced ? perPiece : std::max<std::size_t>(size, 1);
    for (std::size_t at = 0; at < size; at += step) {
        const std::size_t end = std::min(at + step, size);
        const auto onLine = options.paced ? timeOnLine(end, readerSpeed) : Steady::duration::zero();
        pieces.push_back({Bytes(output.bytes.begin() + static_cast<std::ptrdiff_t>(at),
                                output.bytes.begin() + static_cast<std::ptrdiff_t>(end)),
                          start + onLine});
        senderFree = pieces.back().due;
    }
}

// What the host does not take while its buffer is full is lost, as on a line.
void PtyPort::State::writePieces()
{
    if (ifSilent && ifSilent->due <= Steady::now()) {
        queue({std::exchange(ifSilent, std::nullopt)->bytes}, Steady::now());
    }
    while (!pieces.empty() && pieces.front().due <= Steady::now()) {
        const Bytes& bytes = pieces.front().bytes;
        fromReader += bytes.size(); // before a host can have read them and look
        const ssize_t written = ::write(master.get(), bytes.data(), bytes.size());
        fromReader -= bytes.size() - (written > 0 ? static_cast<std::size_t>(written) : 0);
        leavingBytes -= bytes.size();
        pieces.pop_front();
    }
}

// ---------------------------------------------------------------- interface

PtyPort::PtyPort(Reader& reader, Options options) : state_(std::make_unique<State>(reader, std::move(options)))
{
    state_->open();
    state_->readerSpeed = reader.listeningSpeed();
    state_->knownSpeed = hostSpeed(state_->master.get());
    State* const state = state_.get();
    state_->thread = std::thread([state] {
        try {
            state->serve();
        } catch (const std::exception&) { // out of memory: the reader falls silent, and its process goes on
        }
    });
}

PtyPort::~PtyPort()
{
    const std::uint64_t one = 1;
    if (::write(state_->stop.get(), &one, sizeof one) != static_cast<ssize_t>(sizeof one)) {
        std::abort(); // the thread would be waited for without end
    }
    state_->thread.join();
    state_->removeLink();
}

const std::string& PtyPort::name() const { return state_->name; }

PtyPort::Traffic PtyPort::traffic() const { return {state_->toReader, state_->fromReader}; }

void PtyPort::lock() { state_->mutex.lock(); }

void PtyPort::unlock() { state_->mutex.unlock(); }

} // namespace vorn::sim
