// SPDX-License-Identifier: Apache-2.0
// How much of each pause, gap and time-out is room to spare: one of them at a time is made longer or shorter until
// calls begin to fail, in frozen time, on a line of the program's own, so that the table is the same on any machine.
//
//   bench_margins      the tables of docs/margins.md
#include "sim/reader/fault.h"
#include "support/clock.h"
#include "support/simulated_desk.h"
#include "support/timed_line.h"
#include "support/timed_usb.h"

#include "ICC_COMM_VORN.h"
#include "bench/directory.h"
#include "bench/own_output.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using namespace vorn::test;
using vorn::bench::OwnOutput;
namespace sim = vorn::sim;

namespace {

using Us = std::int64_t;
constexpr Us kMs = 1000;
constexpr Us kSecond = 1000 * kMs;
constexpr Us kBetweenCustomers = 60 * kSecond;
constexpr Us kLongest = 4 * kSecond; // what is tried, unless a row says otherwise
constexpr Us kStep = 10;             // how exactly a margin is found
constexpr int kPhases = 16;

// ---------------------------------------------------------------- what is made different

enum class Pause { None, AfterSwitch, AfterSpeed, AfterSwitchBack, AfterRestore, AfterClose, Each };

struct Conditions {
    LineTiming line;
    UsbTiming usb;
    Pause pause = Pause::None; // one of the protocol's pauses lasts
    Us lasts = 0;              // this long
    Us askingEvery = 0;        // not 0: the millisecond between two looks at the line lasts this long
    Us onceAsleep = 0;         // not 0: one of them does, while a reply comes
    Us sleepsInStepsOf = 0;    // not 0: every sleep lasts until the next of the terminal's timer ticks
};

// A terminal that reaches the reader through a USB adapter: what it writes is on the line two milliseconds later,
// nobody says when, and what it receives comes every 16 milliseconds.
LineTiming adapter()
{
    LineTiming line;
    line.sendDelay = 2 * kMs;
    line.tellsUnsent = false;
    line.handOverEvery = 16 * kMs;
    return line;
}

// Decides how long each sleep of the library lasts.
class Sleeper {
public:
    Sleeper(const TimedLine& line, const Conditions& conditions) : line_(line), conditions_(conditions) {}

    Us lasting(Us asked)
    {
        const Pause pause = pauseOf(asked);
        if (pause != Pause::None && (pause == conditions_.pause || conditions_.pause == Pause::Each)) {
            return conditions_.lasts;
        }
        if (pause == Pause::None && asked <= kMs) {
            const std::size_t bytes = line_.exchanges().empty() ? 0 : line_.bytesRead();
            if (conditions_.onceAsleep > 0 && !sleptLong_ && bytes > 4) {
                sleptLong_ = true;
                return conditions_.onceAsleep;
            }
            if (conditions_.askingEvery > 0) {
                return conditions_.askingEvery;
            }
        }
        if (conditions_.sleepsInStepsOf > 0) {
            const Us tick = conditions_.sleepsInStepsOf;
            const Us now = Clock::microseconds() - began_;
            return (now + asked + tick - 1) / tick * tick - now;
        }
        return asked;
    }

private:
    Pause pauseOf(Us asked) const
    {
        const std::string& last = line_.lastSequence();
        if (asked == 12 * kMs) {
            return last == "$I2" ? Pause::AfterSwitch : Pause::AfterRestore;
        }
        return asked == 7 * kMs    ? Pause::AfterSpeed
               : asked == 30 * kMs ? Pause::AfterSwitchBack
               : asked == 3 * kMs  ? Pause::AfterClose
                                   : Pause::None;
    }

