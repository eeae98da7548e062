// SPDX-License-Identifier: Apache-2.0
// Built without fortified calls, whose headers define read and open themselves.
#include "support/timed_line.h"

#include "support/clock.h"
#include "support/open_mode.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <stdexcept>

namespace vorn::test {
namespace {

constexpr std::uint8_t kStx = 0x02;
constexpr std::uint8_t kEtx = 0x03;
constexpr std::uint8_t kEsc = 0x1B;
constexpr std::size_t kStopAfter = 10; // bytes of a frame

constexpr const char* kSwitch = "$I2";
constexpr const char* kSwitchBack = "$I4";
constexpr const char* kRestore = "$B\x1B%A";

TimedLine* theLine = nullptr;

struct Speed {
    tcflag_t code;
    int bitsPerSecond;
};
constexpr Speed kSpeeds[] = {{B1200, 1200},   {B2400, 2400},   {B4800, 4800},    {B9600, 9600},
                             {B19200, 19200}, {B38400, 38400}, {B115200, 115200}};

std::int64_t byteTime(int speed)
{
    constexpr std::int64_t kBits = 10; // 8N1
    return kBits * 1000000 / speed;
}

// What a receiver makes of a byte at another speed: no character of a frame, and no beginning of one.
std::uint8_t garbled(std::uint8_t byte) { return static_cast<std::uint8_t>((byte * 0x9DU ^ 0x5AU) | 0x80U); }

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool powersACard(const Bytes& command)
{
    return command.size() > 1 && (command[1] == 0x22 || command[1] == 0x24 || command[1] == 0x41);
}

} // namespace

// ---------------------------------------------------------------- errors

void LineErrors::set(const ErrorRates& rates, std::uint64_t seed)
{
    *this = {};
    rates_ = rates;
    random_.seed(seed);
}

void LineErrors::set(const OneError& error)
{
    *this = {};
    one_ = error;
}

void LineErrors::clear()
{
    rates_ = {};
    one_ = {};
}

bool LineErrors::happens(double rate)
{
    constexpr int kUnusedBits = 11; // a double holds 53
    constexpr double kScale = 9007199254740992.0;
    return rate > 0 && static_cast<double>(random_() >> kUnusedBits) < rate * kScale;
}

Bytes LineErrors::through(std::uint8_t byte)
{
    const bool lost = happens(rates_.lost) || isTheOne(OneError::Kind::Lost);
    const bool doubled = happens(rates_.doubled) || isTheOne(OneError::Kind::Doubled);
    const bool oneDamaged = isTheOne(OneError::Kind::Damaged);
    const bool damaged = happens(rates_.damaged) || oneDamaged;
    ++passed_;
    made_ += (lost ? 1U : 0U) + (doubled ? 1U : 0U) + (damaged ? 1U : 0U);
    if (lost) {
        return {};
    }
    if (damaged) {
        byte = static_cast<std::uint8_t>(byte ^ 1U << (oneDamaged ? one_.bit : random_() % 8));
    }
    return doubled ? Bytes{byte, byte} : Bytes{byte};
}

// ---------------------------------------------------------------- the line

TimedLine::TimedLine()
{
    if (theLine != nullptr) {
        throw std::logic_error("there is one timed line at a time");
    }
    theLine = this;
    Clock::freeze();
}

TimedLine::~TimedLine()
{
    for (const int descriptor : descriptors_) {
        syscall(SYS_close, descriptor);
    }
    theLine = nullptr;
    Clock::release();
}

void TimedLine::renew(sim::Reader& reader, const LineTiming& timing)
{
    reader_ = &reader;
    reader_->checkLineSpeed(true);
    timing_ = timing;
    settings_ = {};
    settings_.c_cflag = CREAD | CLOCAL | CS8 | B9600;
    speed_ = 9600;
    renewed_ = now();
    outgoing_.clear();
    incoming_.clear();
    received_.clear();
    senderFree_ = replierFree_ = deafUntil_ = lastHeard_ = 0;
    stopped_ = readerInFrame_ = false;
    inFrame_ = 0;
    lastSequence_.clear();
    heard_.clear();
    renewHost();
}

void TimedLine::renewHost()
{
    openings_ = 0;
    replies_ = 0;
    exchanges_.clear();
    staleReplyRead_ = false;
}

std::int64_t TimedLine::now() const { return Clock::microseconds(); }

std::int64_t TimedLine::outgoingStart() const { return std::max(outgoing_.front().from, senderFree_); }

// Everything that happens on the line up to this moment.
void TimedLine::run(std::int64_t until)
{
    while (!outgoing_.empty()) {
        const Outgoing next = outgoing_.front();
        std::int64_t from = outgoingStart();
        if (timing_.stop > 0 && inFrame_ == kStopAfter && !stopped_) {
            stopped_ = true;
            senderFree_ = from = from + timing_.stop;
        }
        const std::int64_t end = from + byteTime(speed_);
        if (end > until) {
            break;
        }
        outgoing_.pop_front();
        inFrame_ = next.byte == kStx ? 1 : inFrame_ + 1;
        senderFree_ = end;
        stopped_ = stopped_ && next.byte != kEtx;
        takeOver(from);
        hear(next.byte, from, end, next.garbled);
    }
    takeOver(until);
}

// What has arrived at the host's end, at the speed that the host listens at now.
void TimedLine::takeOver(std::int64_t until)
{
    while (!incoming_.empty() && incoming_.front().at <= until) {
        Incoming next = incoming_.front();
        incoming_.pop_front();
        if (next.speed != speed_) {
            next.byte = garbled(next.byte);
        }
        next.at = handedOver(next.at);
        received_.push_back(next);
    }
}

std::int64_t TimedLine::handedOver(std::int64_t at) const
{
    const std::int64_t every = timing_.handOverEvery;
    return every > 0 ? renewed_ + (at - renewed_ + every - 1) / every * every : at;
}

// ---------------------------------------------------------------- the reader's end

void TimedLine::hear(std::uint8_t byte, std::int64_t from, std::int64_t until, bool wrong)
{
    const int speed = speed_;
    for (const std::uint8_t arrived : toReader.through(byte)) {
        if (from < deafUntil_) {
            continue;
        }
        if (readerInFrame_ && from - lastHeard_ > timing_.patience) {
            pass(kEsc, until, reader_->listeningSpeed()); // which breaks a frame off without an answer
            readerInFrame_ = false;
        }
        pass(wrong ? garbled(arrived) : arrived, until, speed);
        lastHeard_ = until;
    }
}

void TimedLine::pass(std::uint8_t byte, std::int64_t at, int speed)
{
    const bool understood = speed == reader_->listeningSpeed();
    const std::size_t before = reader_->exchanges().size();
    const std::vector<sim::Reader::Output> outputs = reader_->receive({byte}, speed);
    const bool carriedOut = reader_->exchanges().size() != before;
    for (const sim::Reader::Output& output : outputs) {
        reply(output, carriedOut && powersACard(reader_->exchanges().back().command), at);
    }
    if (understood) {
        noteHeard(byte, at);
    }
}

void TimedLine::noteHeard(std::uint8_t byte, std::int64_t at)
{
    const struct {
        std::string sequence;
        std::int64_t deaf;
    } rows[] = {{std::string("\x1B") + kSwitch, timing_.afterSwitch},
                {std::string("\x1B") + kSwitchBack, timing_.afterSwitchBack},
                {std::string("\x1B") + kRestore, timing_.afterRestore}};
    constexpr std::size_t kLongest = 6;
    readerInFrame_ = byte == kStx || (readerInFrame_ && byte != kEtx && byte != kEsc);
    heard_ += static_cast<char>(byte);
    heard_.erase(0, heard_.size() - std::min(heard_.size(), kLongest));
    for (const auto& row : rows) {
        if (endsWith(heard_, row.sequence)) {
            deafUntil_ = at + row.deaf;
        }
    }
}

void TimedLine::reply(const sim::Reader::Output& output, bool toPowering, std::int64_t from)
{
    ++replies_;
    std::int64_t at = from + output.delay.count() * 1000 + timing_.beforeReply + (toPowering ? timing_.beforeAtr : 0) +
                      (replies_ == timing_.onlyReply ? timing_.onlyReplyLater : 0);
    at = std::max(at, replierFree_);
    const int speed = reader_->listeningSpeed();
    const std::size_t exchange = exchanges_.empty() ? 0 : exchanges_.size() - 1;
    bool first = true;
    for (std::size_t i = 0; i < output.bytes.size(); ++i) {
        at += i == 0 ? 0 : timing_.betweenBytes;
        at += i == output.bytes.size() / 2 ? timing_.gap : 0;
        at += byteTime(speed);
        for (const std::uint8_t byte : toHost.through(output.bytes[i])) {
            incoming_.push_back({byte, at, speed, exchange, first});
            first = false;
            if (!exchanges_.empty()) {
                exchanges_.back().received.push_back(byte);
            }
        }
    }
    replierFree_ = at;
    if (!exchanges_.empty()) {
        Bytes& replied = exchanges_.back().replied;
        replied.insert(replied.end(), output.bytes.begin(), output.bytes.end());
    }
}

// ---------------------------------------------------------------- the host's end

int TimedLine::open()
{
    const auto descriptor = static_cast<int>(syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDWR | O_CLOEXEC));
    if (descriptor >= 0) {
        descriptors_.push_back(descriptor);
        ++openings_;
        if (onOpen) {
            onOpen(openings_);
        }
    }
    return descriptor;
}

