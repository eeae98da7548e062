// SPDX-License-Identifier: Apache-2.0
#include "support/bad_line.h"

#include "support/clock.h"

#include "ICC_COMM_VORN.h"

#include <algorithm>
#include <regex>
#include <stdexcept>

namespace vorn::test {
namespace {

constexpr std::uint8_t kStx = 0x02;
constexpr std::uint8_t kEtx = 0x03;
constexpr std::uint8_t kEsc = 0x1B;
constexpr std::size_t kContentAt = 2; // of a decoded frame, behind the length
constexpr std::size_t kPayloadAt = 2; // of a reply's content, behind a byte that nobody reads and the status
constexpr std::int64_t kBetweenCustomers = 60000000;
constexpr std::size_t kPayloadMax = sim::Reader::kPayloadMax;

// ---------------------------------------------------------------- what is in a frame, strictly and as hosts read it

struct Frame {
    bool came = false;    // from an STX to an ETX
    bool correct = false; // characters, length and check
    Bytes content;        // as the length announces it, zeros where less came
};

Frame frameIn(const Bytes& bytes)
{
    Frame frame;
    const auto begin = std::find(bytes.begin(), bytes.end(), kStx);
    const auto end = std::find(begin, bytes.end(), kEtx);
    if (begin == bytes.end() || end == bytes.end()) {
        return frame;
    }
    frame.came = true;
    const Bytes text(begin + 1, end);
    const bool inRange = std::all_of(text.begin(), text.end(), [](unsigned c) { return c >= 0x30 && c <= 0x3F; });
    Bytes decoded;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        decoded.push_back(static_cast<std::uint8_t>((text[i] & 0x0F) << 4 | (text[i + 1] & 0x0F)));
    }
    if (text.size() % 2 != 0) {
        decoded.push_back(static_cast<std::uint8_t>(text.back() & 0x0F)); // as it stands
    }
    const std::size_t arrived = decoded.size();
    decoded.resize(std::max(decoded.size(), kContentAt), 0);
    const std::size_t announced = decoded[0] * 256U + decoded[1];
    std::uint8_t check = 0;
    for (std::size_t i = kContentAt; i + 1 < arrived; ++i) {
        check = static_cast<std::uint8_t>(check ^ decoded[i]);
    }
    frame.correct = inRange && text.size() % 2 == 0 && arrived == announced + kContentAt + 1 && check == decoded.back();
    const std::size_t used = std::min(std::max<std::size_t>(announced, kPayloadAt), kPayloadMax + kPayloadAt);
    decoded.resize(std::max(decoded.size(), kContentAt + used), 0);
    frame.content.assign(decoded.begin() + kContentAt,
                         decoded.begin() + static_cast<std::ptrdiff_t>(kContentAt + used));
    return frame;
}

// Hosts tell three kinds of status apart.
int statusClass(const Bytes& content) { return content[1] == 0 ? 0 : content[1] == 0x02 || content[1] == 0x06 ? 2 : 1; }

// Does it say the same to a host? The first byte says nothing, and of a refusal the status says all.
bool sameToHost(const Bytes& one, const Bytes& other)
{
    return statusClass(one) == statusClass(other) &&
           (statusClass(one) != 0 || std::equal(one.begin() + 1, one.end(), other.begin() + 1, other.end()));
}

bool asksForVersion(const TimedLine::Exchange& exchange) { return !exchange.sent.empty() && exchange.sent[0] == kEsc; }

// What became of one reply, if it matters.
Cause causeIn(const TimedLine::Exchange& exchange)
{
    if (asksForVersion(exchange)) {
        return exchange.received == exchange.replied ? Cause::Nothing : Cause::PlainText;
    }
    const Frame meant = frameIn(exchange.replied);
    const Frame came = frameIn(exchange.received);
    if (!came.came || !meant.came) {
        return Cause::NotAnswered;
    }
    const bool refused = statusClass(meant.content) == 1;
    if (sameToHost(meant.content, came.content)) {
        // The reader's word for a command that it could not read is a refusal like others.
        return refused && meant.content[1] == 0xF0 ? Cause::NotAnswered : Cause::Nothing;
    }
    return came.correct ? Cause::ReplyLikeItsCheck : Cause::ReplyUnlikeItsCheck;
}

// ---------------------------------------------------------------- calls

bool saysNothingBack(const std::string& call)
{
    return call == "IC_PowerOff" || call == "IC_M1PowerOff" || call == "IC_M1CheckCardPin" || call == "IC_M1WriteCard";
}

bool neverFails(const std::string& call) { return call == "IC_PowerOff" || call == "IC_M1PowerOff"; }

// The card counts its transactions: with each its cryptograms and the counter in its data are others.
bool sameButForTheCounter(const CallRecord& one, const CallRecord& other)
{
    if (one.call == "IC_GenARQC" || one.call == "IC_CtlScriptData") {
        return one.call == other.call && one.result == other.result;
    }
    static const std::regex counter("H004[0-9A-F]{4}");
    const auto without = [](CallRecord record) {
        if (record.call == "IC_GetInfo") {
            record.texts[0] = std::regex_replace(record.texts[0], counter, "H");
        }
        return record;
    };
    return without(one) == without(other);
}

bool sameDoings(const std::vector<sim::Reader::Exchange>& one, const std::vector<sim::Reader::Exchange>& other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](const sim::Reader::Exchange& a, const sim::Reader::Exchange& b) {
                          return a.command == b.command && a.status == b.status;
                      });
}

} // namespace

