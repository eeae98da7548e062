// SPDX-License-Identifier: Apache-2.0
// Every command with a reader, and every fault of the simulated reader at each of the command's exchanges: the exit
// code is that of the cause, wherever it strikes; nothing secret is said on the way; and each run ends by itself.
#include "tools/running_tool.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace {

using namespace vorn::test;

// What an exchange is there for, as far as it matters to what a fault in it means.
enum class Part {
    PowersOn,
    PowersOff,    // the result is there by then
    Memory,       // authenticates, reads or writes a block
    Apdu,         // one that the result needs
    Immaterial,   // the result does not need it, nor say that it does
    Authenticate, // EXTERNAL AUTHENTICATE, which the card asks for before it approves
    Decides,      // the second GENERATE AC, asking for a TC
    BeforeScript, // what lies between
    Script
};

enum class Cause { Nothing, Silent, CutOff, Damaged, Refused, Taken, NotThere };

struct FaultRow {
    const char* kind;
    Cause cause;
};
constexpr FaultRow kFaults[] = {
    {"silence", Cause::Silent},   {"noend", Cause::CutOff},       {"check", Cause::Damaged},
    {"short=4", Cause::Damaged},  {"long=4", Cause::Damaged},     {"status=04", Cause::Refused},
    {"pull", Cause::Taken},       {"status=06", Cause::NotThere}, {"noise=40", Cause::Nothing},
    {"delay=20", Cause::Nothing},
};

// From cause and part to exit code; what has no row leaves the command's own.
struct CodeRow {
    Cause cause;
    Part part;
    int code;
};
constexpr CodeRow kCodes[] = {
    {Cause::Silent, Part::PowersOn, kSilent},
    {Cause::Silent, Part::Memory, kSilent},
    {Cause::Silent, Part::Apdu, kSilent},
    {Cause::Silent, Part::Decides, kUnknown},
    {Cause::Silent, Part::Script, kScriptFailed},
    {Cause::CutOff, Part::PowersOn, kLineDisturbed},
    {Cause::CutOff, Part::Memory, kLineDisturbed},
    {Cause::CutOff, Part::Apdu, kLineDisturbed},
    {Cause::CutOff, Part::Decides, kUnknown},
    {Cause::CutOff, Part::Script, kScriptFailed},
    {Cause::Damaged, Part::PowersOn, kLineDisturbed},
    {Cause::Damaged, Part::Memory, kLineDisturbed},
    {Cause::Damaged, Part::Apdu, kLineDisturbed},
    {Cause::Damaged, Part::Decides, kUnknown},
    {Cause::Refused, Part::PowersOn, kMute},
    {Cause::Refused, Part::Memory, kNoAccess},
    {Cause::Refused, Part::Apdu, kRefused},
    {Cause::Refused, Part::Authenticate, kRefused},
    {Cause::Refused, Part::Decides, kUnknown},
    {Cause::Refused, Part::Script, kScriptFailed},
    {Cause::Taken, Part::PowersOn, kCardGone},
    {Cause::Taken, Part::Memory, kCardGone},
    {Cause::Taken, Part::Apdu, kCardGone},
    {Cause::Taken, Part::Authenticate, kCardGone},
    {Cause::Taken, Part::Decides, kUnknown},
    {Cause::Taken, Part::BeforeScript, kScriptFailed},
    {Cause::Taken, Part::Script, kScriptFailed},
    {Cause::NotThere, Part::Memory, kCardGone},
    {Cause::NotThere, Part::Apdu, kCardGone},
    {Cause::NotThere, Part::Authenticate, kCardGone},
    {Cause::NotThere, Part::Decides, kUnknown},
    {Cause::NotThere, Part::Script, kScriptFailed},
};

struct Command {
    const char* name;
    Arguments arguments;
    bool looksFirst; // a card that is not there at the first exchange was there when the tool looked
};

const std::vector<Command>& commands()
{
    const Arguments keys = {"--key", "A0A1A2A3A4A5", "--key", "FFFFFFFFFFFF"};
    static const std::vector<Command> all = {
        {"info", {"info", "--sim", "debit"}, true},
        {"info by name", {"info", "--sim", "multi", "--aid", "A000000333010102"}, true},
        {"log", {"log", "--sim", "debit"}, true},
        {"wallet", {"wallet", "--sim", "wallet"}, true},
        {"sale", {"sale", "--sim", "debit"}, true},
        {"sale, declined", {"sale", "--sim", "debit", "--amount", "30000"}, true},
        {"atr", {"atr", "--sim", "debit"}, false},
        {"atr of a PSAM", {"atr", "--sim", "psam", "--psam", "1"}, false},
        {"apdu", {"apdu", "--sim", "debit", "00A404000E315041592E5359532E4444463031", "00B2010C00"}, false},
        {"apdu to a PSAM", {"apdu", "--sim", "psam", "--psam", "2", "00A40000023F00"}, false},
        {"m1 activate", {"m1", "activate", "--sim", "memory"}, false},
        {"m1 auth", with({"m1", "auth", "--sim", "memory", "--block", "4"}, keys), false},
        {"m1 read", with({"m1", "read", "--sim", "memory", "--block", "4", "--count", "2"}, keys), false},
        {"m1 write",
         {"m1", "write", "--sim", "memory", "--block", "16", "--data", "00112233445566778899AABBCCDDEEFF"},
         false},
        {"m1 dump", with({"m1", "dump", "--sim", "memory", "--size", "mini"}, keys), false},
    };
    return all;
}

