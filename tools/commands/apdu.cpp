// SPDX-License-Identifier: Apache-2.0
// vorn apdu: sends commands to a card and shows every answer with its status word, which IC_SendAPDU keeps to itself.
#include "tools/cli/arguments.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/cli/quote.h"
#include "tools/commands/command.h"
#include "tools/commands/link_options.h"
#include "tools/explain/apdu_words.h"
#include "tools/explain/hex.h"
#include "tools/explain/status_words.h"
#include "tools/explain/tlv_view.h"
#include "tools/session/session.h"

#include "vorn/link.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <memory>
#include <sstream>

namespace vorn::tool {

namespace {

constexpr unsigned kMoreData = 0x61;
constexpr unsigned kWrongLe = 0x6C;
constexpr int kMostFollowUps = 32; // a card may ask for ever

struct Options {
    LinkOptions link;
    InterfaceOptions cardInterface;
    int psam = 0;
    std::vector<std::string> commands;
    bool noFollow = false;
    bool anyStatus = false;
    bool json = false;
};

struct SendCall {
    LinkTarget target; // for a PSAM, whose power-on opens the link
    int psamSlot = 0;  // 0: the user's card
    std::uint8_t command[VORN_COMMAND_MAX] = {};
    int size = 0;
    std::uint8_t response[VORN_PAYLOAD_MAX] = {};
    int length = 0;
};

int powerPsam(SendCall& call)
{
    vr_comportmode = call.target.mode;
    std::memcpy(vr_comportparam, call.target.parameter, sizeof vr_comportparam);
    const int result = opdev();
    return result != VORN_OK ? result : icc_poweron(call.psamSlot, call.response, &call.length);
}

int sendApdu(SendCall& call)
{
    return call.psamSlot == 0 ? icc_sendcommand(call.command, call.size, call.response, &call.length)
                              : samicc_sendcommand(call.psamSlot, call.command, call.size, call.response, &call.length);
}

// The card in use: the user's or a PSAM. The session powers it off.
class PoweredCard {
public:
    PoweredCard(Session& session, const Options& options)
        : session_(session), psamSlot_(options.psam == 0 ? 0 : VORN_SLOT_PSAM1 + options.psam - 1)
    {
        if (psamSlot_ == 0) {
            atr_ = session.powerUserCard(options.cardInterface.mode());
            return;
        }
        SendCall call{session.target(), psamSlot_};
        session.call("the PSAM's power-on", Call::Any, powerPsam, call);
        atr_.assign(call.response, call.response + call.length);
    }

    const Bytes& atr() const { return atr_; }