    const TimedLine& line_;
    const Conditions& conditions_;
    Us began_ = Clock::microseconds();
    bool sleptLong_ = false;
};

// ---------------------------------------------------------------- what is done

using Records = std::vector<CallRecord>;

// The longest command that a raw APDU can make, for what depends on its time on the line.
Records longestApdu(SimulatedDesk& desk)
{
    constexpr int kDataBytes = 255;
    Output atr(ICC_ATR_CAPACITY);
    Output response(ICC_RESPONSE_CAPACITY);
    const int on = IC_PowerOn(desk.port(), "", 9600, 3, 1, 0, atr.text());
    std::string apdu = "00D60000FF";
    for (int i = 0; i < kDataBytes; ++i) {
        apdu += "5A";
    }
    const int sent = IC_SendAPDU(desk.port(), "", 9600, 3, 1, 0, apdu.c_str(), response.text());
    return {{"IC_PowerOn", on, {atr.value()}}, {"IC_SendAPDU", sent, {response.untouched() ? "" : response.value()}}};
}

struct Doings {
    std::string name;
    std::string profile;
    std::function<Records(SimulatedDesk&)> run;
    bool usb = false;
};

Doings errand(const std::string& name, bool usb = false)
{
    const auto found =
        std::find_if(errands().begin(), errands().end(), [&](const Errand& e) { return name == e.name; });
    const Errand chosen = *found;
    return {name, chosen.profile, [chosen](SimulatedDesk& desk) { return chosen.run(desk); }, usb};
}

std::vector<Doings> some(std::initializer_list<const char*> names)
{
    std::vector<Doings> doings;
    for (const char* name : names) {
        doings.push_back(errand(name));
    }
    return doings;
}

// With cards, and with all.
std::vector<Doings> cards()
{
    return some({"raw access", "card information", "transaction log", "sale", "psams", "memory card", "wallet"});
}

// The version is asked for at 9600 baud: it tells whether the closing before it was heard.
Records cardThenVersion(SimulatedDesk& desk)
{
    Records records = errand("raw access").run(desk);
    const Records version = errand("device").run(desk);
    records.insert(records.end(), version.begin(), version.end());
    return records;
}

std::vector<Doings> everything()
{
    std::vector<Doings> all = cards();
    all.push_back(errand("device"));
    all.push_back({"card, then version", "debit", cardThenVersion});
    return all;
}

std::vector<Doings> overUsb()
{
    std::vector<Doings> all;
    for (Doings& doings : cards()) {
        doings.usb = true;
        all.push_back(doings);
    }
    return all;
}

// How one call went wrong: "IC_GetInfo -11", or "GetDevInfo 0, another text".
using Failures = std::vector<std::string>;

class Bench {
public:
    // Of the first of the doings that fails, or of all.
    Failures failures(const std::vector<Doings>& all, const Conditions& conditions, bool first)
    {
        Failures found;
        for (const Doings& doings : all) {
            if (first && !found.empty()) {
                break;
            }
            const Records good = truthOf(doings);
            const Records now = twice(doings, conditions);
            for (std::size_t i = 0; i < now.size() && i < good.size(); ++i) {
                if (!(now[i] == good[i])) {
                    found.push_back(describe(now[i]));
                    break; // what follows follows from it
                }
            }
        }
        return found;
    }

    // How long the doings take.
    std::vector<std::pair<std::string, Us>> times(const Doings& doings, const Conditions& conditions)
    {
        prepare(doings, conditions);
        std::vector<Us> openings;
        line_.onOpen = [&](int) { openings.push_back(Clock::microseconds()); };
        const Records records = doings.run(*desk_);
        openings.push_back(Clock::microseconds());
        line_.onOpen = {};
        Clock::sleepAs({});
        std::vector<std::pair<std::string, Us>> result;
        for (std::size_t i = 0; i < records.size(); ++i) {
            result.emplace_back(records[i].call, openings[i + 1] - openings[i]);
        }
        return result;
    }

    SimulatedDesk& desk() { return *desk_; }
    TimedLine& line() { return line_; }

    void prepare(const Doings& doings, const Conditions& conditions)
    {
        auto profile = profiles_.find(doings.profile);
        if (profile == profiles_.end()) {
            profile = profiles_.emplace(doings.profile, sim::findProfile(doings.profile)).first;
        }
        Clock::sleepAs({});
        // At the beginning of a second, so that the same conditions meet the same fractions of everything.
        Clock::advance(kBetweenCustomers - Clock::microseconds() % kSecond);
        Clock::forgetSleeps();
        desk_ = std::make_unique<SimulatedDesk>(doings.usb ? "USB" : TimedLine::kPort, profile->second);
        line_.renew(desk_->reader(), conditions.line);
        usb_.renew(desk_->reader(), conditions.usb);
        desk_->reader().checkLineSpeed(!doings.usb);
        conditions_ = conditions;
        sleeper_ = std::make_unique<Sleeper>(line_, conditions_);
        Clock::sleepAs([this](Us asked) { return sleeper_->lasting(asked); });
        m_VrICType = VORN_INTERFACE_NONE;
        vorn::bench::removeLogs();
    }

private:
    // Once, and once more for the next customer behind it.
    Records twice(const Doings& doings, const Conditions& conditions)
    {
        prepare(doings, conditions);
        Records records = doings.run(*desk_);
        const Records more = doings.run(*desk_);
        records.insert(records.end(), more.begin(), more.end());
        Clock::sleepAs({});
        return records;
    }

