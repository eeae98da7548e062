// SPDX-License-Identifier: Apache-2.0
// What the processor does for one APDU of a host: the whole exchange, its frames on the line, its log entries, and for
// comparison a loop that writes the same frame to the same tty and reads the same reply. Processor time of the host's
// thread only: the reader is another process, which answers at once.
//
//   bench_exchange              the times, as benchmarks
//   bench_exchange calls KIND BYTES COUNT   that many exchanges and nothing else, for counting system calls
#include "ICC_COMM_VORN.h"
#include "bench/directory.h"
#include "bench/frames.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

using namespace vorn::bench;

namespace {

// READ RECORD to the contact slot: the reader's command, and the APDU in it.
constexpr unsigned char kCommand[] = {0x32, 0x26, 0x00, 0x00, 0xB2, 0x01, 0x0C, 0x00};
constexpr std::size_t kSlotSize = 3;
constexpr std::size_t kApduSize = sizeof kCommand - kSlotSize;
constexpr int kRounds = 200; // one exchange of each kind, so that all find the processor in the same state

// `size` bytes back, status word and all.
Bytes replyOf(std::size_t size)
{
    Bytes content{0x00, 0x00};
    for (std::size_t i = 0; i + 2 < size; ++i) {
        content.push_back(static_cast<unsigned char>(i));
    }
    content.push_back(0x90);
    content.push_back(0x00);
    return frameOf(content);
}

// Answers every frame with the same reply.
class Reader {
public:
    explicit Reader(const Bytes& reply)
    {
        const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        char name[64];
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0 || ptsname_r(master, name, sizeof name) != 0) {
            throw std::runtime_error("no pty");
        }
        port_ = name + std::strlen("/dev/");
        const int kept = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
        child_ = fork();
        if (child_ == 0) {
            answer(master, reply);
        }
        close(master);
        tty_ = kept;
    }
    ~Reader()
    {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
        close(tty_);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    const std::string& port() const { return port_; }
    int tty() const { return tty_; }

private:
    [[noreturn]] static void answer(int master, const Bytes& reply)
    {
        unsigned char bytes[1024];
        for (;;) {
            const ssize_t count = read(master, bytes, sizeof bytes);
            if (count <= 0) {
                _exit(0);
            }
            if (bytes[count - 1] == kEtx && write(master, reply.data(), reply.size()) < 0) {
                _exit(1);
            }
        }
    }

    std::string port_;
    pid_t child_ = -1;
    int tty_ = -1;
};

void check(bool good, const char* what)
{
    if (!good) {
        throw std::runtime_error(what);
    }
}

// ---------------------------------------------------------------- the kinds

// The link is open all the time, as it is in a service call.
class Host {
public:
    explicit Host(std::size_t bytesBack)
        : size_(static_cast<int>(bytesBack)),
          frame_(frameOf(Bytes(std::begin(kCommand), std::end(kCommand)))),
          reply_(replyOf(bytesBack)),
          reader_(reply_)
    {
        vr_comportmode = 0;
        std::snprintf(vr_comportparam, sizeof vr_comportparam, "%s:9600,N,8,1", reader_.port().c_str());
        m_VrICType = VORN_INTERFACE_CONTACT;
        check(opdev() == VORN_OK, "the link did not open");
    }
    ~Host() { cldev(); }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    void whole()
    {
        unsigned char apdu[kApduSize];
        std::memcpy(apdu, kCommand + kSlotSize, sizeof apdu);
        int length = 0;
        check(Icc_EXApdu(apdu, sizeof apdu, response_, &length) == 0 && length == size_, "no answer");
    }

    void link()
    {
        int length = 0;
        const int result = trans_icc_cmd(kCommand, sizeof kCommand, response_, &length);
        check(result == 0 && length == size_, "no answer to the frame");
    }

    void logs()
    {
        static char in[] = "Indata----------------------capdu\n";
        static char out[] = "Outdata----------------------capdu\n";
        messLog(in);
        messLog_write_bcd(kCommand, sizeof kCommand);
        messLog(out);
        messLog_write_bcd(response_, size_);
    }

    void bare()
    {
        check(write(reader_.tty(), frame_.data(), frame_.size()) == static_cast<ssize_t>(frame_.size()), "not written");
        unsigned char bytes[1024];
        std::size_t size = 0;
        do {
            const ssize_t count = read(reader_.tty(), bytes + size, sizeof bytes - size);
            check(count > 0, "nothing read");
            size += static_cast<std::size_t>(count);
        } while (bytes[size - 1] != kEtx);
        check(size == reply_.size(), "another reply");
    }

    // The bare loop waits in its read.
    void readsWait(bool wait)
    {
        termios settings{};
        tcgetattr(reader_.tty(), &settings);
        settings.c_cc[VMIN] = wait ? 1 : 0;
        tcsetattr(reader_.tty(), TCSANOW, &settings);
    }

private:
    int size_;
    Bytes frame_;
    Bytes reply_;
    Reader reader_;
    unsigned char response_[VORN_RESPONSE_MAX + 16] = {};
};

double processorSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

struct Kind {
    const char* name;
    void (Host::*once)();
};
constexpr Kind kKinds[] = {
    {"whole", &Host::whole}, {"link", &Host::link}, {"logs", &Host::logs}, {"bare", &Host::bare}};
enum { Whole, Link, Logs, Bare, Kinds };

void runKind(Host& host, const Kind& kind, int count)
{
    host.readsWait(kind.once == &Host::bare);
    for (int i = 0; i < count; ++i) {
        (host.*kind.once)();
    }
}

void exchange(benchmark::State& state, std::size_t bytesBack)
{
    Host host(bytesBack);
    double seconds[Kinds] = {};
    for ([[maybe_unused]] auto _ : state) {
        const double before = seconds[Whole];
        for (int round = 0; round < kRounds; ++round) {
            for (int kind = 0; kind < Kinds; ++kind) {
                host.readsWait(kind == Bare);
                const double begin = processorSeconds();
                (host.*kKinds[kind].once)();
                seconds[kind] += processorSeconds() - begin;
            }
        }
        state.SetIterationTime((seconds[Whole] - before) / kRounds);
    }
    const double exchanges = static_cast<double>(state.iterations()) * kRounds;
    state.counters["ratio"] = seconds[Whole] / seconds[Bare];
    state.counters["link"] = seconds[Link] / seconds[Bare];
    state.counters["logs"] = seconds[Logs] / seconds[Bare];
    state.counters["whole_us"] = seconds[Whole] * 1e6 / exchanges;
    state.counters["bare_us"] = seconds[Bare] * 1e6 / exchanges;
}

int makeCalls(const std::string& kind, std::size_t bytesBack, int count)
{
    Host host(bytesBack);
    for (const Kind& each : kKinds) {
        if (kind == each.name) {
            runKind(host, each, count);
            return 0;
        }
    }
    return 2;
}

} // namespace

BENCHMARK_CAPTURE(exchange, back60, 60)->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(exchange, back255, 255)->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv)
{
    const OwnDirectory directory;
    if (argc == 5 && std::string(argv[1]) == "calls") {
        return makeCalls(argv[2], std::stoul(argv[3]), std::stoi(argv[4]));
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