const char* nameOf(Ending ending)
{
    static const char* const names[] = {"right", "failed", "less", "wrong"};
    return names[static_cast<int>(ending)];
}

const char* nameOf(Cause cause)
{
    static const char* const names[] = {"nothing",
                                        "a reply that its check byte or length contradicts",
                                        "a reply that its check byte and length agree with",
                                        "a command that its check byte and length agree with",
                                        "a plain text",
                                        "a command or reply that came to nothing",
                                        "a reply to another command",
                                        "unknown"};
    return names[static_cast<int>(cause)];
}

BadLine::BadLine()
{
    for (const Errand& errand : errands()) {
        profiles_.push_back(sim::findProfile(errand.profile));
    }
    for (std::size_t errand = 0; errand < errands().size(); ++errand) {
        freshDesk(errand);
        Trip good = makeTrip(errand, nullptr, nullptr);
        for (std::size_t call = 0; call < good.records.size(); ++call) {
            if (good.records[call].result != VORN_OK) {
                throw std::runtime_error(toText(good.records[call]) + " on a good line");
            }
            places_.push_back({errand, call});
        }
        truths_.push_back({std::move(good.records), std::move(good.carriedOut)});
    }
}

void BadLine::freshDesk(std::size_t errand)
{
    desk_ = std::make_unique<SimulatedDesk>(TimedLine::kPort, profiles_[errand]);
    line_.renew(desk_->reader());
    m_VrICType = VORN_INTERFACE_NONE;
}

void BadLine::spoil(const BadStretch& bad)
{
    const bool one = bad.oneToReader.kind != OneError::Kind::None || bad.oneToHost.kind != OneError::Kind::None;
    if (one) {
        line_.toReader.set(bad.oneToReader);
        line_.toHost.set(bad.oneToHost);
    } else {
        line_.toReader.set(bad.toReader, 2 * bad.seed);
        line_.toHost.set(bad.toHost, 2 * bad.seed + 1);
    }
}

void BadLine::noteLine()
{
    bad_.errors = line_.toReader.made() + line_.toHost.made();
    bad_.bytesToReader = line_.toReader.passed();
    bad_.bytesToHost = line_.toHost.passed();
    stale_ = line_.staleReplyRead();
}

BadLine::Trip BadLine::makeTrip(std::size_t errand, const CallPlace* place, const BadStretch* bad)
{
    Trip trip;
    Clock::advance(kBetweenCustomers);
    Clock::forgetSleeps();
    line_.renewHost();
    desk_->reader().clearHistory();
    const auto endCall = [&] {
        trip.carriedOut.push_back(desk_->reader().exchanges());
        trip.onLine.push_back(line_.exchanges());
        if (place != nullptr && trip.onLine.size() - 1 == place->call) {
            noteLine();
        }
        line_.toReader.clear();
        line_.toHost.clear();
        line_.forgetExchanges();
        desk_->reader().clearHistory();
    };
    line_.onOpen = [&](int opening) {
        if (opening > 1) {
            endCall();
        }
        const auto call = static_cast<std::size_t>(opening) - 1;
        if (place != nullptr && (place->call == kAllCalls || place->call == call)) {
            BadStretch stretch = *bad;
            stretch.seed += place->call == kAllCalls ? call : 0;
            spoil(stretch);
        }
    };
    trip.records = errands()[errand].run(*desk_);
    endCall();
    line_.onOpen = {};
    return trip;
}

