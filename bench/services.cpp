// SPDX-License-Identifier: Apache-2.0
// How much time each service call takes on a line that is paced like a real one, against what that line itself needs:
// the frames' bytes in both directions at ten bits each, and the pauses of opening and closing the link.
//
//   bench_services [TIMES]      a line of JSON for each call and time
#include "sim/profiles/profile.h"
#include "sim/reader/pty_port.h"
#include "sim/reader/reader.h"

#include "ICC_COMM_VORN.h"
#include "bench/calls.h"
#include "bench/directory.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

using namespace vorn::bench;
namespace sim = vorn::sim;

namespace {

constexpr double kBitsPerByte = 10;
constexpr double kWorkSpeed = 38400;
constexpr double kRestSpeed = 9600;
constexpr double kOpening = 0.012 + 0.007;
constexpr double kClosing = 0.030 + 0.012 + 0.003;
constexpr double kSilence = 0.050;
// The switch sequences, whose bytes are out before the pause behind each of them is over.
constexpr unsigned long kOpeningBytes = 4;
constexpr unsigned long kClosingBytes = 4 + 6;

struct Need {
    double line;   // the bytes
    double pauses; // of the protocol
};

Need needOf(Call::Link link, unsigned long bytes)
{
    const auto at = [](unsigned long count, double speed) { return static_cast<double>(count) * kBitsPerByte / speed; };
    switch (link) {
    case Call::Link::OpenedAndClosed:
        return {at(bytes - kOpeningBytes - kClosingBytes, kWorkSpeed), kOpening + kClosing};
    case Call::Link::Opened:
        return {at(bytes - kOpeningBytes, kWorkSpeed), kOpening};
    case Call::Link::AtRest:
        break;
    }
    return {at(bytes, kRestSpeed), kSilence};
}

double processorSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void runErrand(const Errand& errand)
{
    sim::Reader reader;
    const sim::Profile profile = sim::findProfile(errand.profile);
    sim::load(profile, reader);
    sim::PtyPort::Options options;
    options.paced = true;
    sim::PtyPort port(reader, options);
    Desk desk{port.name(), sim::issuerOf(profile), {}};
    for (const Call& call : errand.calls) {
        const sim::PtyPort::Traffic before = port.traffic();
        const auto begin = std::chrono::steady_clock::now();
        const double processorBegin = processorSeconds();
        const int result = call.make(desk);
        const double processor = processorSeconds() - processorBegin;
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        const sim::PtyPort::Traffic after = port.traffic();
        if (result != VORN_OK) {
            throw std::runtime_error(std::string(call.name) + " returned " + std::to_string(result));
        }
        const Need need = needOf(call.link, after.toReader + after.fromReader - before.toReader - before.fromReader);
        std::printf("\n{\"name\": \"tty/%s\", \"ratio\": %.6f, \"seconds\": %.6f, \"line\": %.6f, \"pauses\": %.6f, "
                    "\"processor\": %.6f}\n",
                    call.name, took.count() / (need.line + need.pauses), took.count(), need.line, need.pauses,
                    processor);
        std::fflush(stdout);
    }
    char nothing[] = "";
    OpenDev(0, nothing); // gives back what the last call may have left open
}

} // namespace

int main(int argc, char** argv)
{
    const OwnDirectory directory;
    const int times = argc > 1 ? std::stoi(argv[1]) : 1;
    for (int i = 0; i < times; ++i) {
        for (const Errand& errand : errands()) {
            runErrand(errand);
        }
    }
    return 0;
}