    Records truthOf(const Doings& doings)
    {
        const std::string key = doings.name + (doings.usb ? " over USB" : "");
        auto truth = truths_.find(key);
        if (truth == truths_.end()) {
            truth = truths_.emplace(key, twice(doings, {})).first;
        }
        return truth->second;
    }

    static std::string describe(const CallRecord& record)
    {
        return "`" + record.call + "` " + std::to_string(record.result) +
               (record.result == VORN_OK ? ", but says less" : "");
    }

    TimedLine line_;
    TimedUsb usb_;
    std::map<std::string, sim::Profile> profiles_;
    std::unique_ptr<SimulatedDesk> desk_;
    Conditions conditions_;
    std::unique_ptr<Sleeper> sleeper_;
    std::map<std::string, Records> truths_;
};

// ---------------------------------------------------------------- where it begins to fail

struct Margin {
    bool found = false;
    Us at = 0; // the first value that fails
    Failures how;
};

using Vary = std::function<Conditions(Us)>;

// What matters may be where in a step of the terminal's an answer comes.
Failures failuresAt(Bench& bench, const std::vector<Doings>& doings, const Vary& vary, Us value, bool inAllPhases,
                    bool first)
{
    Failures all;
    for (int phase = 0; phase < (inAllPhases ? kPhases : 1); ++phase) {
        Conditions conditions = vary(value);
        conditions.line.beforeReply += value * phase / kPhases;
        const Failures found = bench.failures(doings, conditions, first);
        all.insert(all.end(), found.begin(), found.end());
    }
    return all;
}

// Between a value that is good and one that is tried last, in either direction.
Margin search(Bench& bench, const std::vector<Doings>& doings, const Vary& vary, Us good, Us last,
              bool inAllPhases = false)
{
    const auto fails = [&](Us value) { return !failuresAt(bench, doings, vary, value, inAllPhases, true).empty(); };
    Margin margin;
    margin.found = fails(last);
    margin.at = last;
    if (!margin.found) {
        return margin;
    }
    if (fails(good)) {
        throw std::runtime_error("what the protocol allows fails");
    }
    while (std::abs(margin.at - good) > kStep) {
        const Us middle = good + (margin.at - good) / 2;
        (fails(middle) ? margin.at : good) = middle;
    }
    margin.how = failuresAt(bench, doings, vary, margin.at, inAllPhases, false);
    return margin;
}

std::string milliseconds(Us us)
{
    char text[32];
    std::snprintf(text, sizeof text, us < 100 * kMs ? "%.2f ms" : "%.1f ms", static_cast<double>(us) / 1000);
    return text;
}

std::string joined(const Failures& failures)
{
    const std::set<std::string> each(failures.begin(), failures.end());
    std::string text;
    for (const std::string& failure : each) {
        text += (text.empty() ? "" : ", ") + failure;
    }
    return text;
}

// ---------------------------------------------------------------- the tables

void shortened(Bench& bench, OwnOutput& out)
{
    const struct {
        Pause pause;
        const char* name;
        Us protocol;
    } rows[] = {{Pause::AfterSwitch, "behind ESC $ I 2, at 9600", 12 * kMs},
                {Pause::AfterSpeed, "behind the change to 38400", 7 * kMs},
                {Pause::AfterSwitchBack, "behind ESC $ I 4, at 38400", 30 * kMs},
                {Pause::AfterRestore, "behind ESC $ B ESC % A, at 9600", 12 * kMs},
                {Pause::AfterClose, "behind closing", 3 * kMs}};
    LineTiming plain;
    LineTiming slowReader;
    slowReader.afterSwitch = slowReader.afterSwitchBack = slowReader.afterRestore = 8 * kMs;
    out.print(
        "table: shortened\n| pause | protocol | UART | UART, reader needs 8 ms | adapter |\n|---|---|---|---|---|\n");
    for (const auto& row : rows) {
        out.print("| %s | %s |", row.name, milliseconds(row.protocol).c_str());
        for (const LineTiming& line : {plain, slowReader, adapter()}) {
            const auto vary = [&](Us lasts) {
                Conditions conditions;
                conditions.line = line;
                conditions.pause = row.pause;
                conditions.lasts = lasts;
                return conditions;
            };
            const Margin margin = search(bench, everything(), vary, row.protocol, 0);
            out.print(" %s |", margin.found ? ("fails at " + milliseconds(margin.at)).c_str() : "0");
        }
        out.print("\n");
    }
}

struct Row {
    const char* what;
    const char* allowed; // what the library allows
    std::vector<Doings> doings;
    Vary vary;
    Us good = 0;
    Us last = kLongest;
    bool inAllPhases = false;
};

std::string placeOf(const Row& row, const Margin& margin)
{
    if (margin.found) {
        return milliseconds(margin.at);
    }
    return row.last > row.good ? "not up to " + milliseconds(row.last) : "not even at " + milliseconds(row.last);
}

void print(Bench& bench, OwnOutput& out, const char* name, const std::vector<Row>& rows)
{
    out.print("\ntable: %s\n", name);
    out.print("| what | allowed | begins to fail at | how |\n|---|---|---|---|\n");
    for (const Row& row : rows) {
        const Margin margin = search(bench, row.doings, row.vary, row.good, row.last, row.inAllPhases);
        out.print("| %s | %s | %s | %s |\n", row.what, row.allowed, placeOf(row, margin).c_str(),
                  joined(margin.how).c_str());
    }
}

// One member of the line's timing, of a UART or an adapter.
Vary line(Us LineTiming::*member, const LineTiming& base = {})
{
    return [member, base](Us value) {
        Conditions conditions;
        conditions.line = base;
        conditions.line.*member = value;
        return conditions;
    };
}

template <class Member>
Vary terminal(Member Conditions::*member, Pause pause = Pause::None)
{
    return [member, pause](Us value) {
        Conditions conditions;
        conditions.pause = pause;
        conditions.*member = value;
        return conditions;
    };
}

Vary usb(Us UsbTiming::*member)
{
    return [member](Us value) {
        Conditions conditions;
        conditions.usb.*member = value;
        return conditions;
    };
}

std::vector<Row> terminalRows()
{
    LineTiming blind;
    blind.tellsUnsent = false;
    LineTiming small;
    small.sendRoom = 64;
    const std::vector<Doings> device = {errand("device")};
    return {
        {"each pause of the protocol lasts", "any time", everything(), terminal(&Conditions::lasts, Pause::Each),
         30 * kMs, 30 * kSecond},
        {"the terminal looks at the line every", "3 s", cards(), terminal(&Conditions::askingEvery), kMs},
        {"the same, reading the version", "50 ms", device, terminal(&Conditions::askingEvery), kMs, 200 * kMs, true},
        {"the terminal stands still once, inside a reply", "3 s", cards(), terminal(&Conditions::onceAsleep), kMs},
        {"the same, inside the version", "50 ms", device, terminal(&Conditions::onceAsleep), kMs},
        {"all sleeps end at a tick of", "any", everything(), terminal(&Conditions::sleepsInStepsOf), kMs, 40 * kMs},
        {"written bytes reach the line later; the driver knows", "", everything(), line(&LineTiming::sendDelay)},
        {"the same; the driver does not know", "", everything(), line(&LineTiming::sendDelay, blind)},
        {"received bytes come in steps of", "3 s", cards(), line(&LineTiming::handOverEvery)},
        {"the same, reading the version", "50 ms", device, line(&LineTiming::handOverEvery), 0, 200 * kMs, true},
        {"the line takes nothing, once in a command; the driver has room for it", "3 s for the reply", cards(),
         line(&LineTiming::stop)},
        {"the same; the driver has room for 64 bytes",
         "1 s",
         {{"longest", "debit", longestApdu}},
         line(&LineTiming::stop, small)},
    };
}

std::vector<Row> readerRows()
{
    const std::vector<Doings> device = {errand("device")};
    const std::vector<Doings> longest = {{"longest", "debit", longestApdu}};
    return {
        {"the reader is deaf behind ESC $ I 2", "12 + 7 ms", everything(), line(&LineTiming::afterSwitch)},
        {"the same, behind an adapter", "", everything(), line(&LineTiming::afterSwitch, adapter())},
        {"the reader is deaf behind ESC $ I 4", "30 ms", everything(), line(&LineTiming::afterSwitchBack)},
        {"the same, behind an adapter", "", everything(), line(&LineTiming::afterSwitchBack, adapter())},
        {"the reader is deaf behind ESC $ B ESC % A", "12 + 3 ms", everything(), line(&LineTiming::afterRestore)},
        {"the same, behind an adapter", "", everything(), line(&LineTiming::afterRestore, adapter())},
        {"the reader gives a command up when its next byte comes later than", "", cards(), line(&LineTiming::patience),
         kSecond, 0},
        {"the same, of a driver with room for 16 bytes and sleeps in ticks of 10 ms", "", longest,
         [](Us value) {
             Conditions conditions;
             conditions.line.sendRoom = 16;
             conditions.line.patience = value;
             conditions.sleepsInStepsOf = 10 * kMs;
             return conditions;
         },
         kSecond, 0},
        {"first byte of a reply", "3 s", cards(), line(&LineTiming::beforeReply)},
        {"the same, to a command of 261 bytes", "3 s", longest, line(&LineTiming::beforeReply)},
        {"the same, of an answer to reset", "3 s", cards(), line(&LineTiming::beforeAtr)},
        {"a gap inside a reply", "3 s", cards(), line(&LineTiming::gap)},
        {"a gap between any two bytes of a reply", "3 s", some({"raw access"}), line(&LineTiming::betweenBytes)},
        {"first byte of the version", "2 s", device, line(&LineTiming::beforeReply)},
        {"a gap inside the version", "50 ms", device, line(&LineTiming::gap)},
    };
}

std::vector<Row> usbRows()
{
    return {
        {"first packet of a reply", "3 s", overUsb(), usb(&UsbTiming::beforeReply)},
        {"a gap between its packets", "100 ms", overUsb(), usb(&UsbTiming::betweenPackets)},
        {"the reader takes a command's packet", "10 s", overUsb(), usb(&UsbTiming::taking), 0, 15 * kSecond},
    };
}

// ---------------------------------------------------------------- what comes too late

// What a call says whose reader is still busy with the command before it, whose reply came too late: it answers one
// after the other.
class LateReply {
public:
    explicit LateReply(Bench& bench) : bench_(bench), right_(nextCall(0, 0)) {}

