// SPDX-License-Identifier: Apache-2.0
// vorn accept on readers that are the plain simulated one, and on readers that are not: what differs is found, and
// nothing else; a reader made of the report is found to be the same.
#include "sim/reader/observations.h"
#include "tools/running_tool.h"

#include <pty.h>
#include <termios.h>

#include <map>
#include <set>

namespace {

using namespace vorn::test;

using Alterations = std::map<std::string, Json>;

const Alterations kFive = {{"slots.psam2", "0B"},
                           {"power.contact.time", 500},
                           {"frames.longest", 1024},
                           {"malformed.check", "silent"},
                           {"malformed.two", "first"}};

class AcceptTest : public ToolTest {
protected:
    std::string like(const std::string& name, const Alterations& alterations) const
    {
        Json observations = Json::object();
        for (const auto& [observation, value] : alterations) {
            observations[observation] = value;
        }
        return scratch.file(name,
                            Json{{"format", "vorn-acceptance"}, {"version", 1}, {"observations", observations}}.dump());
    }
    Json reportOf(const std::string& name) const { return Json::parse(contents(scratch.path() / name)); }
    std::string path(const std::string& name) const { return (scratch.path() / name).string(); }
};

// The observations that are marked, with the values that were seen.
Alterations marked(const Json& report)
{
    Alterations all;
    for (const auto& [name, observation] : report.at("observations").items()) {
        if (observation.at("differs").get<bool>()) {
            all[name] = observation.at("value");
        }
    }
    EXPECT_EQ(report.at("differences"), all.size());
    return all;
}

// Times are no two times the same.
bool same(const std::string& name, const Json& one, const Json& other)
{
    const bool isTime = vorn::sim::observationName(name)->kind == vorn::sim::ObservationKind::Time;
    return isTime ? std::abs(one.get<int>() - other.get<int>()) < 500 : one == other;
}

void expectSame(const Alterations& one, const Alterations& other, const std::string& what)
{
    EXPECT_EQ(one.size(), other.size()) << what << testing::PrintToString(one) << testing::PrintToString(other);
    for (const auto& [name, value] : one) {
        const auto found = other.find(name);
        if (found == other.end()) {
            ADD_FAILURE() << what << ": " << name << " is missing";
        } else {
            EXPECT_TRUE(same(name, value, found->second)) << what << name << value << found->second;
        }
    }
}

// All values, but those that depend on how busy the machine is.
Alterations values(const Json& report)
{
    Alterations all;
    for (const auto& [name, observation] : report.at("observations").items()) {
        if (name.compare(0, 7, "pauses.") != 0) {
            all[name] = observation.at("value");
        }
    }
    return all;
}

TEST_F(AcceptTest, NothingDiffersAtThePlainSimulator)
{
    const std::vector<std::string> profiles = {"debit", "contactless", "memory", "psam", "wallet"};
    inParallel(profiles.size(), [&](std::size_t at) {
        const Result result = run(scratch, {"accept", "--sim", profiles[at]});
        EXPECT_EQ(result.code, kOk) << profiles[at] << result.output << result.errors;
        EXPECT_TRUE(result.says("Nothing differs from what the simulator does.")) << result.output;
    });
}

TEST_F(AcceptTest, NothingDiffersAtASimulatorOnAPort)
{
    Process reader(scratch, {"sim", "debit", "-v"});
    const std::string port = reader.outputLine();
    const Result result = run(scratch, {"accept", "--port", port, "--json"});
    EXPECT_EQ(result.code, kOk) << result.output << result.errors;
    EXPECT_EQ(result.json()["observations"]["slots.contact"]["value"], "card");
    std::set<std::string> skipped;
    const Json report = result.json();
    for (const Json& step : report["steps"]) {
        if (step["end"] == "skipped") {
            skipped.insert(step["name"]);
        }
    }
    EXPECT_EQ(skipped, (std::set<std::string>{"usb", "packets", "insertion"})) << "nobody is there to be asked";
    EXPECT_EQ(run(scratch, {"device", "--port", port}).code, kOk);
}

TEST_F(AcceptTest, FiveAlterationsAreFoundAndTheReaderOfTheReportHasThem)
{
    const Result first = run(scratch, {"accept", "--sim", "debit", "--like", like("five.json", kFive), "--report",
                                       path("first.json"), "--html", path("first.html")});
    ASSERT_EQ(first.code, kDiffers) << first.output << first.errors;
    const Json report = reportOf("first.json");
    expectSame(kFive, marked(report), "found");
    EXPECT_EQ(fs::status(path("first.json")).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    Process reader(scratch, {"sim", "debit", "--like", path("first.json")});
    const Arguments again[] = {{"accept", "--sim", "debit", "--like", path("first.json"), "--json"},
                               {"accept", "--port", reader.outputLine(), "--json"}};
    inParallel(std::size(again), [&](std::size_t at) {
        const Result result = run(scratch, again[at]);
        EXPECT_EQ(result.code, kDiffers) << result.output << result.errors;
        expectSame(kFive, marked(result.json()), "again");
        Alterations expected = values(report);
        if (at == 1) { // nobody was there to be asked
            expected.erase("cards.in");
            expected.erase("cards.out");
        }
        expectSame(expected, values(result.json()), "again");
    });

    const std::string page = contents(path("first.html"));
    EXPECT_NE(page.find("5 observations differ"), std::string::npos);
    EXPECT_NE(page.find("PSAM slot 2, power on: status 0B (simulator: status 02)"), std::string::npos);
    EXPECT_NE(page.find("<rect class=\"unit other\""), std::string::npos);
}

// Every observation that a unit can differ in is found by its step when it is altered, and nothing else is.
TEST_F(AcceptTest, EachAlterationIsFoundByItself)
{
    const struct {
        const char* step;
        Alterations altered;
        const char* profile = "wallet";
    } rows[] = {
        {"rest", {{"line.speed", "38400"}}},
        {"rest", {{"line.command", "silent"}}},
        {"version", {{"version.text", "DK7710 V2.00"}}},
        {"version", {{"version.time", 700}}},
        {"switching", {{"switch.fast", "silent"}}},
        {"switching", {{"switch.version", "answered"}}},
        {"switching", {{"switch.back", "silent"}}},
        {"slots", {{"slots.contact", "0C"}}, "memory"},
        {"slots", {{"slots.psam1", "silent"}}},
        {"slots", {{"slots.psam2", "0C"}}},
        {"slots", {{"slots.psam3", "0C"}}},
        {"slots", {{"slots.psam4", "raw 15"}}},
        {"slots", {{"slots.field", "02"}}},
        {"slots", {{"slots.memory", "07"}}},
        {"power", {{"power.off", "08"}}},
        {"power", {{"power.contact.time", 600}}},
        {"power", {{"power.psam1.time", 600}}, "psam"},
        {"field", {{"field.off", "06"}}},
        {"field", {{"field.time", 600}}, "contactless"},
        {"field", {{"field.memory.time", 600}}, "memory"},
        {"timing", {{"timing.reply", 600}}},
        {"timing", {{"timing.gap", 600}}},
        {"card", {{"card.time", 600}}, "debit"},
        {"frames", {{"frames.empty", "silent"}}},
        {"frames", {{"frames.shortest", "F0"}}},
        {"frames", {{"frames.129", "F1"}}},
        {"frames", {{"frames.longest", 536}}},
        {"frames", {{"frames.longer", "F1"}}},
        {"unknown", {{"malformed.command", "E1"}}},
        {"unknown", {{"malformed.parameter", "E0"}}},
        {"unknown", {{"malformed.slot", "02"}}},
        {"check", {{"malformed.check", "00"}}},
        {"check", {{"malformed.character", "raw 15"}}},
        {"cut", {{"malformed.cut", "F0"}}},
        {"cut", {{"malformed.cut.next", "lost"}}},
        {"two", {{"malformed.two", "second"}}},
        {"two", {{"malformed.two", "neither"}}},
    };
    std::set<std::string> altered;
    for (const auto& row : rows) {
        altered.insert(row.altered.begin()->first);
    }
    inParallel(std::size(rows), [&](std::size_t at) {
        const auto& row = rows[at];
        const Result result = run(scratch, {"accept", "--sim", row.profile, "--only", row.step, "--json", "--like",
                                            like(std::to_string(at) + ".json", row.altered)});
        EXPECT_EQ(result.code, kDiffers) << row.step << result.output << result.errors;
        expectSame(row.altered, marked(result.json()), row.altered.begin()->first);
    });
    // Those that a run on a tty can see.
    const std::set<std::string> others = {"cards.in",         "cards.out",  "power.psam2.time", "power.psam3.time",
                                          "power.psam4.time", "frames.128", "frames.130",       "malformed.cut.time"};
    for (const auto& one : vorn::sim::observationNames()) {
        const std::string name = one.name;
        EXPECT_TRUE(one.told || name.compare(0, 4, "usb.") == 0 || altered.count(name) + others.count(name) == 1)
            << name;
    }
}

TEST_F(AcceptTest, ATimeIsToldOfACutFrameThatIsAnswered)
{
    const Result result = run(scratch, {"accept", "--sim", "wallet", "--only", "cut", "--json", "--like",
                                        like("cut.json", {{"malformed.cut", "F0"}, {"malformed.cut.time", 800}})});
    EXPECT_EQ(result.code, kDiffers) << result.output;
    const Json seen = result.json()["observations"]["malformed.cut.time"];
    EXPECT_TRUE(same("malformed.cut.time", seen["value"], 800)) << seen;
    EXPECT_TRUE(seen["simulator"].is_null());
}

// ---------------------------------------------------------------- which steps

TEST_F(AcceptTest, StepsAreListedAndLeftOut)
{
    const Result list = run(scratch, {"accept", "--list"});
    EXPECT_EQ(list.code, kOk);
    EXPECT_TRUE(list.says("check       sends frames with a wrong check byte"));
    const Json report = run(scratch, {"accept", "--sim", "wallet", "--json", "--only", "version"}).json();
    for (const Json& step : report["steps"]) {
        EXPECT_EQ(step["end"] == "done", step["name"] == "version") << step;
    }
    EXPECT_EQ(report["observations"].size(), 2U);
    EXPECT_EQ(run(scratch, {"accept", "--sim", "wallet", "--only", "everything"}).code, kUsage);
    EXPECT_EQ(run(scratch, {"accept", "--sim", "wallet", "--only", "rest", "--skip", "two"}).code, kUsage);
    EXPECT_EQ(run(scratch, {"accept"}).code, kUsage);
}

// Nobody moves the card of a simulator that is in another process: what a person says is looked at.
TEST_F(AcceptTest, OnATerminalAPersonIsAskedToMoveTheCard)
{
    if (std::system("command -v script >/dev/null") != 0) {
        GTEST_SKIP() << "no script here, which gives a program a terminal";
    }
    Process reader(scratch, {"sim", "debit"});
    const std::string command = tool().string() + " accept --only insertion --port " + reader.outputLine();
    const auto answering = [&](const std::string& answers) {
        const std::string said = path("said");
        const std::string line = "printf '" + answers + "' | script -qec '" + command + "' /dev/null >'" + said + "'";
        const int status = std::system(line.c_str());
        return Result{WEXITSTATUS(status), contents(said), ""};
    };
    const Result done = answering("y\\ny\\n");
    EXPECT_EQ(done.code, kDiffers) << done.output;
    EXPECT_TRUE(done.says("Take the card out, then answer y")) << done.output;
    EXPECT_TRUE(done.says("Put a card into the contact slot, then answer y")) << done.output;
    EXPECT_TRUE(done.says("! The card taken out: not seen  (simulator: seen)")) << done.output;
    EXPECT_TRUE(done.says("A card put into the contact slot: seen")) << done.output;
    const Result refused = answering("n\\n");
    EXPECT_EQ(refused.code, kOk) << refused.output;
    EXPECT_FALSE(refused.says("The card taken out")) << refused.output;
}

TEST_F(AcceptTest, AFileThatIsThereIsNotReplacedAndAReportThatIsNoneIsRefused)
{
    const std::string file = scratch.file("there", "x");
    EXPECT_EQ(run(scratch, {"accept", "--sim", "wallet", "--report", file}).code, kOutput);
    EXPECT_EQ(contents(file), "x");
    for (const Arguments& command : {Arguments{"accept", "--sim", "wallet"}, Arguments{"sim", "wallet"}}) {
        const Result result = run(scratch, with(command, {"--like", file}));
        EXPECT_EQ(result.code, kProfile);
        EXPECT_EQ(run(scratch, with(command, {"--like", path("none")})).code, kProfile);
        EXPECT_EQ(run(scratch, with(command, {"--like", scratch.path().string()})).code, kProfile);
        const Result typo = run(scratch, with(command, {"--like", like("typo", {{"slots.contakt", "02"}})}));
        EXPECT_EQ(typo.code, kProfile);
        EXPECT_TRUE(typo.complains("slots.contakt: there is no such observation")) << typo.errors;
    }
}

// A reader's text is no part of the page, nor of a terminal's commands.
TEST_F(AcceptTest, AReadersTextIsShownAndNotObeyed)
{
    const Result result =
        run(scratch, {"accept", "--sim", "wallet", "--only", "version", "--html", path("page.html"), "--like",
                      like("text.json", {{"version.text", "<script>6229990000710246589</script>"}})});
    EXPECT_EQ(result.code, kDiffers) << result.errors;
    const std::string page = contents(path("page.html"));
    EXPECT_EQ(page.find("<script>"), std::string::npos);
    EXPECT_NE(page.find("&lt;script&gt;622999"), std::string::npos);
    EXPECT_EQ(page.find("6229990000710246589"), std::string::npos);
    EXPECT_FALSE(result.says("6229990000710246589"));
}

// ---------------------------------------------------------------- readers that are not there

TEST_F(AcceptTest, ASilentReaderIsSaidToBeSilentAndTheReportTellsHowFarItWent)
{
    const Result result =
        run(scratch, {"accept", "--sim", "wallet", "--fault", "silence@3", "--fault", "silence@4", "--fault",
                      "silence@5", "--only", "check", "--only", "two", "--report", path("r.json"), "--json"});
    EXPECT_EQ(result.code, kSilent) << result.output << result.errors;
    EXPECT_NE(result.json()["error"]["message"].get<std::string>().find("answer"), std::string::npos);
    const Json report = reportOf("r.json");
    EXPECT_FALSE(report["problem"].get<std::string>().empty());
    EXPECT_EQ(report["observations"]["malformed.check"]["value"], "F0");
    EXPECT_EQ(run(scratch, {"accept", "--sim", "wallet", "--fault", "silence", "--like",
                            like("q.json", {{"version.text", ""}}), "--only", "rest"})
                  .code,
              kSilent);
}

TEST_F(AcceptTest, APortThatIsNotThereOrIsUsedIsNamed)
{
    EXPECT_EQ(run(scratch, {"accept", "--port", "ttyNone7", "--report", path("r.json")}).code, kPort);
    EXPECT_FALSE(fs::exists(path("r.json")));
    EXPECT_EQ(run(scratch, {"accept", "--port", "null"}).code, kPort);
    Process reader(scratch, {"sim", "wallet"});
    const std::string port = reader.outputLine();
    Process watch(scratch, {"watch", "--port", port, "--json"});
    watch.outputLine();
    EXPECT_EQ(run(scratch, {"accept", "--port", port}).code, kPortBusy);
}

// What the tool makes of something at the other end that says this to what it hears.
int endAt(const Scratch& scratch, const std::function<std::string(const std::string& heard)>& says)
{
    int master = -1, slave = -1;
    char name[64];
    EXPECT_EQ(::openpty(&master, &slave, name, nullptr, nullptr), 0);
    termios raw{};
    ::cfmakeraw(&raw);
    ::tcsetattr(slave, TCSANOW, &raw);
    std::thread other([master, &says] {
        char piece[256];
        for (ssize_t count = 0; (count = ::read(master, piece, sizeof piece)) > 0;) {
            const std::string answer = says(std::string(piece, static_cast<std::size_t>(count)));
            if (::write(master, answer.data(), answer.size()) < 0) {
                return;
            }
        }
    });
    const Result result = run(scratch, {"accept", "--port", name});
    ::close(slave);
    other.join();
    ::close(master);
    return result.code;
}

TEST_F(AcceptTest, WhatAnswersAndIsNoReaderIsLeftAlone)
{
    EXPECT_EQ(endAt(scratch, [](const std::string& heard) { return heard; }), kWrongDevice) << "an echo";
    EXPECT_EQ(endAt(scratch, [](const std::string&) { return "login: \r\n"; }), kWrongDevice) << "a computer";
    EXPECT_EQ(endAt(scratch, [](const std::string&) { return std::string(3000, '7'); }), kWrongDevice) << "a talker";
}

TEST_F(AcceptTest, ASignalEndsTheRunWithTheReaderAtRestAndTheReportWritten)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        Process reader(scratch, {"sim", "debit", "-v"});
        const std::string port = reader.outputLine();
        Process accept(scratch, {"accept", "--port", port, "--report", path(std::to_string(signal) + ".json")});
        ASSERT_TRUE(accept.outputReaches("timing"));
        accept.signal(signal);
        std::string output, errors;
        EXPECT_EQ(accept.finish(output, errors), kInterrupted) << output << errors;
        EXPECT_EQ(reportOf(std::to_string(signal) + ".json")["problem"], "interrupted");
        EXPECT_EQ(run(scratch, {"device", "--port", port}).code, kOk);
        reader.signal(SIGINT);
        std::string events;
        reader.finish(output, events);
        const std::size_t restored = events.rfind("restore");
        ASSERT_NE(restored, std::string::npos) << events;
        EXPECT_EQ(events.find("power on", restored), std::string::npos) << events;
    }
}

TEST_F(AcceptTest, AReaderThatGoesAwayEndsTheRun)
{
    auto reader = std::make_unique<Process>(scratch, Arguments{"sim", "debit"});
    const std::string port = reader->outputLine();
    Process accept(scratch, {"accept", "--port", port, "--report", path("r.json")});
    ASSERT_TRUE(accept.outputReaches("slots"));
    reader.reset();
    std::string output, errors;
    EXPECT_EQ(accept.finish(output, errors), kPort) << output << errors;
    EXPECT_NE(errors.find("is gone"), std::string::npos) << errors;
    EXPECT_EQ(reportOf("r.json")["observations"]["line.speed"]["value"], "9600");
}

} // namespace
