// SPDX-License-Identifier: Apache-2.0
// Every command on every profile, as text and as JSON, quiet and with all exchanges: nothing of what identifies a card
// or its holder is in any output, nor in any file that is left.
#include "tools/explain/apdu_view.h"
#include "tools/explain/frame_view.h"
#include "tools/explain/hex.h"
#include "tools/explain/log_reader.h"
#include "tools/explain/render.h"
#include "tools/running_tool.h"
#include "tools/session/exchange_text.h"

#include <algorithm>
#include <map>

namespace {

using namespace vorn::test;
using vorn::tool::Bytes;
using vorn::tool::exchangeText;
using vorn::tool::ExchangeView;
using vorn::tool::explainReset;
using vorn::tool::fromHex;
using vorn::tool::LineExchange;
using vorn::tool::LoggedExchange;
using vorn::tool::LogReader;
using vorn::tool::textOf;
using vorn::tool::toHex;

// What the profiles' cards hold: account numbers, track data, names, document numbers, keys.
const char* const kSecrets[] = {
    "6229990000710246589", "301222000007287", "199003150017", "晓明", "C5B7D1F4CFFEC3F7", "OUYANG",
    "4F5559414E47",        "A0A1A2A3A4A5",    "B0B1B2B3B4B5",
};

// Account numbers, names and documents as the raw record has them: the profiles' own.
std::vector<std::string> secretsOf(const Scratch& scratch, const std::string& profile)
{
    std::vector<std::string> secrets(std::begin(kSecrets), std::end(kSecrets));
    const Result all = run(scratch, {"info", "--sim", profile, "--wait", "0", "--json", "--show"});
    if (all.code != kOk) {
        return secrets;
    }
    for (const char* const member : {"pan", "track2", "documentNumber", "name", "nameExtended"}) {
        const Json value = all.json()[member];
        if (value.is_string() && value.get<std::string>().size() > 3) {
            secrets.push_back(value);
        }
    }
    return secrets;
}

const Arguments kCommands[] = {
    {"info"},
    {"info", "--aid", "A000000333"},
    {"log"},
    {"wallet"},
    {"sale"},
    {"sale", "--wrong-issuer-key"},
    {"sale", "--arpc", "910A00000000000000003030"},
    {"atr"},
    {"atr", "--psam", "1"},
    {"device"},
    {"doctor"},
    {"watch", "--for", "1"},
    {"apdu", "--any-status", "00A4040008A000000333010101", "00B2010C00", "00B2020C00", "00B2011400", "80CA9F1300"},
    {"apdu", "--any-status", "0020008008241234FFFFFFFFFF"},
    {"m1", "activate"},
    {"m1", "auth", "--block", "4", "--key-file", "KEYS", "--key-type", "AB"},
    {"m1", "read", "--block", "4", "--count", "4", "--key-file", "KEYS", "--key-type", "AB"},
    {"m1", "write", "--block", "16", "--data", "00112233445566778899AABBCCDDEEFF"},
    {"m1", "dump", "--key-file", "KEYS", "--key-type", "AB"},
};

class SecretsTest : public ToolTest, public testing::WithParamInterface<const char*> {};

TEST_P(SecretsTest, NoCommandShowsThem)
{
    const std::string keys = scratch.file("keys", "FFFFFFFFFFFF\nA0A1A2A3A4A5 # holder\nB0B1B2B3B4B5\n");
    const std::vector<std::string> secrets = secretsOf(scratch, GetParam());
    std::vector<Arguments> lines;
    for (Arguments command : kCommands) {
        std::replace(command.begin(), command.end(), std::string("KEYS"), keys);
        for (const Arguments& form : {Arguments{}, {"-v"}, {"--json"}, {"--json", "-v"}}) {
            lines.push_back(with(with(command, {"--sim", GetParam(), "--wait", "0"}), form));
        }
    }
    inParallel(lines.size(), [&](std::size_t at) {
        const Result result = run(scratch, lines[at]);
        EXPECT_FALSE(result.output.empty() && result.errors.empty());
        for (const std::string& secret : secrets) {
            EXPECT_FALSE(result.says(secret)) << testing::PrintToString(lines[at]) << result.output;
            EXPECT_FALSE(result.complains(secret)) << testing::PrintToString(lines[at]) << result.errors;
        }
        EXPECT_EQ(result.errors.find("241234"), std::string::npos);
    });
    EXPECT_TRUE(fs::is_empty(scratch.temporary()));
}

// What is mailed to the maintainers: the report, the page, and what was said on the way.
TEST_P(SecretsTest, NoAcceptanceShowsThem)
{
    const std::vector<std::string> secrets = secretsOf(scratch, GetParam());
    const std::string report = (scratch.path() / "report.json").string();
    const std::string page = (scratch.path() / "page.html").string();
    const Result result = run(scratch, {"accept", "--sim", GetParam(), "-v", "--report", report, "--html", page});
    EXPECT_EQ(result.code, kOk) << result.output << result.errors;
    const std::string all = result.output + result.errors + contents(report) + contents(page);
    EXPECT_NE(contents(page).find("</html>"), std::string::npos);
    for (const std::string& secret : secrets) {
        EXPECT_EQ(all.find(secret), std::string::npos) << secret;
    }
}

INSTANTIATE_TEST_SUITE_P(Profiles, SecretsTest, testing::Values("debit", "credit", "multi", "memory", "psam", "wallet"),
                         [](const auto& which) { return std::string(which.param); });

TEST_F(ToolTest, NoMessageRepeatsAnAccountNumber)
{
    const Arguments lines[] = {
        {kPan},
        {"info", kPan},
        {"info", "--sim", "debit", "--fault", kPan},
        {"info", "--sim", "debit", "--aid", kPan + "X"},
        {"info", "--port", kPan},
        {"sale", "--sim", "debit", "--amount", kPan},
        {"sale", "--sim", "debit", "--date", kPan},
        {"sale", "--sim", "debit", "--currency", kPan},
        {"apdu", "--sim", "debit", "5A0A" + kPan + "FX"},
        {"m1", "write", "--sim", "memory", "--block", "4", "--data", kPan},
        {"m1", kPan},
        {"help", kPan},
        {"sim", "--link"},
        {"sim", "--replay", kPan},
        {"record", "--port", kPan, "--to", "line.rec", "--", "true"},
        {"record", "--port", "USB", "--to", kPan, "--", kPan},
    };
    for (const Arguments& line : lines) {
        for (const Arguments& form : {Arguments{}, {"--json"}}) {
            const Result result = run(scratch, with(line, form));
            EXPECT_NE(result.code, kOk) << testing::PrintToString(line);
            EXPECT_EQ(result.output.find(kPan.substr(0, 10)), std::string::npos) << result.output;
            EXPECT_EQ(result.errors.find(kPan.substr(0, 10)), std::string::npos) << result.errors;
        }
    }
}

// A late answer that comes when a card gets power.
TEST_F(ToolTest, NothingIsShownOfAnAnswerToResetThatIsNone)
{
    const std::string profile = scratch.file("late.json", R"({"cards": [{"slot": "contact", "type": "transcript",
        "atr": "4F5559414E47205849414F", "pairs": []}]})");
    for (const Arguments& command : {Arguments{"doctor"}, {"watch", "--for", "1"}}) {
        for (const Arguments& form : {Arguments{}, {"--json"}, {"-v"}}) {
            const Result result = run(scratch, with(with(command, {"--sim", profile}), form));
            EXPECT_TRUE(result.says("**********************")) << result.output << result.errors;
            EXPECT_FALSE(result.says("4F5559414E47") || result.complains("4F5559414E47"))
                << result.output << result.errors;
        }
    }
}