    // From where to where the late reply is taken for that of the next command.
    std::pair<Us, Us> range(Us nextNeeds)
    {
        const auto taken = [&](Us later) {
            const auto next = nextCall(later, nextNeeds);
            return next.first == VORN_OK && next != right_;
        };
        constexpr Us kInRange = 5 * kSecond;
        if (!taken(kInRange)) {
            return {0, 0};
        }
        return {edge(taken, kInRange, 3 * kSecond), edge(taken, kInRange, 20 * kSecond)};
    }

private:
    using Answer = std::pair<int, std::string>;

    static Us edge(const std::function<bool(Us)>& taken, Us inside, Us outside)
    {
        while (std::abs(outside - inside) > kStep) {
            const Us middle = inside + (outside - inside) / 2;
            (taken(middle) ? inside : outside) = middle;
        }
        return inside;
    }

    Answer nextCall(Us later, Us nextNeeds)
    {
        Conditions conditions;
        conditions.line.onlyReply = 2;
        conditions.line.onlyReplyLater = later;
        bench_.prepare({"late", "debit", {}}, conditions);
        std::vector<char> atr(ICC_ATR_CAPACITY);
        IC_PowerOn(bench_.desk().port(), "", 9600, 3, 1, 0, atr.data());
        send("00A404000E315041592E5359532E4444463031");
        conditions.line.beforeReply = nextNeeds;
        bench_.line().setTiming(conditions.line);
        const Answer answer = send("00B2010C00");
        Clock::sleepAs({});
        return answer;
    }

