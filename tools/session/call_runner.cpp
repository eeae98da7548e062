// SPDX-License-Identifier: Apache-2.0
#include "tools/session/call_runner.h"

#include "tools/cli/errors.h"
#include "tools/cli/interrupt.h"
#include "tools/session/log_directory.h"

#include "vorn/link.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace vorn::tool {

namespace {

constexpr int kLookPause = 50; // milliseconds between two questions whether to stop
constexpr std::uint8_t kCall = 'C';

// What one command may add to a log file. A card that asks for more without an end fills no disk: the library drops
// the entries that it cannot write.
constexpr rlim_t kLogMost = 16UL * 1024 * 1024;

[[noreturn]] void failed(const std::string& what) { throw Failure(Exit::Internal, what + ": " + std::strerror(errno)); }

void limitLogs()
{
    rlim_t largest = 0;
    for (const char* const file : kLogFiles) {
        struct stat info {};
        if (::stat(file, &info) == 0) {
            largest = std::max(largest, static_cast<rlim_t>(info.st_size));
        }
    }
    const rlimit limit{largest + kLogMost, largest + kLogMost};
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

// The terminal's signals reach the worker too, and it is not for it to decide.
void leaveSignalsToParent()
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGALRM, SIGPIPE, SIGXFSZ}) {
        std::signal(number, SIG_IGN);
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
}

void openConsole()
{
    const int nothing = ::open("/dev/null", O_RDONLY);
    ::dup2(nothing, STDIN_FILENO);
    const int console = ::open(kConsoleFile, O_WRONLY | O_CREAT | O_APPEND, S_IRUSR | S_IWUSR);
    ::dup2(console >= 0 ? console : nothing, STDOUT_FILENO);
    ::dup2(console >= 0 ? console : nothing, STDERR_FILENO);
}

} // namespace

struct CallRunner::Mailbox {
    Function function;
    int result;
    int cardInterface;
    bool linkOpen;
    alignas(std::max_align_t) std::byte arguments[kRoom];
};

CallRunner::CallRunner(std::string logDirectory) : logDirectory_(std::move(logDirectory))
{
    void* const memory = ::mmap(nullptr, sizeof(Mailbox), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        failed("no memory for the library's calls");
    }
    mailbox_ = static_cast<Mailbox*>(memory);
}

CallRunner::~CallRunner()
{
    endWorker(false);
    ::munmap(mailbox_, sizeof(Mailbox));
}

void CallRunner::start()
{
    if (worker_ > 0) {
        return;
    }
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        failed("no way to the library's process");
    }
    std::fflush(nullptr);
    worker_ = ::fork();
    if (worker_ == 0) {
        ::close(ends[0]);
        work(ends[1]);
    }
    ::close(ends[1]);
    socket_ = ends[0];
    if (worker_ < 0) {
        endWorker(false);
        failed("no process for the library");
    }
}

void CallRunner::work(int socket)
{
    leaveSignalsToParent();
    removedAlready(); // the directory is the parent's to remove
    if (::chdir(logDirectory_.c_str()) != 0) {
        ::_exit(1);
    }
    ::umask(S_IRWXG | S_IRWXO);
    openConsole();
    limitLogs();
    tapLineTo(socket);
    std::uint8_t request = 0;
    while (::recv(socket, &request, 1, 0) == 1) {
        mailbox_->result = mailbox_->function.apply(mailbox_->function.function, mailbox_->arguments);
        mailbox_->cardInterface = m_VrICType;
        mailbox_->linkOpen = vrdk03com_handle != -1;
        std::fflush(nullptr);
        sendRecord(socket, TapRecord::Done);
    }
    ::_exit(0);
}

CallRunner::End CallRunner::run(const Function& function, void* arguments, std::size_t size, const ShallStop& shallStop)
{
    start();
    watcher_.begin();
    mailbox_->function = function;
    std::memcpy(mailbox_->arguments, arguments, size);
    const End end = ::send(socket_, &kCall, 1, MSG_NOSIGNAL) == 1 ? follow(shallStop) : End::Died;
    watcher_.end(end != End::Returned);
    result_ = mailbox_->result;
    cardInterface_ = mailbox_->cardInterface;
    linkOpen_ = end == End::Returned && mailbox_->linkOpen;
    if (end == End::Returned) {
        std::memcpy(arguments, mailbox_->arguments, size);
    } else {
        endWorker(true);
    }
    return end;
}

CallRunner::End CallRunner::follow(const ShallStop& shallStop)
{
    std::array<std::uint8_t, 1 + kRecordMax> message{};
    for (;;) {
        pollfd waiting{socket_, POLLIN, 0};
        if (::poll(&waiting, 1, kLookPause) <= 0) {
            if (shallStop()) {
                return End::Stopped;
            }
            continue;
        }
        const ssize_t size = ::recv(socket_, message.data(), message.size(), 0);
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) {
            return End::Died;
        }
        const auto record = static_cast<TapRecord>(message[0]);
        if (record == TapRecord::Done) {
            return End::Returned;
        }
        watcher_.add(record, Bytes(message.begin() + 1, message.begin() + size));
        if (shallStop()) { // a line that never rests gives poll no pause
            return End::Stopped;
        }
    }
}

// Without its socket the worker ends by itself.
void CallRunner::endWorker(bool kill)
{
    if (socket_ >= 0) {
        ::close(socket_);
        socket_ = -1;
    }
    if (worker_ <= 0) {
        return;
    }
    if (kill) {
        ::kill(worker_, SIGKILL);
    }
    int status = 0;
    while (::waitpid(worker_, &status, 0) < 0 && errno == EINTR) {}
    signal_ = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    worker_ = -1;
}

} // namespace vorn::tool
