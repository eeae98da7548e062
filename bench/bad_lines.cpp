// SPDX-License-Identifier: Apache-2.0
// Which results a host sees on a line that loses, doubles and damages bytes, and what a success is worth there: service
// calls in frozen time, on a line of the program's own, so that the same seeds give the same table on any machine.
//
//   bench_bad_lines [TIMES]      the tables of docs/bad-lines.md; every call TIMES times in each row (default 100)
#include "support/bad_line.h"

#include "bench/directory.h"
#include "bench/own_output.h"
#include "vorn/result.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

using namespace vorn::test;
using vorn::bench::OwnOutput;

namespace {

constexpr int kTimes = 100;
constexpr int kRates[] = {100000, 10000, 1000, 100}; // one byte in so many
constexpr int kMiddleRate = 1000;
constexpr std::uint64_t kMostCalls = 10; // of a sequence, each with a seed of its own

enum class Kind { Lost, Doubled, Damaged, All };
constexpr const char* kKinds[] = {"lost", "doubled", "a bit flipped", "all three"};

enum class Way { Both, ToReader, ToHost };
constexpr const char* kWays[] = {"both", "to the reader", "to the host"};

struct Tally {
    int calls = 0;
    int undisturbed = 0;
    std::array<int, static_cast<std::size_t>(Ending::Count)> endings{};
    std::map<int, int> results;                 // of failed calls
    std::map<Cause, std::array<int, 2>> causes; // less, wrong
    int undocumented = 0;
    int unrecovered = 0;

    void add(const Outcome& outcome)
    {
        ++calls;
        undisturbed += outcome.errors == 0 ? 1 : 0;
        ++endings[static_cast<std::size_t>(outcome.ending)];
        if (outcome.ending == Ending::Failed) {
            ++results[outcome.record.result];
        }
        if (outcome.ending == Ending::Less || outcome.ending == Ending::Wrong) {
            ++causes[outcome.cause][outcome.ending == Ending::Wrong ? 1 : 0];
        }
        undocumented += outcome.documented ? 0 : 1;
        unrecovered += outcome.recovered ? 0 : 1;
    }

    int ended(Ending ending) const { return endings[static_cast<std::size_t>(ending)]; }

    // The commonest first.
    std::string resultsText() const
    {
        std::vector<std::pair<int, int>> rows(results.begin(), results.end());
        std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
        std::string text;
        for (const auto& [result, count] : rows) {
            text += (text.empty() ? "" : ", ") + std::to_string(result) + ": " + std::to_string(count);
        }
        return text;
    }
};

ErrorRates ratesOf(Kind kind, int oneIn)
{
    const double rate = 1.0 / oneIn;
    switch (kind) {
    case Kind::Lost:
        return {rate, 0, 0};
    case Kind::Doubled:
        return {0, rate, 0};
    case Kind::Damaged:
        return {0, 0, rate};
    case Kind::All:
        break;
    }
    return {rate / 3, rate / 3, rate / 3};
}

class Tables {
public:
    Tables(OwnOutput& out, int times) : out_(out), times_(times) {}

    void byRate()
    {
        out_.print("table: rates\n| bytes | one in | right | failed | less | wrong | results of the failed |\n"
                   "|---|---|---|---|---|---|---|\n");
        for (const Kind kind : {Kind::Lost, Kind::Doubled, Kind::Damaged}) {
            for (const int oneIn : kRates) {
                const Tally tally = runAll(kind, oneIn, Way::Both);
                out_.print("| %s | %d | %d | %d | %d | %d | %s |\n", kKinds[static_cast<int>(kind)], oneIn,
                           tally.ended(Ending::Right), tally.ended(Ending::Failed), tally.ended(Ending::Less),
                           tally.ended(Ending::Wrong), tally.resultsText().c_str());
                addCauses(kind, tally);
            }
        }
    }

    void byCause()
    {
        out_.print("\ntable: causes\n| what brought it about | lost: less, wrong | doubled | a bit flipped "
                   "|\n|---|---|---|---|\n");
        for (const auto& [cause, kinds] : causes_) {
            out_.print("| %s |", nameOf(cause));
            for (const auto& counts : kinds) {
                out_.print(" %d, %d |", counts[0], counts[1]);
            }
            out_.print("\n");
        }
    }

