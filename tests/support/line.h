// SPDX-License-Identifier: Apache-2.0
// A real kernel tty (a pty) with the test at its other end. The test acts inside the library's own waiting
// (Clock::onSleep), on the same thread, so a test runs the same way every time and waits for nothing.
#pragma once

#include <sys/ioctl.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vorn::test {

using Bytes = std::vector<std::uint8_t>;

Bytes fromHex(const std::string& hex); // blanks are skipped
std::string toHex(const Bytes& bytes); // upper case, no blanks

class Line {
public:
    Line();
    ~Line();
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    const std::string& port() const { return port_; } // "pts/3"
    std::string param(const std::string& tail = ":9600,N,8,1") const { return port_ + tail; }

    // Who answers: called with the bytes that came and the speed the host has set, whenever the host waits.
    std::function<void(const Bytes& bytes, int speed)> onBytes;

    void send(const Bytes& bytes);                   // to the host
    void sendAndArrive(const Bytes& bytes);          // returns when the host's tty, which is raw, has received them
    void sendLater(const Bytes& bytes, int afterMs); // when that much of the host's time has passed

    // What the host sent so far, a piece each time it waited: "1B244932@9600".
    const std::vector<std::string>& pieces() const { return pieces_; }
    Bytes sent() const { return sent_; } // all of it
    void forget();

    int speed() const;              // bits per second, as set now
    struct termio settings() const; // as set now
    void setSettings(const struct termio& settings);
    void setRaw(); // as somebody left it
    void hangUp(); // the other end goes away

    // Takes away what the host has not read: also what the kernel had not handed over yet.
    void discardUnread();

    void serve(); // what Clock::onSleep calls

private:
    struct Pending {
        std::int64_t due;
        Bytes bytes;
    };
    int master_ = -1;
    int keeper_ = -1; // keeps the tty alive between two openings
    std::string port_;
    std::vector<std::string> pieces_;
    Bytes sent_;
    std::vector<Pending> pending_;
};

} // namespace vorn::test