Outcome BadLine::run(const CallPlace& place, const BadStretch& bad)
{
    freshDesk(place.errand);
    const Trip trip = makeTrip(place.errand, &place, &bad);
    Outcome outcome = bad_;
    outcome.record = trip.records.at(place.call);
    outcome.ending = endingOf(place, trip);
    outcome.documented = documentedResults(outcome.record.call).count(outcome.record.result) == 1;
    if (outcome.ending == Ending::Less || outcome.ending == Ending::Wrong) {
        outcome.cause = causeOf(place, trip, stale_);
    }
    const Trip next = makeTrip(place.errand, nullptr, nullptr);
    // What was not read, or wrong, was then written to the card.
    const bool blockMayDiffer = outcome.ending != Ending::Right && outcome.record.call == "IC_M1ReadCard";
    outcome.recovered = isRightAgain(place.errand, next, blockMayDiffer);
    if (!outcome.recovered) {
        for (const CallRecord& record : next.records) {
            outcome.next += toText(record) + "\n";
        }
    }
    return outcome;
}

SequenceOutcome BadLine::runAll(std::size_t errand, const BadStretch& bad)
{
    freshDesk(errand);
    const CallPlace all{errand, kAllCalls};
    SequenceOutcome outcome;
    outcome.records = makeTrip(errand, &all, &bad).records;
    outcome.documented = std::all_of(outcome.records.begin(), outcome.records.end(), [](const CallRecord& record) {
        return documentedResults(record.call).count(record.result) == 1;
    });
    outcome.recovered = isRightAgain(errand, makeTrip(errand, nullptr, nullptr), true);
    return outcome;
}

int BadLine::versionBehind(const CallPlace& place, const BadStretch& bad)
{
    freshDesk(place.errand);
    makeTrip(place.errand, &place, &bad);
    std::vector<char> version(ICC_DEVICE_TEXT_CAPACITY, '\0');
    std::vector<char> date(1, '\0');
    std::vector<char> serial(1, '\0');
    return GetDevInfo(desk_->port(), version.data(), date.data(), serial.data());
}

Ending BadLine::endingOf(const CallPlace& place, const Trip& trip) const
{
    const CallRecord& record = trip.records[place.call];
    const CallRecord& good = truth(place);
    if (record.result != VORN_OK) {
        return Ending::Failed;
    }
    if (!(record == good)) {
        return saysNoMoreThan(good, record) ? Ending::Less : Ending::Wrong;
    }
    const bool done = !saysNothingBack(record.call) ||
                      sameDoings(trip.carriedOut[place.call], truths_[place.errand].exchanges[place.call]);
    return done ? Ending::Right : neverFails(record.call) ? Ending::Less : Ending::Wrong;
}

Cause BadLine::causeOf(const CallPlace& place, const Trip& trip, bool staleReplyRead) const
{
    if (staleReplyRead) {
        return Cause::ReplyToAnother;
    }
    const std::vector<TimedLine::Exchange>& onLine = trip.onLine[place.call];
    const auto sent = [&onLine](const Bytes& command) {
        return std::any_of(onLine.begin(), onLine.end(), [&command](const TimedLine::Exchange& exchange) {
            return frameIn(exchange.sent).content == command;
        });
    };
    const auto& carriedOut = trip.carriedOut[place.call];
    if (!std::all_of(carriedOut.begin(), carriedOut.end(), [&](const auto& done) { return sent(done.command); })) {
        return Cause::CommandLikeItsCheck;
    }
    Cause found = Cause::Unknown;
    for (const TimedLine::Exchange& exchange : onLine) {
        const Cause cause = causeIn(exchange);
        if (cause != Cause::Nothing && (found == Cause::Unknown || found == Cause::NotAnswered)) {
            found = cause;
        }
    }
    return found;
}

bool BadLine::isRightAgain(std::size_t errand, const Trip& trip, bool blockMayDiffer) const
{
    const std::vector<CallRecord>& good = truths_[errand].records;
    if (trip.records.size() != good.size()) {
        return false;
    }
    for (std::size_t call = 0; call < good.size(); ++call) {
        const CallRecord& record = trip.records[call];
        if (record.result != VORN_OK) {
            return false;
        }
        if (record.call == "IC_CtlScriptData") {
            const sim::Verification completion = desk_->issuer().verifyCompletion(record.texts[0]);
            constexpr std::uint8_t kTransactionCertificate = 0x40;
            if (!completion.verified || completion.type != kTransactionCertificate) {
                return false;
            }
        }
        const bool differs = !sameButForTheCounter(record, good[call]);
        if (differs && !(blockMayDiffer && record.call == "IC_M1ReadCard")) {
            return false;
        }
    }
    return true;
}

} // namespace vorn::test
