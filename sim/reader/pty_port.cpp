// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/pty_port.h"

#include "sim/reader/line_speeds.h"
#include "sim/reader/pseudo_terminal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <optional>
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

Steady::duration timeOnLine(std::size_t bytes, int speed)
{
    const auto bits = static_cast<std::int64_t>(bytes) * kBitsPerByte;
    return std::chrono::nanoseconds(bits * 1'000'000'000 / speed);
}

// What came from the host: at which of its speeds, and when its last byte is through.
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
    LinePeer& reader;
    bool paced;
    PseudoTerminal terminal;
    Descriptor stop, timer;
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
    LineSpeeds speeds;
    int knownSpeed = 0;

    State(LinePeer& r, const Options& options)
        : reader(r),
          paced(options.paced),
          terminal(options.link),
          stop(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "cannot make an event descriptor"),
          timer(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "cannot make a timer")
    {}

    bool isSilent() const; // nothing has come that was not read yet
    int hostSpeed() const { return speedOf(terminal.hostSpeed()); }
    void serve();
    bool waitForWork();
    bool busy() const { return arrivingBytes >= kWaitingMax || leavingBytes >= kWaitingMax; }
    void setTimer() const;
    bool readMaster();
    void addArrivals(const Bytes& bytes);
    void deliverArrivals();
    void queue(const LinePeer::Output& output, Time from);
    void writePieces();
};

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
    std::array<pollfd, 3> waiting{{{terminal.master(), wanted, 0}, {stop.get(), POLLIN, 0}, {timer.get(), POLLIN, 0}}};
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

// What is read next was sent after the speed was looked at, when there was nothing then.
bool PtyPort::State::readMaster()
{
    std::array<std::uint8_t, kReadSize> buffer{};
    while (!busy()) {
        const int speed = hostSpeed();
        const ssize_t count = ::read(terminal.master(), buffer.data(), buffer.size());
        if (count < 0) {
            knownSpeed = errno == EAGAIN ? speed : knownSpeed;
            return errno == EAGAIN || errno == EINTR;
        }
        if (count == 0) {
            return false;
        }
        if (buffer[0] == TIOCPKT_DATA && count > 1) {
            addArrivals(Bytes(buffer.begin() + 1, buffer.begin() + count));
        }
    }
    return true;
}

bool PtyPort::State::isSilent() const
{
    pollfd data{terminal.master(), POLLIN, 0};
    return ::poll(&data, 1, 0) == 0;
}

void PtyPort::State::addArrivals(const Bytes& bytes)
{
    toReader += bytes.size();
    arrivingBytes += bytes.size();
    ifSilent.reset();
    const int speed = hostSpeed();
    for (LineSpeeds::Piece& piece : speeds.split(bytes, knownSpeed, speed)) {
        arrivals.push_back({std::move(piece.bytes), piece.speed, Steady::now(), std::nullopt});
    }
    knownSpeed = speed;
}

// A command counts when its last byte is through. Bytes written back to back wait for the ones before them.
void PtyPort::State::deliverArrivals()
{
    while (!arrivals.empty()) {
        Arrival& head = arrivals.front();
        if (!head.complete) {
            const auto onLine = paced ? timeOnLine(head.bytes.size(), readerSpeed) : Steady::duration::zero();
            head.complete = std::max(head.at, receiverFree) + onLine;
        }
        if (*head.complete > Steady::now()) {
            return;
        }
        ifSilent.reset();
        std::vector<LinePeer::Output> outputs;
        {
            const std::lock_guard<std::mutex> guard(mutex);
            outputs = reader.receive(head.bytes, head.speed);
            readerSpeed = reader.listeningSpeed();
        }
        receiverFree = *head.complete;
        for (const LinePeer::Output& output : outputs) {
            queue(output, receiverFree);
        }
        arrivingBytes -= head.bytes.size();
        arrivals.pop_front();
    }
}

void PtyPort::State::queue(const LinePeer::Output& output, Time from)
{
    if (output.ifSilent) {
        ifSilent = Piece{output.bytes, from + output.delay};
        return;
    }
    const Time start = std::max(from + output.delay, senderFree);
    const std::size_t size = output.bytes.size();
    leavingBytes += size;
    const auto perPiece = static_cast<std::size_t>(std::max(readerSpeed / kBitsPerByte / kPiecesPerSecond, 1));
    const std::size_t step = paced ? perPiece : std::max<std::size_t>(size, 1);
    for (std::size_t at = 0; at < size; at += step) {
        const std::size_t end = std::min(at + step, size);
        const auto onLine = paced ? timeOnLine(end, readerSpeed) : Steady::duration::zero();
        pieces.push_back({Bytes(output.bytes.begin() + static_cast<std::ptrdiff_t>(at),
                                output.bytes.begin() + static_cast<std::ptrdiff_t>(end)),
                          start + onLine});
        senderFree = pieces.back().due;
    }
}

// What the host does not take while its buffer is full is lost, as on a line.
void PtyPort::State::writePieces()
{
    if (ifSilent && ifSilent->due <= Steady::now() && isSilent()) {
        queue({std::exchange(ifSilent, std::nullopt)->bytes}, Steady::now());
    }
    while (!pieces.empty() && pieces.front().due <= Steady::now()) {
        const Bytes& bytes = pieces.front().bytes;
        fromReader += bytes.size(); // before a host can have read them and look
        const ssize_t written = ::write(terminal.master(), bytes.data(), bytes.size());
        fromReader -= bytes.size() - (written > 0 ? static_cast<std::size_t>(written) : 0);
        leavingBytes -= bytes.size();
        pieces.pop_front();
    }
}

// ---------------------------------------------------------------- interface

PtyPort::PtyPort(LinePeer& reader, const Options& options) : state_(std::make_unique<State>(reader, options))
{
    state_->readerSpeed = reader.listeningSpeed();
    state_->knownSpeed = state_->hostSpeed();
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
}

const std::string& PtyPort::name() const { return state_->terminal.name(); }

PtyPort::Traffic PtyPort::traffic() const { return {state_->toReader, state_->fromReader}; }

void PtyPort::lock() { state_->mutex.lock(); }

void PtyPort::unlock() { state_->mutex.unlock(); }

} // namespace vorn::sim