bool TimedLine::owns(int descriptor) const
{
    return std::find(descriptors_.begin(), descriptors_.end(), descriptor) != descriptors_.end();
}

void TimedLine::close(int descriptor)
{
    descriptors_.erase(std::remove(descriptors_.begin(), descriptors_.end(), descriptor), descriptors_.end());
}

ssize_t TimedLine::read(std::uint8_t* bytes, std::size_t size)
{
    run(now());
    std::size_t count = 0;
    while (count < size && !received_.empty() && received_.front().at <= now()) {
        const Incoming& next = received_.front();
        staleReplyRead_ = staleReplyRead_ || (next.byte == kStx && next.exchange + 1 < exchanges_.size());
        bytes[count++] = next.byte;
        received_.pop_front();
    }
    bytesRead_ += count;
    if (count == 0) {
        errno = EAGAIN;
        return -1;
    }
    return static_cast<ssize_t>(count);
}

ssize_t TimedLine::write(const std::uint8_t* bytes, std::size_t size)
{
    run(now());
    const std::size_t room = timing_.sendRoom - std::min(timing_.sendRoom, outgoing_.size());
    const Bytes taken(bytes, bytes + std::min(size, room));
    if (taken.empty() && size > 0) {
        errno = EAGAIN;
        return -1;
    }
    for (const std::uint8_t byte : taken) {
        outgoing_.push_back({byte, now() + timing_.sendDelay, false});
    }
    bytesRead_ = 0;
    noteWritten(taken);
    return static_cast<ssize_t>(taken.size());
}