    Answer send(const char* apdu)
    {
        std::vector<char> response(ICC_RESPONSE_CAPACITY, '\0');
        const int result = IC_SendAPDU(bench_.desk().port(), "", 9600, 3, 1, 0, apdu, response.data());
        return {result, response.data()};
    }

    Bench& bench_;
    Answer right_;
};

void lateReplies(Bench& bench, OwnOutput& out)
{
    LateReply late(bench);
    out.print("\ntable: late\n| the next command needs | a reply is taken for its own when it is late by | to "
              "|\n|---|---|---|\n");
    for (const Us needs : {Us{0}, 100 * kMs, kSecond}) {
        const auto [from, to] = late.range(needs);
        out.print("| %s | %s | %s |\n", milliseconds(needs).c_str(), from == 0 ? "never" : milliseconds(from).c_str(),
                  from == 0 ? "" : milliseconds(to).c_str());
    }
}

// ---------------------------------------------------------------- the seconds of nTimeout

// How long after the call a card may come to the contact slot and still be powered.
Us latestCard(Bench& bench, int nTimeout, Us fraction)
{
    const auto powered = [&](Us after) {
        bench.prepare({"raw access", "debit", {}}, {});
        Clock::advance(fraction);
        const Us comes = Clock::microseconds() + after;
        sim::Reader& reader = bench.desk().reader();
        reader.addFault(*sim::parseFault("status=02/22"));
        Clock::onSleep([&] {
            if (Clock::microseconds() >= comes) {
                reader.clearFaults();
            }
        });
        std::vector<char> atr(ICC_ATR_CAPACITY);
        const int result = IC_PowerOn(bench.desk().port(), "", 9600, nTimeout, 1, 0, atr.data());
        Clock::onSleep({});
        Clock::sleepAs({});
        return result == VORN_OK;
    };
    Us good = 0, late = (nTimeout + 2) * kSecond;
    if (!powered(good)) {
        return 0;
    }
    while (late - good > kStep) {
        const Us middle = good + (late - good) / 2;
        (powered(middle) ? good : late) = middle;
    }
    return good;
}

void waits(Bench& bench, OwnOutput& out)
{
    out.print("\ntable: waits\n| `nTimeout` | called at the beginning of a second | in its middle | 0.9 s into it |\n"
              "|---|---|---|---|\n");
    for (const int nTimeout : {1, 2, 10}) {
        out.print("| %d |", nTimeout);
        for (const Us fraction : {Us{0}, 500 * kMs, 900 * kMs}) {
            out.print(" %s |", milliseconds(latestCard(bench, nTimeout, fraction)).c_str());
        }
        out.print("\n");
    }
}

// ---------------------------------------------------------------- how long calls take

void durations(Bench& bench, OwnOutput& out)
{
    Conditions plain, withAdapter, oldKernel, slowAnswers;
    withAdapter.line = adapter();
    oldKernel.sleepsInStepsOf = 10 * kMs;
    slowAnswers.line.beforeReply = 100 * kMs;
    out.print("\ntable: durations\n| call | UART | adapter | UART, sleeps in ticks of 10 ms | UART, 100 ms before each "
              "reply |\n"
              "|---|---|---|---|---|\n");
    for (const Doings& doings : everything()) {
        if (doings.name == "psams" || doings.name == "card, then version") {
            continue; // the same calls once more
        }
        std::vector<std::vector<std::pair<std::string, Us>>> columns;
        for (const Conditions& conditions : {plain, withAdapter, oldKernel, slowAnswers}) {
            columns.push_back(bench.times(doings, conditions));
        }
        std::set<std::string> shown;
        for (std::size_t call = 0; call < columns[0].size(); ++call) {
            if (!shown.insert(columns[0][call].first).second) {
                continue;
            }
            out.print("| `%s` |", columns[0][call].first.c_str());
            for (const auto& column : columns) {
                out.print(" %.0f ms |", static_cast<double>(column[call].second) / 1000);
            }
            out.print("\n");
        }
    }
}

} // namespace

int main()
{
    const vorn::bench::OwnDirectory directory;
    OwnOutput out;
    Bench bench;
    shortened(bench, out);
    print(bench, out, "terminal", terminalRows());
    print(bench, out, "reader", readerRows());
    print(bench, out, "usb", usbRows());
    lateReplies(bench, out);
    waits(bench, out);
    durations(bench, out);
    return 0;
}
