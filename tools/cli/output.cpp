// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/output.h"

#include "tools/cli/errors.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace vorn::tool {

namespace {

int results = STDOUT_FILENO;
bool printed = false;

} // namespace

void keepStandardOutput()
{
    // A reader of a pipe that goes away must not keep the card powered or the log files in place.
    std::signal(SIGPIPE, SIG_IGN);
    const int kept = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (kept >= 0) {
        results = kept;
    }
}

void print(std::string_view text)
{
    printed = true;
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(results, text.data() + done, text.size() - done);
        if (count >= 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno == EPIPE) {
            throw Failure(Exit::Output, ""); // who asked has gone: nobody to tell
        } else if (errno != EINTR) {
            throw Failure(Exit::Output, std::string("the result could not be written: ") + std::strerror(errno));
        }
    }
}

void printLine(const std::string& text) { print(text + "\n"); }

std::string jsonText(const Json& document, int indent)
{
    return document.dump(indent, ' ', false, Json::error_handler_t::replace);
}

void printJson(const Json& document) { printLine(jsonText(document)); }

bool documentPrinted() { return printed; }

void printJsonLine(const Json& document)
{
    const bool before = printed;
    printLine(jsonText(document, -1));
    printed = before; // one of several documents, and an error is another
}

void printResult(Json& document, std::optional<Failure>& failure)
{
    if (failure) {
        document["error"] = errorDocument(*failure);
        failure->tell();
    }
    printJson(document);
}

void note(const std::string& text) { std::fprintf(stderr, "%s\n", text.c_str()); }

Progress::Progress() : terminal_(::isatty(STDERR_FILENO) == 1) {}

Progress::~Progress()
{
    if (shown_) {
        std::fputs("\r\x1B[K", stderr);
    }
}

void Progress::show(const std::string& text)
{
    if (!terminal_) {
        return;
    }
    std::fprintf(stderr, "\r%s\x1B[K", text.c_str());
    std::fflush(stderr);
    shown_ = true;
}

} // namespace vorn::tool
