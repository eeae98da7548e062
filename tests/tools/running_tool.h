// SPDX-License-Identifier: Apache-2.0
// The tool as people and scripts meet it: a program with arguments, outputs and an exit code.
#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace vorn::test {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;
using Json = nlohmann::json;

enum Code {
    kOk = 0,
    kUsage = 2,
    kPort = 3,
    kPermission = 4,
    kNoCard = 5,
    kSilent = 6,
    kRefused = 7,
    kMute = 8,
    kNoApplication = 9,
    kCardRefused = 10,
    kMissing = 11,
    kDeclined = 12,
    kUnverified = 13,
    kScriptFailed = 14,
    kNoAccess = 15,
    kUnconfirmed = 16,
    kProfile = 17,
    kOutput = 18,
    kCardGone = 19,
    kWrongDevice = 20,
    kUnknown = 21,
    kReferral = 22,
    kPortBusy = 23,
    kTooLong = 24,
    kLineDisturbed = 25,
    kFindings = 26,
    kDiffers = 27,
    kInterrupted = 130
};

const std::string kPan = "6229990000710246589"; // of the profile "debit"
const std::string kMaskedPan = "622999*********6589";

inline fs::path tool() { return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "vorn"; }

// A directory of the test's own. The tool's temporary directories go there too.
class Scratch {
public:
    Scratch()
    {
        std::string name = (fs::temp_directory_path() / "vorn-test-XXXXXX").string();
        path_ = ::mkdtemp(name.data());
        fs::create_directory(temporary());
    }
    ~Scratch() { fs::remove_all(path_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    fs::path path() const { return path_; }
    fs::path temporary() const { return path_ / "tmp"; }
    std::string file(const std::string& name, const std::string& text) const
    {
        std::ofstream(path_ / name) << text;
        return (path_ / name).string();
    }

private:
    fs::path path_;
};

inline std::string contents(const fs::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class ToolTest : public testing::Test {
protected:
    ToolTest()
    {
#ifdef VORN_PATIENT_CLOCK // of programs that are started from here
        ::setenv("LD_PRELOAD", VORN_PATIENT_CLOCK, 1);
#endif
    }

    Scratch scratch;
};

constexpr int kPatience = 300000; // milliseconds for a tool that says nothing; never a measure

// A running tool.
class Process {
public:
    // results: a descriptor for its standard output, -1 for a pipe. inputFlags: of its standard input, as O_NONBLOCK.
    Process(const Scratch& scratch, const Arguments& arguments, int results = -1, bool unprivileged = false,
            int inputFlags = 0)
    {
        std::array<int, 2> in{}, out{}, err{};
        if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0 ||
            ::pipe2(err.data(), O_CLOEXEC) != 0 || ::fcntl(in[0], F_SETFL, inputFlags) != 0) {
            std::abort();
        }
        pid_ = ::fork();
        if (pid_ == 0) {
            become(scratch, arguments, in[0], results < 0 ? out[1] : results, err[1], unprivileged);
        }
        ::close(in[0]);
        ::close(out[1]);
        ::close(err[1]);
        in_ = in[1];
        out_ = out[0];
        err_ = err[0];
    }
    ~Process()
    {
        for (const int fd : {in_, out_, err_}) {
            if (fd >= 0) {
                ::close(fd);
            }
        }
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void write(const std::string& text) const
    {
        EXPECT_EQ(::write(in_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void closeInput()
    {
        ::close(in_);
        in_ = -1;
    }
    void signal(int number) const { ::kill(pid_, number); }
    void suspend() const // until SIGCONT
    {
        int status = 0;
        signal(SIGSTOP);
        EXPECT_EQ(::waitpid(pid_, &status, WUNTRACED), pid_);
        EXPECT_TRUE(WIFSTOPPED(status));
    }

    // What it says until that is what is waited for; all there was when it never is.
    template <class F>
    std::string outputUntil(F isWhole) const
    {
        return saidUntil(out_, isWhole);
    }
    template <class F>
    std::string errorsUntil(F isWhole) const
    {
        return saidUntil(err_, isWhole);
    }
    std::string outputLine() { return lineFrom(out_); }
    std::string errorLine() { return lineFrom(err_); }
    // Passes over lines until one begins so; false when it ends without one.
    bool outputReaches(const std::string& begin) const
    {
        for (std::string line; readLine(out_, line);) {
            if (line.rfind(begin, 0) == 0) {
                return true;
            }
        }
        return false;
    }

    // Both outputs to their ends, and the exit code.
    int finish(std::string& output, std::string& errors)
    {
        std::array<pollfd, 2> waiting{{{out_, POLLIN, 0}, {err_, POLLIN, 0}}};
        std::array<std::string*, 2> texts{&output, &errors};
        for (int open = 2; open > 0;) {
            if (::poll(waiting.data(), waiting.size(), kPatience) <= 0) {
                return -1;
            }
            for (std::size_t i = 0; i < 2; ++i) {
                if (waiting[i].revents == 0) {
                    continue;
                }
                std::array<char, 4096> piece{};
                const ssize_t count = ::read(waiting[i].fd, piece.data(), piece.size());
                if (count > 0) {
                    texts[i]->append(piece.data(), static_cast<std::size_t>(count));
                } else {
                    waiting[i].fd = -1;
                    --open;
                }
            }
        }
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    [[noreturn]] static void become(const Scratch& scratch, const Arguments& arguments, int in, int out, int err,
                                    bool unprivileged)
    {
        ::dup2(in, STDIN_FILENO);
        ::dup2(out, STDOUT_FILENO);
        ::dup2(err, STDERR_FILENO);
        ::setenv("TMPDIR", scratch.temporary().c_str(), 1);
        const std::string program = tool().string();
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        constexpr unsigned nobody = 65534;
        if (unprivileged && (::setgid(nobody) != 0 || ::setuid(nobody) != 0)) {
            ::_exit(127);
        }
        ::execv(program.c_str(), argv.data());
        ::_exit(127);
    }

    template <class F>
    static std::string saidUntil(int fd, F isWhole)
    {
        std::string text;
        pollfd waiting{fd, POLLIN, 0};
        while (!isWhole(text) && ::poll(&waiting, 1, kPatience) == 1) {
            std::array<char, 4096> piece{};
            const ssize_t count = ::read(fd, piece.data(), piece.size());
            if (count <= 0) {
                break;
            }
            text.append(piece.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

    static bool readLine(int fd, std::string& line) // false at the end, where the line is what was left
    {
        line.clear();
        for (char c = 0; ::read(fd, &c, 1) == 1; line += c) {
            if (c == '\n') {
                return true;
            }
        }
        return false;
    }

    static std::string lineFrom(int fd)
    {
        std::string line;
        readLine(fd, line);
        return line;
    }

    pid_t pid_ = -1;
    int in_ = -1, out_ = -1, err_ = -1;
};

struct Result {
    int code = -1;
    std::string output;
    std::string errors;

    Json json() const { return Json::parse(output); }
    bool says(const std::string& text) const { return output.find(text) != std::string::npos; }
    bool complains(const std::string& text) const { return errors.find(text) != std::string::npos; }
};

inline Result run(const Scratch& scratch, const Arguments& arguments, const std::string& input = {}, int results = -1,
                  bool unprivileged = false)
{
    Process process(scratch, arguments, results, unprivileged);
    if (!input.empty()) {
        process.write(input);
    }
    process.closeInput();
    Result result;
    result.code = process.finish(result.output, result.errors);
    return result;
}

// f(0) to f(count - 1), so many at a time: most of a run is waiting, for a reader that says nothing.
template <class F>
void inParallel(std::size_t count, F f)
{
    constexpr unsigned kAtATime = 24;
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kAtATime; ++i) {
        threads.emplace_back([&] {
            for (std::size_t at = next++; at < count; at = next++) {
                f(at);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

inline Arguments with(Arguments arguments, const Arguments& more)
{
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

} // namespace vorn::test
