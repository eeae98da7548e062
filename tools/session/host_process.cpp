// SPDX-License-Identifier: Apache-2.0
#include "tools/session/host_process.h"

#include "tools/cli/errors.h"
#include "tools/cli/quote.h"

#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

namespace vorn::tool {

namespace {

constexpr int kPassedOn[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2};
constexpr int kLastInterrupt = 3; // who asks so often wants it to end, whatever it thinks
constexpr int kKilled = 128;

sigset_t watched()
{
    sigset_t set{};
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    for (const int signal : kPassedOn) {
        sigaddset(&set, signal);
    }
    return set;
}

// What this tool ignores, the program shall not.
class Attributes {
public:
    Attributes()
    {
        ::posix_spawnattr_init(&attributes_);
        sigset_t none{};
        sigset_t all{};
        sigemptyset(&none);
        sigfillset(&all);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &all);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

std::vector<char*> pointersTo(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentWith(const std::string& variable)
{
    const std::string name = variable.substr(0, variable.find('=') + 1);
    std::vector<std::string> all{variable};
    for (char** each = environ; *each != nullptr; ++each) {
        if (std::strncmp(*each, name.c_str(), name.size()) != 0) {
            all.emplace_back(*each);
        }
    }
    return all;
}

} // namespace

HostProcess::HostProcess()
{
    const sigset_t set = watched();
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    signals_ = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (signals_ < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot watch for signals");
    }
}

HostProcess::~HostProcess()
{
    ::close(signals_);
    const sigset_t set = watched();
    ::sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

void HostProcess::start(const std::vector<std::string>& words, const std::string& variable)
{
    const Attributes attributes;
    const std::vector<std::string> environment = environmentWith(variable);
    const int error = ::posix_spawnp(&child_, words[0].c_str(), nullptr, attributes.get(), pointersTo(words).data(),
                                     pointersTo(environment).data());
    if (error != 0) {
        child_ = -1;
        throw Failure(Exit::Usage, inQuotes(words[0]) + " cannot be run: " + std::strerror(error),
                      "behind -- stand the program and its arguments");
    }
}

void HostProcess::takeSignals()
{
    signalfd_siginfo info{};
    while (::read(signals_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        if (info.ssi_signo != SIGCHLD) {
            passOn(static_cast<int>(info.ssi_signo), info.ssi_code == SI_KERNEL);
        }
    }
    reap();
}

// What a terminal sends goes to all programs in front of it, to this one's child too.
void HostProcess::passOn(int signal, bool fromTerminal)
{
    const bool interrupt = signal == SIGINT || signal == SIGTERM;
    interrupts_ += interrupt || child_ < 0 ? 1 : 0;
    if (child_ > 0 && interrupt && interrupts_ >= kLastInterrupt) {
        ::kill(child_, SIGKILL);
    } else if (child_ > 0 && !fromTerminal) {
        ::kill(child_, signal);
    }
}

void HostProcess::reap()
{
    int status = 0;
    if (child_ <= 0 || ::waitpid(child_, &status, WNOHANG) != child_) {
        return;
    }
    child_ = -1;
    ended_ = true;
    endSignal_ = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    exitCode_ = endSignal_ != 0 ? kKilled + endSignal_ : WEXITSTATUS(status);
}

} // namespace vorn::tool