    Bytes send(const Bytes& apdu) const
    {
        SendCall call{session_.target(), psamSlot_};
        std::copy(apdu.begin(), apdu.end(), call.command);
        call.size = static_cast<int>(apdu.size());
        session_.call("the APDU", Call::Any, sendApdu, call);
        return Bytes(call.response, call.response + call.length);
    }

private:
    Session& session_;
    int psamSlot_;
    Bytes atr_;
};

struct Sent {
    Bytes command;
    Bytes response;
};

// What the status word of the answer asks to be sent next; empty: nothing.
Bytes followUp(const Bytes& command, unsigned status)
{
    const auto low = static_cast<std::uint8_t>(status & 0xFF);
    if (status >> 8 == kMoreData) {
        return {0x00, 0xC0, 0x00, 0x00, low};
    }
    if (status >> 8 != kWrongLe) {
        return {};
    }
    constexpr std::size_t header = 4;
    Bytes again = command;
    const bool hasData = again.size() > header + 1;
    const std::size_t le = hasData ? header + 1 + again[header] : header;
    again.resize(le);
    again.push_back(low);
    return again;
}

void show(const Sent& sent, const Options& options)
{
    const unsigned status = statusOf(sent.response);
    printLine("> " + commandHex(sent.command, options.link.show) + "   " + commandInWords(sent.command));
    if (const ByteSpan data = dataOf(sent.response); !data.empty()) {
        printLine("< " + dataHex(sent.command, data, options.link.show));
    }
    printLine("< " + statusText(status));
}

Json document(const Sent& sent, const Options& options)
{
    char status[5];
    std::snprintf(status, sizeof status, "%04X", statusOf(sent.response) & 0xFFFFU);
    return {{"command", commandHex(sent.command, options.link.show)},
            {"name", commandInWords(sent.command)},
            {"data", dataHex(sent.command, dataOf(sent.response), options.link.show)},
            {"status", status},
            {"meaning", statusMeaning(statusOf(sent.response))}};
}

std::vector<Bytes> commandsOf(const Options& options)
{
    std::vector<std::string> texts = options.commands;
    if (texts.size() == 1 && texts[0] == "-") {
        texts.clear();
        std::istringstream input(readStandardInput());
        for (std::string line; std::getline(input, line);) {
            line.erase(std::min(line.find('#'), line.size()));
            if (line.find_first_not_of(" \t\r") != std::string::npos) {
                texts.push_back(line);
            }
        }
    }
    std::vector<Bytes> commands;
    for (const std::string& text : texts) {
        commands.push_back(bytesOfArgument(text));
        if (commands.back().size() < 4 || commands.back().size() > VORN_COMMAND_MAX - 3) {
            throw Failure(Exit::Usage,
                          "a command has 4 to " + std::to_string(VORN_COMMAND_MAX - 3) + " bytes: " + inQuotes(text));
        }
    }
    return commands;
}

class Conversation {
public:
    Conversation(const PoweredCard& card, const Options& options) : card_(card), options_(options) {}

    // The last status word of the command and what it asked for.
    unsigned carryOut(Bytes command)
    {
        unsigned status = 0;
        for (int turn = 0; !command.empty() && turn <= kMostFollowUps; ++turn) {
            throwIfInterrupted();
            const Sent sent{command, card_.send(command)};
            status = statusOf(sent.response);
            if (options_.json) {
                exchanges_.push_back(document(sent, options_));
            } else {
                show(sent, options_);
            }
            command = options_.noFollow ? Bytes() : followUp(sent.command, status);
        }
        return status;
    }

    const Json& exchanges() const { return exchanges_; }

private:
    const PoweredCard& card_;
    const Options& options_;
    Json exchanges_ = Json::array();
};

Exit run(const Options& options)
{
    const std::vector<Bytes> commands = commandsOf(options);
    Session session(options.link);
    const PoweredCard card(session, options);
    const std::string where =
        options.psam > 0 ? "psam" + std::to_string(options.psam) : interfaceName(session.cardInterface());
    if (!options.json) {
        printLine("card " + where + ", ATR " + toHex(card.atr()));
    }
    Conversation conversation(card, options);
    unsigned status = 0x9000;
    for (const Bytes& command : commands) {
        status = conversation.carryOut(command);
    }
    if (options.json) {
        printJson({{"card", where}, {"atr", toHex(card.atr())}, {"exchanges", conversation.exchanges()}});
    }
    return status == 0x9000 || options.anyStatus ? Exit::Ok : Exit::CardRefused;
}

} // namespace

void addApdu(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("apdu", "Send commands to a card, in one power-on");
    command->add_option("command", options->commands, "Commands in hex; - reads them from standard input, one a line")
        ->required();
    command->add_option("--psam", options->psam, "To the PSAM in this slot instead of the user's card")
        ->check(CLI::Range(1, 4));
    addInterfaceOptions(*command, options->cardInterface);
    command->add_flag("--no-follow", options->noFollow, "Do not fetch what 61xx and 6Cxx announce");
    command->add_flag("--any-status", options->anyStatus, "Exit with 0 also when the last status is not 9000");
    command->add_flag("--json", options->json, "Print JSON");
    command->add_flag("--show", options->link.show, "Do not mask account numbers, track data and PINs");
    addLinkOptions(*command, options->link);
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
