// SPDX-License-Identifier: Apache-2.0
// A program of somebody else's as a child, and the signals of the tool, which are its own: those that were sent to the
// tool alone are passed on. Without a program the signals are only noted.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace vorn::tool {

class HostProcess {
public:
    // Blocks the signals from here on; they are read from descriptor().
    HostProcess();
    ~HostProcess();
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;

    // Throws Failure when the program cannot be run. variable: "NAME=value", set for it alone.
    void start(const std::vector<std::string>& words, const std::string& variable);

    int descriptor() const { return signals_; }
    void takeSignals(); // does not wait

    bool ended() const { return ended_; }
    int exitCode() const { return exitCode_; } // 128 and the signal's number when that ended it
    int signal() const { return endSignal_; }  // that ended it; 0: none
    bool interrupted() const { return interrupts_ > 0; }

private:
    void reap();
    void passOn(int signal, bool fromTerminal);

    int signals_ = -1;
    pid_t child_ = -1;
    bool ended_ = false;
    int exitCode_ = 0;
    int endSignal_ = 0;
    int interrupts_ = 0;
};

} // namespace vorn::tool