// A command goes out in pieces; STX never stands inside one, and neither does a sequence's ESC.
void TimedLine::noteWritten(const Bytes& piece)
{
    if (piece.empty()) {
        return;
    }
    const std::string text(piece.begin(), piece.end());
    lastSequence_ = piece[0] == kEsc ? text.substr(1) : "";
    const bool isSequence = lastSequence_ == kSwitch || lastSequence_ == kSwitchBack || lastSequence_ == kRestore;
    if (!isSequence && (piece[0] == kStx || piece[0] == kEsc)) {
        exchanges_.emplace_back();
    }
    if (!isSequence && !exchanges_.empty()) {
        exchanges_.back().sent.insert(exchanges_.back().sent.end(), piece.begin(), piece.end());
    }
}

void TimedLine::drain()
{
    while (timing_.tellsUnsent && !outgoing_.empty()) {
        Clock::advance(std::max<std::int64_t>(outgoingStart() + byteTime(speed_) - now(), 1));
        run(now());
    }
}

// A byte that is going out while the speed changes is heard by nobody.
void TimedLine::setSpeed(int speed)
{
    if (speed != speed_ && !outgoing_.empty() && outgoingStart() < now()) {
        outgoing_.front().garbled = true;
    }
    speed_ = speed;
}

int TimedLine::apply(const struct termio& settings, bool afterSending, bool dropReceived)
{
    if (afterSending) {
        drain();
    }
    run(now());
    if (dropReceived) {
        control(TCFLSH, reinterpret_cast<void*>(TCIFLUSH));
    }
    settings_ = settings;
    for (const Speed& row : kSpeeds) {
        if ((settings.c_cflag & unsigned{CBAUD}) == row.code) {
            setSpeed(row.bitsPerSecond);
        }
    }
    return 0;
}

