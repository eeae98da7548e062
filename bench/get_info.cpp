// SPDX-License-Identifier: Apache-2.0
// How much time IC_GetInfo takes on a line that is paced like a real one at 38400 baud, against what that line itself
// needs: the frames' bytes in both directions at ten bits each, and the delays of opening and closing the link.
#include "sim/profiles/profile.h"
#include "sim/reader/pty_port.h"
#include "sim/reader/reader.h"

#include "ICC_COMM_VORN.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr double kBitsPerByte = 10;
constexpr double kBitsPerSecond = 38400;
constexpr double kLinkDelays = 0.012 + 0.007 + 0.030 + 0.012 + 0.003;
constexpr unsigned long kSequenceBytes = 4 + 4 + 6; // the switch sequences, which are not frames

struct Run {
    double seconds;
    double lineSeconds;
    std::size_t exchanges;
};

Run readCard(const char* profile)
{
    vorn::sim::Reader reader;
    vorn::sim::load(vorn::sim::findProfile(profile), reader);
    vorn::sim::PtyPort::Options options;
    options.paced = true;
    vorn::sim::PtyPort port(reader, options);

    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    std::vector<char> record(ICC_USER_INFO_CAPACITY);
    const auto begin = std::chrono::steady_clock::now();
    const int result =
        IC_GetInfo(port.name().c_str(), "", 9600, 10, &cardType, nullptr, "ABCDEFGHIJKL", &length, record.data());
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    if (result != VORN_OK) {
        std::fprintf(stderr, "IC_GetInfo returned %d\n", result);
        std::exit(1);
    }
    std::size_t exchanges = 0;
    port.locked([&] { exchanges = reader.exchanges().size(); });
    const auto traffic = port.traffic();
    const auto frameBytes = static_cast<double>(traffic.toReader + traffic.fromReader - kSequenceBytes);
    return {took.count(), frameBytes * kBitsPerByte / kBitsPerSecond + kLinkDelays, exchanges};
}

void getInfo(benchmark::State& state, const char* profile)
{
    double seconds = 0;
    double lineSeconds = 0;
    std::size_t exchanges = 0;
    for ([[maybe_unused]] auto _ : state) {
        const Run run = readCard(profile);
        state.SetIterationTime(run.seconds);
        seconds += run.seconds;
        lineSeconds += run.lineSeconds;
        exchanges = run.exchanges;
    }
    state.counters["exchanges"] = static_cast<double>(exchanges);
    state.counters["line_s"] = lineSeconds / static_cast<double>(state.iterations());
    state.counters["ratio"] = seconds / lineSeconds;
}

} // namespace

BENCHMARK_CAPTURE(getInfo, debit, "debit")->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    // The library's log files go to a directory of their own.
    char directory[] = "/tmp/vorn-bench-XXXXXX";
    if (mkdtemp(directory) == nullptr || chdir(directory) != 0) {
        std::perror("no working directory");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return std::system(("rm -r " + std::string(directory)).c_str()) == 0 ? 0 : 1;
}
