// SPDX-License-Identifier: Apache-2.0
// What the simulated reader needs for an exchange, without a line: one reader with its card, and a hundred of them in
// one process, each in turn. "ratio" is what an exchange costs among a hundred against one alone.
#include "sim/profiles/profile.h"
#include "sim/reader/reader.h"

#include "bench/frames.h"

#include <benchmark/benchmark.h>

#include <ctime>
#include <memory>
#include <stdexcept>
#include <vector>

using namespace vorn::bench;
namespace sim = vorn::sim;

namespace {

constexpr int kRounds = 20;

double processorSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Power on, the directory, a record, power off.
const std::vector<Bytes>& session()
{
    static const std::vector<Bytes> frames = {
        frameOf({0x32, 0x22, 0x01, 0x80, 0x00}),
        frameOf({0x32, 0x26, 0x00, 0x00, 0xA4, 0x04, 0x00, 0x0E, 0x31, 0x50, 0x41,
                 0x59, 0x2E, 0x53, 0x59, 0x53, 0x2E, 0x44, 0x44, 0x46, 0x30, 0x31}),
        frameOf({0x32, 0x26, 0x00, 0x00, 0xB2, 0x01, 0x0C, 0x00}),
        frameOf({0x32, 0x23, 0x00}),
    };
    return frames;
}

std::unique_ptr<sim::Reader> readerWithCard()
{
    auto reader = std::make_unique<sim::Reader>();
    sim::load(sim::findProfile("debit"), *reader);
    return reader;
}

void serve(sim::Reader& reader, const Bytes& frame)
{
    if (reader.receive(frame).empty()) {
        throw std::runtime_error("the reader is silent");
    }
}

void simulator(benchmark::State& state)
{
    const auto one = readerWithCard();
    std::vector<std::unique_ptr<sim::Reader>> many(static_cast<std::size_t>(state.range(0)));
    for (auto& reader : many) {
        reader = readerWithCard();
    }
    const double exchanges = kRounds * static_cast<double>(many.size() * session().size());
    double alone = 0;
    double among = 0;
    for ([[maybe_unused]] auto _ : state) {
        const double begin = processorSeconds();
        for (int round = 0; round < kRounds; ++round) {
            for (const Bytes& frame : session()) {
                for (const auto& reader : many) {
                    serve(*reader, frame);
                }
            }
        }
        const double between = processorSeconds();
        for (std::size_t round = 0; round < kRounds * many.size(); ++round) {
            for (const Bytes& frame : session()) {
                serve(*one, frame);
            }
        }
        alone += processorSeconds() - between;
        among += between - begin;
        state.SetIterationTime((between - begin) / exchanges);
    }
    state.counters["ratio"] = among / alone;
    state.counters["per_second"] = exchanges * static_cast<double>(state.iterations()) / among;
}
BENCHMARK(simulator)->ArgName("cards")->Arg(100)->UseManualTime()->Iterations(3);

} // namespace

BENCHMARK_MAIN();