int TimedLine::control(unsigned long request, void* argument)
{
    run(now());
    switch (request) {
    case TCGETA:
        std::memcpy(argument, &settings_, sizeof settings_);
        return 0;
    case TCSETA:
    case TCSETAW:
    case TCSETAF:
        return apply(*static_cast<const struct termio*>(argument), request != TCSETA, request == TCSETAF);
    case TCFLSH: {
        const auto queue = reinterpret_cast<std::intptr_t>(argument);
        if (queue != TCOFLUSH) {
            while (!received_.empty() && received_.front().at <= now()) {
                received_.pop_front();
            }
        }
        if (queue != TCIFLUSH) {
            outgoing_.clear();
        }
        return 0;
    }
    case TIOCOUTQ:
        *static_cast<int*>(argument) = timing_.tellsUnsent ? static_cast<int>(outgoing_.size()) : 0;
        return 0;
    default:
        errno = EINVAL;
        return -1;
    }
}

namespace {

TimedLine* lineOf(int descriptor, const void* caller)
{
    return theLine != nullptr && isOfLibrary(caller) && theLine->owns(descriptor) ? theLine : nullptr;
}

} // namespace
} // namespace vorn::test

using vorn::test::lineOf;
using vorn::test::TimedLine;

extern "C" {

int open(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = vorn::test::openMode(flags, arguments);
    va_end(arguments);
    static const std::string name = std::string("/dev/") + TimedLine::kPort;
    if (vorn::test::theLine != nullptr && path == name) {
        return vorn::test::theLine->open();
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int close(int descriptor)
{
    if (TimedLine* const line = lineOf(descriptor, __builtin_return_address(0))) {
        line->close(descriptor);
    }
    return static_cast<int>(syscall(SYS_close, descriptor));
}

ssize_t read(int descriptor, void* bytes, std::size_t size)
{
    if (TimedLine* const line = lineOf(descriptor, __builtin_return_address(0))) {
        return line->read(static_cast<std::uint8_t*>(bytes), size);
    }
    return syscall(SYS_read, descriptor, bytes, size);
}

// What a fortified read becomes.
ssize_t __read_chk(int descriptor, void* bytes, std::size_t size, std::size_t)
{
    if (TimedLine* const line = lineOf(descriptor, __builtin_return_address(0))) {
        return line->read(static_cast<std::uint8_t*>(bytes), size);
    }
    return syscall(SYS_read, descriptor, bytes, size);
}

ssize_t write(int descriptor, const void* bytes, std::size_t size)
{
    if (TimedLine* const line = lineOf(descriptor, __builtin_return_address(0))) {
        return line->write(static_cast<const std::uint8_t*>(bytes), size);
    }
    return syscall(SYS_write, descriptor, bytes, size);
}

int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    std::va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (TimedLine* const line = lineOf(descriptor, __builtin_return_address(0))) {
        return line->control(request, argument);
    }
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}
}
