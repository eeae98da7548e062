// SPDX-License-Identifier: Apache-2.0
// A tty for a host, with this process at its other end.
#pragma once

#include "sim/data/bytes.h"

#include <termios.h>

#include <string>

namespace vorn::sim {

// A descriptor that is closed with its owner. What it is made of may be -1: that throws std::system_error with `what`.
class Descriptor {
public:
    Descriptor() = default;
    Descriptor(int fd, const std::string& what);
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor();
    int get() const { return fd_; }

private:
    int fd_ = -1;
};

// Bits a second as a number; -1: none that this system knows.
int speedOf(speed_t code);

// The tty is raw, at 9600 baud, and there for as long as this object is, however often a host opens and closes it.
class PseudoTerminal {
public:
    // link: a symbolic link to make, for hosts with a fixed name; may be empty. One that an earlier run left behind is
    // replaced, anything else of that name is not touched. Throws std::system_error.
    explicit PseudoTerminal(std::string link);
    ~PseudoTerminal(); // removes the link
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    const std::string& path() const { return path_; } // "/dev/pts/3"
    const std::string& name() const { return name_; } // "pts/3"
    // In packet mode and not blocking: a read brings one byte that says what it is (TIOCPKT_DATA: the host's bytes
    // follow), and tells when the host changed its settings with a flush.
    int master() const { return master_.get(); }
    speed_t hostSpeed() const; // what the host has set; B0 when that cannot be told

private:
    void open();
    void makeLink() const;

    std::string link_;
    std::string path_, name_;
    Descriptor master_, keeper_;
};

} // namespace vorn::sim
