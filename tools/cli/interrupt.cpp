// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/interrupt.h"

#include "tools/cli/errors.h"
#include "tools/session/log_directory.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>

namespace vorn::tool {

namespace {

volatile std::sig_atomic_t signals = 0;
volatile std::sig_atomic_t removes = 0;
std::array<std::array<char, 4096>, kLogFiles.size()> files{};
std::array<char, 4096> directoryName{};

// Who asks by SIGTERM or SIGHUP does not ask twice: the call that is running gets this long to come to its end.
constexpr unsigned kGraceSeconds = 5;

void onSignal(int signal)
{
    signals = signals + 1;
    if (signals < 2) {
        if (signal != SIGINT) {
            ::alarm(kGraceSeconds);
        }
        return;
    }
    if (removes != 0) {
        for (const auto& file : files) {
            ::unlink(file.data());
        }
        ::rmdir(directoryName.data());
    }
    ::_exit(static_cast<int>(Exit::Interrupted));
}

template <std::size_t N>
bool store(const std::string& text, std::array<char, N>& into)
{
    into.fill('\0');
    if (text.size() >= N) {
        return false;
    }
    std::copy(text.begin(), text.end(), into.begin());
    return true;
}

} // namespace

void catchInterrupts()
{
    struct sigaction action {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM}) {
        ::sigaction(signal, &action, nullptr);
    }
}

bool interrupted() { return signals != 0; }

void throwIfInterrupted()
{
    if (interrupted()) {
        throw Failure(Exit::Interrupted, "interrupted");
    }
}

void pause(int milliseconds)
{
    if (!interrupted()) {
        ::poll(nullptr, 0, milliseconds);
    }
}

void removeOnSecondInterrupt(const std::string& directory)
{
    bool whole = store(directory, directoryName);
    for (std::size_t i = 0; i < files.size(); ++i) {
        whole = store(directory + "/" + kLogFiles[i], files[i]) && whole;
    }
    removes = whole ? 1 : 0;
}

void keepOnSecondInterrupt() { removes = 0; }

} // namespace vorn::tool