// A line that loses bytes, or a reader that is late: an answer is cut at either end, filled up with zeros, or stands
// behind another command than its own.
TEST_F(ToolTest, NothingIsShownOfAnAnswerThatIsCutOrComesBehindAnotherCommand)
{
    const std::string logs = (scratch.path() / "logs").string();
    for (const char* const command : {"info", "log", "sale"}) {
        ASSERT_EQ(run(scratch, {command, "--sim", "debit", "--log-dir", logs}).code, kOk);
    }
    std::vector<LoggedExchange> exchanges;
    std::map<std::uint8_t, Bytes> commands; // one of each instruction
    LogReader reader({[&](const LoggedExchange& logged) {
                          if (const auto apdu = logged.apdu(); !apdu.empty()) {
                              exchanges.push_back(logged);
                              commands.emplace(apdu[1], apdu.copy());
                          }
                      },
                      [](const std::string&, std::size_t) {}});
    const std::string log = contents(logs + "/ICC_COMM_VORN.log");
    reader.add(log.data(), log.size());
    reader.end();
    ASSERT_GE(commands.size(), 7U);
    for (const char* const apdu : {"0084000008", "0088000004AABBCCDD00", "00C0000040", "84240000083132333435363738"}) {
        const Bytes bytes = fromHex(apdu).value();
        commands.emplace(bytes[1], bytes);
    }
    const auto look = [](const std::string& text, const Bytes& command, const Bytes& answer) {
        for (const char* const secret : kSecrets) {
            EXPECT_EQ(text.find(secret), std::string::npos) << toHex(command) << "\n" << toHex(answer) << "\n" << text;
        }
    };
    const auto lookAtApdu = [&](const Bytes& apdu, const Bytes& answer) {
        look(textOf(ExchangeView(false).exchange(apdu, answer)), apdu, answer);
    };
    const auto lookAtCommand = [&](const Bytes& command, const Bytes& answer) {
        look(exchangeText({command, LineExchange::Reply::Whole, 0, answer}, false), command, answer);
        look(textOf(explainReset(answer, false)), command, answer);
    };
    const auto eachPiece = [&](const auto& use) {
        for (const LoggedExchange& one : exchanges) {
            const Bytes& answer = one.answer;
            for (std::size_t at = 0; at <= answer.size(); ++at) {
                const auto middle = answer.begin() + static_cast<std::ptrdiff_t>(at);
                for (Bytes part : {Bytes(answer.begin(), middle), Bytes(middle, answer.end())}) {
                    use(part);
                    part.resize(answer.size());
                    use(part);
                }
            }
        }
    };
    for (const auto& [instruction, apdu] : commands) {
        eachPiece([&, &command = apdu](const Bytes& part) { lookAtApdu(command, part); });
    }
    for (const char* const own :
         {"3222018000", "322300", "32240180", "32250180", "3241FF52", "324204600000000000000000"}) {
        const Bytes command = fromHex(own).value();
        eachPiece([&](const Bytes& part) { lookAtCommand(command, part); });
    }
}

} // namespace
