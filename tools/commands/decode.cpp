// SPDX-License-Identifier: Apache-2.0
// vorn decode: says what pasted hex means.
#include "sim/issuer/cryptogram_text.h"
#include "tools/cli/arguments.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/explain/atr_view.h"
#include "tools/explain/hex.h"
#include "tools/explain/present.h"
#include "tools/explain/tlv_view.h"

#include <nlohmann/json.hpp>

#include <memory>

namespace vorn::tool {

namespace tlv = sim::tlv;

namespace {

struct Options {
    std::vector<std::string> texts;
    bool list = false;
    bool arqc = false;
    bool tc = false;
    bool atr = false;
    bool json = false;
    bool show = false;
};

struct Line {
    std::size_t depth = 0;
    std::string tag;
    std::string name;
    std::string hex;
    std::string words;
};

Line lineOf(const TlvNode& node, bool show)
{
    std::string hex;
    if (!node.constructed) {
        hex = valueHex(node.tag, node.value, show);
    }
    return {node.depth, tlv::toHex(node.tag), tagName(node.tag), hex, valueInWords(node, show)};
}

struct Decoded {
    std::vector<Line> lines;
    std::string problem;
};

Decoded decodeObjects(const Bytes& bytes, bool show)
{
    const TlvWalk walk = walkTlv(bytes);
    Decoded result{{}, walk.problem};
    for (const TlvNode& node : walk.nodes) {
        result.lines.push_back(lineOf(node, show));
    }
    return result;
}

Decoded decodeList(const Bytes& bytes)
{
    Decoded result;
    const auto list = tlv::parseDol(bytes);
    if (!list) {
        return {{}, "not a list of tags and lengths"};
    }
    for (const tlv::DolEntry& entry : *list) {
        result.lines.push_back(
            {0, tlv::toHex(entry.tag), tagName(entry.tag), "", std::to_string(entry.length) + " bytes"});
    }
    return result;
}

Decoded decodeCryptogram(const Bytes& bytes, sim::CryptogramText kind, bool show)
{
    const sim::CryptogramItems items = sim::readCryptogramText(kind, toHex(bytes));
    Decoded result{{}, items.mistake};
    for (const auto& [tag, value] : items.values) {
        result.lines.push_back(lineOf({tag, 0, 0, value, false}, show));
    }
    return result;
}

Decoded decodeAnswer(const Bytes& bytes)
{
    Decoded result;
    for (const AtrPart& part : decodeAtr(bytes)) {
        result.lines.push_back({0, part.name, part.meaning, part.hex, ""});
    }
    return result;
}

Decoded decode(const Options& options, const Bytes& bytes)
{
    if (options.list) {
        return decodeList(bytes);
    }
    if (options.atr) {
        return decodeAnswer(bytes);
    }
    if (options.arqc || options.tc) {
        return decodeCryptogram(bytes, options.tc ? sim::CryptogramText::Tc : sim::CryptogramText::Arqc, options.show);
    }
    return decodeObjects(bytes, options.show);
}

void printLines(const std::vector<Line>& lines)
{
    for (const Line& line : lines) {
        const std::string indent(2 * line.depth, ' ');
        printLine(indent + line.tag + (line.name.empty() ? "" : "  " + line.name));
        if (!line.hex.empty()) {
            printLine(indent + "    " + line.hex);
        }
        if (!line.words.empty() && line.words != line.hex) {
            printLine(indent + "    " + line.words);
        }
    }
}

Exit run(const Options& options)
{
    std::string text;
    for (const std::string& part : options.texts) {
        text += part == "-" ? readStandardInput() : part;
    }
    if (options.texts.empty()) {
        text = readStandardInput();
    }
    const Bytes bytes = bytesOfArgument(text);
    if (bytes.empty()) {
        throw Failure(Exit::Usage, "nothing to decode", "vorn decode 6F0A8408A000000333010101");
    }
    const Decoded decoded = decode(options, bytes);
    if (options.json) {
        Json objects = Json::array();
        for (const Line& line : decoded.lines) {
            objects.push_back({{"depth", line.depth},
                               {"tag", line.tag},
                               {"name", line.name},
                               {"value", line.hex},
                               {"words", line.words}});
        }
        printJson({{"objects", objects}, {"problem", decoded.problem}});
    } else {
        printLines(decoded.lines);
    }
    if (!decoded.problem.empty()) {
        throw Failure(Exit::DataMissing, "not decoded to its end: " + decoded.problem);
    }
    return Exit::Ok;
}

} // namespace

void addDecode(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("decode", "Say what hex of data objects means");
    command->add_option("hex", options->texts, "Hex; - or nothing reads standard input");
    std::vector<CLI::Option*> kinds = {
        command->add_flag("--list", options->list, "A list of tags and lengths (PDOL, CDOL, log format)"),
        command->add_flag("--arqc", options->arqc, "The text of an ARQC"),
        command->add_flag("--tc", options->tc, "The text of a TC, whose items have shortened tags"),
        command->add_flag("--atr", options->atr, "An answer to reset")};
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        for (std::size_t j = i + 1; j < kinds.size(); ++j) {
            kinds[i]->excludes(kinds[j]);
        }
    }
    command->add_flag("--json", options->json, "Print JSON");
    command->add_flag("--show", options->show, "Do not mask account numbers and track data");
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