    void byWay()
    {
        out_.print("\ntable: directions\n| direction | right | failed | less | wrong | results of the failed "
                   "|\n|---|---|---|---|---|---|\n");
        for (const Way way : {Way::ToReader, Way::ToHost}) {
            const Tally tally = runAll(Kind::All, kMiddleRate, way);
            out_.print("| %s | %d | %d | %d | %d | %s |\n", kWays[static_cast<int>(way)], tally.ended(Ending::Right),
                       tally.ended(Ending::Failed), tally.ended(Ending::Less), tally.ended(Ending::Wrong),
                       tally.resultsText().c_str());
        }
    }

    void byCall()
    {
        out_.print("\ntable: calls\n| call | undisturbed | right | failed | less | wrong | results of the failed |\n"
                   "|---|---|---|---|---|---|---|\n");
        std::vector<std::pair<std::string, Tally>> rows;
        for (const CallPlace& place : line_.places()) {
            const std::string& call = line_.truth(place).call;
            auto row = std::find_if(rows.begin(), rows.end(), [&call](const auto& r) { return r.first == call; });
            if (row == rows.end()) {
                row = rows.insert(row, {call, {}});
            }
            runPlace(place, Kind::All, kMiddleRate, Way::Both, row->second);
        }
        for (const auto& [call, tally] : rows) {
            out_.print("| `%s` | %d | %d | %d | %d | %d | %s |\n", call.c_str(), tally.undisturbed,
                       tally.ended(Ending::Right), tally.ended(Ending::Failed), tally.ended(Ending::Less),
                       tally.ended(Ending::Wrong), tally.resultsText().c_str());
            whole_.unrecovered += tally.unrecovered;
        }
    }

    // One error in a call of one exchange, at every byte.
    void oneError()
    {
        out_.print(
            "\ntable: one error\n| call | error in | errors | right | failed | less | wrong | results of the failed |\n"
            "|---|---|---|---|---|---|---|---|\n");
        for (const char* call : {"IC_PowerOn", "IC_SendAPDU", "IC_M1CheckCardPin", "IC_M1ReadCard", "IC_M1WriteCard"}) {
            const CallPlace place = placeOf(call);
            for (const bool toReader : {true, false}) {
                const Tally tally = oneErrorAt(place, toReader);
                out_.print("| `%s` | %s | %d | %d | %d | %d | %d | %s |\n", call,
                           toReader ? "sequences and command" : "reply", tally.calls, tally.ended(Ending::Right),
                           tally.ended(Ending::Failed), tally.ended(Ending::Less), tally.ended(Ending::Wrong),
                           tally.resultsText().c_str());
            }
        }
    }

    // Nothing of a sequence goes over a good line; the next customer's does.
    void sequences()
    {
        out_.print("\ntable: sequences\n| all calls of | one in | sequences | calls failed | not right afterwards |\n"
                   "|---|---|---|---|---|\n");
        for (std::size_t errand = 0; errand < errands().size(); ++errand) {
            for (const int oneIn : {kMiddleRate, kMiddleRate / 10}) {
                int failed = 0, unrecovered = 0;
                for (int i = 0; i < times_; ++i) {
                    BadStretch bad;
                    bad.toReader = bad.toHost = ratesOf(Kind::All, oneIn);
                    bad.seed = seed_ += kMostCalls;
                    const SequenceOutcome outcome = line_.runAll(errand, bad);
                    failed += static_cast<int>(std::count_if(outcome.records.begin(), outcome.records.end(),
                                                             [](const CallRecord& r) { return r.result != VORN_OK; }));
                    unrecovered += outcome.recovered ? 0 : 1;
                    whole_.calls += static_cast<int>(outcome.records.size());
                    whole_.undocumented += outcome.documented ? 0 : 1;
                    whole_.unrecovered += outcome.recovered ? 0 : 1;
                }
                vorn::bench::removeLogs();
                out_.print("| %s | %d | %d | %d | %d |\n", errands()[errand].name, oneIn, times_, failed, unrecovered);
            }
        }
    }

