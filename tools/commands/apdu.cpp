// SPDX-License-Identifier: Apache-2.0
// vorn apdu: sends commands to a card and shows every answer with its status word, which IC_SendAPDU keeps to itself.
#include "tools/cli/arguments.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/explain/apdu_words.h"
#include "tools/explain/hex.h"
#include "tools/explain/status_words.h"
#include "tools/explain/tlv_view.h"
#include "tools/session/session.h"

#include "vorn/link.h"

#include <nlohmann/json.hpp>

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
    bool show = false;
};

// The card in use: the user's or a PSAM, powered as long as this lives.
class PoweredCard {
public:
    PoweredCard(const Session& session, const Options& options) : session_(session), link_(session), psam_(options.psam)
    {
        if (psam_ == 0) {
            atr_ = session.powerUserCard(options.cardInterface.mode());
            return;
        }
        atr_.resize(VORN_PAYLOAD_MAX);
        int length = 0;
        session.check(icc_poweron(slot(), atr_.data(), &length));
        atr_.resize(static_cast<std::size_t>(length));
    }
    ~PoweredCard()
    {
        if (psam_ == 0) {
            vr_closeicc();
        } else {
            icc_poweroff(static_cast<unsigned char>(slot()));
        }
    }
    PoweredCard(const PoweredCard&) = delete;
    PoweredCard& operator=(const PoweredCard&) = delete;

    const Bytes& atr() const { return atr_; }

    Bytes send(const Bytes& apdu) const
    {
        Bytes response(VORN_PAYLOAD_MAX);
        int length = 0;
        const int size = static_cast<int>(apdu.size());
        session_.check(psam_ == 0 ? icc_sendcommand(apdu.data(), size, response.data(), &length)
                                  : samicc_sendcommand(slot(), apdu.data(), size, response.data(), &length));
        response.resize(static_cast<std::size_t>(length));
        if (response.size() < 2) {
            throw Failure(Exit::ReaderRefused, "the card's answer has no status word",
                          "take the card out and try again");
        }
        return response;
    }

private:
    int slot() const { return VORN_SLOT_PSAM1 + psam_ - 1; }

    const Session& session_;
    OpenLink link_;
    int psam_;
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
    printLine("> " + commandHex(sent.command, options.show) + "   " + commandInWords(sent.command));
    if (const Bytes data = dataOf(sent.response); !data.empty()) {
        printLine("< " + dataHex(sent.command, data, options.show));
    }
    printLine("< " + statusText(status));
}

Json document(const Sent& sent, const Options& options)
{
    char status[5];
    std::snprintf(status, sizeof status, "%04X", statusOf(sent.response) & 0xFFFFU);
    return {{"command", commandHex(sent.command, options.show)},
            {"name", commandInWords(sent.command)},
            {"data", dataHex(sent.command, dataOf(sent.response), options.show)},
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
                          "a command has 4 to " + std::to_string(VORN_COMMAND_MAX - 3) + " bytes: " + text);
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
    const Session session(options.link);
    const PoweredCard card(session, options);
    const std::string where = options.psam > 0 ? "psam" + std::to_string(options.psam) : interfaceName(m_VrICType);
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
    command->add_flag("--show", options->show, "Do not mask account numbers, track data and PINs");
    addLinkOptions(*command, options->link);
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