struct Exchange {
    std::string command; // hex
    std::string name;
};

// "> 3222018000  power on", as -v shows them.
std::vector<Exchange> exchangesOf(const std::string& errors)
{
    std::vector<Exchange> exchanges;
    std::istringstream lines(errors);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, 2, "> ") == 0) {
            const auto space = line.find("  ");
            exchanges.push_back({line.substr(2, space - 2), line.substr(space + 2)});
        }
    }
    return exchanges;
}

Part partOf(const std::vector<Exchange>& exchanges, std::size_t at)
{
    const auto begins = [&](const char* text) { return exchanges[at].name.compare(0, std::strlen(text), text) == 0; };
    const auto contains = [](const Exchange& e, const char* text) { return e.name.find(text) != std::string::npos; };
    if (begins("power on") || begins("activate")) {
        return Part::PowersOn;
    }
    if (begins("power off") || begins("switch the field off")) {
        return Part::PowersOff;
    }
    if (begins("authenticate") || begins("read block") || begins("write block")) {
        return Part::Memory;
    }
    const auto behind = std::find_if(exchanges.begin(), exchanges.end(),
                                     [&](const Exchange& e) { return contains(e, "EXTERNAL AUTHENTICATE"); });
    const auto completed = static_cast<std::size_t>(behind - exchanges.begin()) + 1;
    if (at + 1 < completed) {
        return Part::Apdu;
    }
    if (!contains(exchanges[completed], "TC")) { // a card that is asked to decline cannot approve
        return Part::Immaterial;
    }
    return at + 1 == completed  ? Part::Authenticate
           : at == completed    ? Part::Decides
           : begins("PUT DATA") ? Part::Script
                                : Part::BeforeScript;
}

int expectedCode(const Command& command, const FaultRow& fault, Part part, std::size_t at, int own)
{
    const bool psam = command.arguments[2] == "psam";
    if (psam && fault.cause == Cause::Taken) { // the user's card is, and a PSAM stays
        return own;
    }
    if (fault.cause == Cause::NotThere && part == Part::PowersOn) {
        return command.looksFirst ? own : at == 0 ? kNoCard : kCardGone; // the library asks again, the tool does not
    }
    if (fault.cause == Cause::Taken && part == Part::PowersOn && at == 0 && !command.looksFirst) {
        return kNoCard;
    }
    for (const CodeRow& row : kCodes) {
        if (row.cause == fault.cause && row.part == part) {
            return row.code;
        }
    }
    return own;
}

const char* const kSecrets[] = {
    "6229990000710246589", "301222000007287", "199003150017", "晓明", "C5B7D1F4CFFEC3F7", "OUYANG",
    "A0A1A2A3A4A5",        "B0B1B2B3B4B5",    "6250990"};

// Seconds for a card that may never come; where it is there all the time, a call of a busy machine may last as long as
// it likes.
const char* waitFor(Cause cause) { return cause == Cause::Taken || cause == Cause::NotThere ? "0" : "600"; }

struct Case {
    std::string fault;
    std::string wait;
    std::string exchange;
    int code;
};

class FaultTest : public ToolTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(FaultTest, EachFaultAtEachExchangeEndsWithTheCodeOfItsCause)
{
    const Command& command = commands()[GetParam()];
    const Result good = run(scratch, with(command.arguments, {"--wait", "0", "-v"}));
    ASSERT_GE(good.code, 0);
    const std::vector<Exchange> exchanges = exchangesOf(good.errors);
    ASSERT_FALSE(exchanges.empty()) << good.errors;
    std::vector<Case> cases;
    for (const FaultRow& fault : kFaults) {
        for (std::size_t at = 0; at < exchanges.size(); ++at) {
            cases.push_back({fault.kind + ("@" + std::to_string(at + 1)), waitFor(fault.cause), exchanges[at].name,
                             expectedCode(command, fault, partOf(exchanges, at), at, good.code)});
        }
    }
    inParallel(cases.size(), [&](std::size_t at) {
        const Case& one = cases[at];
        const Result result = run(scratch, with(command.arguments, {"--wait", one.wait, "-v", "--fault", one.fault}));
        EXPECT_EQ(result.code, one.code) << command.name << " --fault " << one.fault << " (" << one.exchange << ")\n"
                                         << result.errors;
        for (const char* const secret : kSecrets) {
            EXPECT_FALSE(result.says(secret) || result.complains(secret)) << command.name << " " << one.fault;
        }
    });
    EXPECT_TRUE(fs::is_empty(scratch.temporary()));
}

INSTANTIATE_TEST_SUITE_P(Commands, FaultTest, testing::Range<std::size_t>(0, commands().size()), [](const auto& which) {
    std::string name = commands()[which.param].name;
    name.erase(std::remove_if(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }),
               name.end());
    return name;
});

} // namespace
