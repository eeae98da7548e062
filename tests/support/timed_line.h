// SPDX-License-Identifier: Apache-2.0
// A tty that only this program has, in frozen time: a UART at either end, in which every byte takes its time at the
// speed that its sender has set, and a simulated reader behind it. Nothing of it is the kernel's, so that a day of
// time-outs passes in minutes, and the same way on any machine. A program that uses it defines open, close, read, write
// and ioctl, which the dynamic linker then finds before libc's.
#pragma once

#include "sim/reader/reader.h"
#include "support/line.h"

#include <termios.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace vorn::test {

constexpr std::int64_t kEver = std::numeric_limits<std::int64_t>::max() / 4;

// What is between the library and the reader's answer, in microseconds. As it stands here: a UART at either end, and a
// reader that takes no time.
struct LineTiming {
    // The terminal's end.
    std::int64_t sendDelay = 0;     // from a write to its first bit on the line
    bool tellsUnsent = true;        // the driver knows what is not out yet, also of what waits in an adapter
    std::size_t sendRoom = 4096;    // so many bytes wait to be sent; a write takes no more
    std::int64_t handOverEvery = 0; // what is received is handed over in steps of this: an adapter's latency timer
    std::int64_t stop = 0;          // once in each command, inside it, the line takes nothing for so long
    // The reader's.
    std::int64_t afterSwitch = 0;     // deaf for so long behind ESC $ I 2,
    std::int64_t afterSwitchBack = 0; // ESC $ I 4
    std::int64_t afterRestore = 0;    // and ESC $ B ESC % A
    std::int64_t patience = kEver;    // a frame whose next byte comes later is given up
    std::int64_t beforeReply = 0;     // of any answer
    std::int64_t beforeAtr = 0;       // besides that, when a card is powered or activated
    std::int64_t onlyReply = 0;       // not 0: this answer only, counted from 1 since `renewHost`, is later
    std::int64_t onlyReplyLater = 0;  // by this
    std::int64_t betweenBytes = 0;    // of an answer, besides what the line needs
    std::int64_t gap = 0;             // once in an answer, in its middle
};

// Bytes that a bad line loses, doubles, or changes by one bit: probabilities for each byte.
struct ErrorRates {
    double lost = 0;
    double doubled = 0;
    double damaged = 0;
};

// One error and no other, at a byte counted from 0.
struct OneError {
    enum class Kind { None, Lost, Doubled, Damaged };
    Kind kind = Kind::None;
    std::size_t byte = 0;
    unsigned bit = 0; // of a damaged one
};

class LineErrors {
public:
    void set(const ErrorRates& rates, std::uint64_t seed);
    void set(const OneError& error);
    void clear();
    Bytes through(std::uint8_t byte);

    // Since the last `set`.
    std::size_t passed() const { return passed_; }
    unsigned made() const { return made_; }

private:
    bool happens(double rate);
    bool isTheOne(OneError::Kind kind) const { return one_.kind == kind && passed_ == one_.byte; }

    ErrorRates rates_;
    OneError one_;
    std::mt19937_64 random_;
    std::size_t passed_ = 0;
    unsigned made_ = 0;
};

class TimedLine {
public:
    static constexpr const char* kPort = "timed-line";

    TimedLine(); // one at a time; freezes the clock
    ~TimedLine();
    TimedLine(const TimedLine&) = delete;
    TimedLine& operator=(const TimedLine&) = delete;

    // A line as new, with this reader at its end.
    void renew(sim::Reader& reader, const LineTiming& timing = {});
    // The same line for another customer: openings and exchanges are counted anew.
    void renewHost();
    void forgetExchanges() { exchanges_.clear(); }
    void setTiming(const LineTiming& timing) { timing_ = timing; }

    LineErrors toReader, toHost;
    std::function<void(int)> onOpen; // called with how often the host has opened the line since `renewHost`

    // What was under way, one entry a command.
    struct Exchange {
        Bytes sent;     // by the host: a frame, or the question for the version
        Bytes replied;  // by the reader
        Bytes received; // what of the reply reached the host's end
    };
    const std::vector<Exchange>& exchanges() const { return exchanges_; }
    // How many bytes the host has read since it wrote last.
    std::size_t bytesRead() const { return bytesRead_; }
    // Did the host read the beginning of a reply to an earlier command than its latest?
    bool staleReplyRead() const { return staleReplyRead_; }
    // Which sequence the host wrote last: the text behind its first ESC. Empty: it wrote something else.
    const std::string& lastSequence() const { return lastSequence_; }

    // For the calls that stand in for the system's.
    int open();
    bool owns(int descriptor) const;
    void close(int descriptor);
    ssize_t read(std::uint8_t* bytes, std::size_t size);
    ssize_t write(const std::uint8_t* bytes, std::size_t size);
    int control(unsigned long request, void* argument);

private:
    struct Outgoing {
        std::uint8_t byte;
        std::int64_t from; // not before this
        bool garbled;      // the speed changed while it went out
    };
    struct Incoming {
        std::uint8_t byte;
        std::int64_t at;
        int speed;
        std::size_t exchange;
        bool first; // of a reply
    };
    std::int64_t now() const;
    std::int64_t outgoingStart() const;
    void run(std::int64_t until);
    void takeOver(std::int64_t until);
    void hear(std::uint8_t byte, std::int64_t from, std::int64_t until, bool garbled);
    void pass(std::uint8_t byte, std::int64_t at, int speed);
    void noteWritten(const Bytes& piece);
    void noteHeard(std::uint8_t byte, std::int64_t at);
    void reply(const sim::Reader::Output& output, bool toPowering, std::int64_t from);
    void drain();
    void setSpeed(int speed);
    int apply(const struct termio& settings, bool afterSending, bool dropReceived);
    std::int64_t handedOver(std::int64_t at) const;

    sim::Reader* reader_ = nullptr;
    LineTiming timing_;
    std::vector<int> descriptors_;
    struct termio settings_ {};
    int speed_ = 9600;
    int openings_ = 0;
    std::int64_t renewed_ = 0;

    std::deque<Outgoing> outgoing_;
    std::int64_t senderFree_ = 0;
    bool stopped_ = false; // in this command the line has stopped already
    std::size_t inFrame_ = 0;
    std::string lastSequence_;

    std::int64_t lastHeard_ = 0;
    bool readerInFrame_ = false;
    std::int64_t deafUntil_ = 0;
    std::string heard_; // the latest bytes

    std::deque<Incoming> incoming_; // on the line
    std::deque<Incoming> received_; // at the host's end
    std::int64_t replierFree_ = 0;
    int replies_ = 0;
    std::vector<Exchange> exchanges_;
    std::size_t bytesRead_ = 0;
    bool staleReplyRead_ = false;
};

} // namespace vorn::test
