// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/interrupt.h"

#include "tools/cli/errors.h"
#include "tools/session/log_directory.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <exception>

namespace vorn::tool {

namespace {

volatile std::sig_atomic_t signals = 0;
volatile std::sig_atomic_t removes = 0;
std::array<std::array<char, 4096>, kLogFiles.size()> files{};
std::array<char, 4096> directoryName{};

// For the tool itself to come to its end, a call's grace and the reader's way to rest included.
constexpr unsigned kLastSeconds = 20;
constexpr int kLastSignal = 3;

void removeFiles()
{
    if (removes != 0) {
        for (const auto& file : files) {
            ::unlink(file.data());
        }
        ::rmdir(directoryName.data());
    }
}

void onSignal(int signal)
{
    signals = signals + 1;
    if (signals < kLastSignal && signal != SIGALRM) {
        ::alarm(kLastSeconds);
        return;
    }
    removeFiles();
    ::_exit(static_cast<int>(Exit::Interrupted));
}

// An exception that nobody caught, on whichever thread: as a rule there was no memory.
[[noreturn]] void onTerminate()
{
    removeFiles();
    constexpr char text[] = "vorn: ended by something unforeseen, as a rule for want of memory\n";
    [[maybe_unused]] const ssize_t ignored = ::write(STDERR_FILENO, text, sizeof text - 1);
    ::_exit(static_cast<int>(Exit::Internal));
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
    std::signal(SIGXFSZ, SIG_IGN); // a file that may not grow any more is a result that cannot be written
    std::set_terminate(onTerminate);
}

bool interrupted() { return signals != 0; }

bool interruptedTwice() { return signals > 1; }

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

void removeInAnyCase(const std::string& directory)
{
    bool whole = store(directory, directoryName);
    for (std::size_t i = 0; i < files.size(); ++i) {
        whole = store(directory + "/" + kLogFiles[i], files[i]) && whole;
    }
    removes = whole ? 1 : 0;
}

void removedAlready() { removes = 0; }

} // namespace vorn::tool