    // One error at every byte that a call with a card sends; then the version, for which the line is not switched.
    void versionBehind()
    {
        out_.print("\ntable: version\n| error in | errors | version told | not told (-11) |\n|---|---|---|---|\n");
        const CallPlace place = placeOf("IC_PowerOff");
        const std::size_t bytes = line_.run(place, {}).bytesToReader;
        const struct {
            const char* name;
            std::size_t from, to;
        } parts[] = {{"ESC $ I 2", 0, 4},
                     {"the command", 4, bytes - 10},
                     {"ESC $ I 4", bytes - 10, bytes - 6},
                     {"ESC $ B ESC % A", bytes - 6, bytes}};
        for (const auto& part : parts) {
            int told = 0, all = 0;
            for (std::size_t byte = part.from; byte < part.to; ++byte) {
                for (const OneError& error : errorsAt(byte)) {
                    BadStretch bad;
                    bad.oneToReader = error;
                    told += line_.versionBehind(place, bad) == VORN_OK ? 1 : 0;
                    ++all;
                }
            }
            out_.print("| %s | %d | %d | %d |\n", part.name, all, told, all - told);
        }
    }

    void summary()
    {
        out_.print("\n%d calls were made on a bad line in all. Results that the header does not name: %d. Calls after "
                   "them, on a good line, that were not right: %d.\n",
                   whole_.calls, whole_.undocumented, whole_.unrecovered);
    }

private:
    CallPlace placeOf(const std::string& call) const
    {
        return *std::find_if(line_.places().begin(), line_.places().end(),
                             [&](const CallPlace& place) { return line_.truth(place).call == call; });
    }

    Outcome run(const CallPlace& place, const BadStretch& bad)
    {
        const Outcome outcome = line_.run(place, bad);
        whole_.add(outcome);
        if (whole_.calls % 200 == 0) {
            vorn::bench::removeLogs();
        }
        return outcome;
    }

    void runPlace(const CallPlace& place, Kind kind, int oneIn, Way way, Tally& tally)
    {
        BadStretch bad;
        bad.toReader = way == Way::ToHost ? ErrorRates{} : ratesOf(kind, oneIn);
        bad.toHost = way == Way::ToReader ? ErrorRates{} : ratesOf(kind, oneIn);
        for (int i = 0; i < times_; ++i) {
            bad.seed = ++seed_;
            tally.add(run(place, bad));
        }
    }

    Tally runAll(Kind kind, int oneIn, Way way)
    {
        Tally tally;
        for (const CallPlace& place : line_.places()) {
            runPlace(place, kind, oneIn, way, tally);
        }
        return tally;
    }

    Tally oneErrorAt(const CallPlace& place, bool toReader)
    {
        const Outcome whole = line_.run(place, {});
        const std::size_t bytes = toReader ? whole.bytesToReader : whole.bytesToHost;
        Tally tally;
        for (std::size_t byte = 0; byte < bytes; ++byte) {
            for (const OneError& error : errorsAt(byte)) {
                BadStretch bad;
                (toReader ? bad.oneToReader : bad.oneToHost) = error;
                tally.add(run(place, bad));
            }
        }
        return tally;
    }

    static std::vector<OneError> errorsAt(std::size_t byte)
    {
        std::vector<OneError> errors = {{OneError::Kind::Lost, byte, 0}, {OneError::Kind::Doubled, byte, 0}};
        for (unsigned bit = 0; bit < 8; ++bit) {
            errors.push_back({OneError::Kind::Damaged, byte, bit});
        }
        return errors;
    }

    void addCauses(Kind kind, const Tally& tally)
    {
        for (const auto& [cause, counts] : tally.causes) {
            auto& sum = causes_[cause][static_cast<std::size_t>(kind)];
            sum[0] += counts[0];
            sum[1] += counts[1];
        }
    }

    OwnOutput& out_;
    int times_;
    BadLine line_;
    std::uint64_t seed_ = 0;
    Tally whole_;
    std::map<Cause, std::array<std::array<int, 2>, 3>> causes_;
};

} // namespace

int main(int argc, char** argv)
{
    const vorn::bench::OwnDirectory directory;
    OwnOutput out;
    Tables tables(out, argc > 1 ? std::stoi(argv[1]) : kTimes);
    tables.byRate();
    tables.byCause();
    tables.byWay();
    tables.byCall();
    tables.sequences();
    tables.oneError();
    tables.versionBehind();
    tables.summary();
    return 0;
}
