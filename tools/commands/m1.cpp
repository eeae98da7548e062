// SPDX-License-Identifier: Apache-2.0
// vorn m1: contactless memory cards.
#include "tools/cli/arguments.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/commands/link_options.h"
#include "tools/commands/m1_image.h"
#include "tools/explain/hex.h"
#include "tools/explain/present.h"
#include "tools/session/memory_session.h"

#include "vorn/result.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <memory>

namespace vorn::tool {

namespace {

constexpr unsigned kBlocksMax = 256;
constexpr std::size_t kBlockSize = 16;
const char* const kNewCardKey = "FFFFFFFFFFFF";

// How many sectors a card has.
struct Size {
    const char* name;
    unsigned sectors;
};
constexpr Size kSizes[] = {{"mini", 5}, {"1k", 16}, {"4k", 40}};
constexpr unsigned kSmallCard = 16;
constexpr unsigned kLargeCard = 40;

struct Options {
    LinkOptions link;
    std::vector<std::string> keys;
    std::string keyFile;
    std::string keyType = "A";
    std::string keyMode;
    bool json = false;

    unsigned block = 0;
    unsigned count = 1;
    std::string data;
    bool trailer = false;
    bool yesOverwriteTrailer = false;
    std::string size = "auto";
    std::string output;
    std::string image;
    bool force = false;
};

std::vector<MemoryKey> keysOf(const Options& options)
{
    std::vector<std::string> texts = options.keys;
    if (!options.keyFile.empty()) {
        const auto more = loadKeyFile(options.keyFile);
        texts.insert(texts.end(), more.begin(), more.end());
    }
    if (texts.empty()) {
        texts.push_back(kNewCardKey);
    }
    std::vector<MemoryKey> keys;
    for (const std::string& text : texts) {
        const Bytes value = bytesOfArgument(text);
        if (!options.keyMode.empty()) {
            keys.push_back({static_cast<char>(bytesOfArgument(options.keyMode)[0]), "mode " + options.keyMode, value});
            continue;
        }
        for (const char type : options.keyType) { // the reader's numbers of the two keys
            keys.push_back({type == 'A' ? '\x60' : '\x61', std::string(1, type), value});
        }
    }
    return keys;
}

MemoryKey authenticated(MemorySession& card, unsigned block, const std::vector<MemoryKey>& keys)
{
    const auto key = card.authenticate(block, keys);
    if (!key) {
        throw Failure(Exit::NoAccess, "no key given opens sector " + std::to_string(sectorOf(block)),
                      "name the sector's keys with --key HEX (repeatable) and --key-type A, B or AB");
    }
    return *key;
}

// A value block keeps its number three times, once inverted, and an address four times.
std::string inWords(unsigned block, const Bytes& data)
{
    if (block == 0) {
        return "manufacturer";
    }
    if (isTrailer(block)) {
        return "trailer";
    }
    bool value = data[12] == data[14] && data[13] == data[15] && (data[12] ^ data[13]) == 0xFF;
    for (std::size_t i = 0; i < 4; ++i) {
        value = value && data[i] == data[8 + i] && (data[i] ^ data[4 + i]) == 0xFF;
    }
    if (value) {
        return "value " + std::to_string(static_cast<std::int32_t>(bigEndian({data[3], data[2], data[1], data[0]})));
    }
    std::string text;
    for (const std::uint8_t byte : data) {
        text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    }
    return text;
}

// ---------------------------------------------------------------- activate, auth, read, write

Exit activate(const Options& options)
{
    Session session(options.link);
    const MemorySession card(session);
    if (options.json) {
        printJson({{"identification", card.identification()}});
    } else {
        printLine("Card  " + card.identification());
    }
    return Exit::Ok;
}

Exit authenticate(const Options& options)
{
    Session session(options.link);
    MemorySession card(session);
    const MemoryKey key = authenticated(card, options.block, keysOf(options));
    const unsigned sector = sectorOf(options.block);
    if (options.json) {
        printJson({{"identification", card.identification()}, {"sector", sector}, {"key", key.name}});
    } else {
        printLine("Card  " + card.identification() + "\nSector " + std::to_string(sector) + " opens with key " +
                  key.name);
    }
    return Exit::Ok;
}

Exit read(const Options& options)
{
    Session session(options.link);
    MemorySession card(session);
    const auto keys = keysOf(options);
    Table table;
    Json blocks = Json::array();
    for (unsigned block = options.block; block < std::min(options.block + options.count, kBlocksMax); ++block) {
        if (block == options.block || block == firstBlock(sectorOf(block))) {
            authenticated(card, block, keys);
        }
        const auto data = card.read(block);
        if (!data) {
            throw Failure(Exit::NoAccess, "block " + std::to_string(block) + " may not be read with this key",
                          "the other key may do: --key-type B");
        }
        const std::string text = blockText(block, *data, options.link.show);
        table.row({std::to_string(block), text, inWords(block, *data)});
        blocks.push_back({{"block", block}, {"data", text}});
    }
    if (options.json) {
        printJson({{"identification", card.identification()}, {"blocks", blocks}});
    } else {
        print(table.text());
    }
    return Exit::Ok;
}

// A trailer is written only when told twice, and never with access bits that would lock the sector.
void confirmTrailer(const Options& options, const Bytes& data)
{
    const std::string block = "block " + std::to_string(options.block);
    if (!isTrailer(options.block)) {
        if (options.trailer) {
            throw Failure(Exit::Usage, block + " is not a trailer", "leave --trailer out");
        }
        return;
    }
    if (!options.trailer || !options.yesOverwriteTrailer) {
        throw Failure(Exit::Unconfirmed,
                      block + " is the trailer of sector " + std::to_string(sectorOf(options.block)) +
                          ": it holds the sector's keys and access conditions",
                      "a wrong one locks the sector for ever; if it is meant: --trailer --yes-overwrite-trailer");
    }
    if (!accessBitsConsistent(data)) {
        throw Failure(Exit::Unconfirmed,
                      "these access bits contradict themselves: the card would lock the sector for ever",
                      "bytes 6 to 8 hold each bit and its inverse; FF0780 is what a new card has");
    }
}

Exit write(const Options& options)
{
    const Bytes data = bytesOfArgument(options.data);
    confirmTrailer(options, data);
    Session session(options.link);
    MemorySession card(session);
    authenticated(card, options.block, keysOf(options));
    const std::string block = "block " + std::to_string(options.block);
    if (!card.write(options.block, data)) {
        throw Failure(Exit::NoAccess, block + " may not be written with this key",
                      "the other key may do: --key-type B");
    }
    const bool readable = !isTrailer(options.block); // a trailer's keys do not come back
    const auto back = readable ? card.read(options.block) : std::nullopt;
    if (back && *back != data) {
        throw Failure(Exit::NoAccess, block + " reads differently from what was written", "the card may be worn out");
    }
    if (readable && !back) {
        throw Failure(Exit::NoAccess, block + " was written, but may not be read back with this key",
                      "it was not compared: read it with the other key");
    }
    const bool compared = back.has_value();
    if (options.json) {
        printJson({{"block", options.block}, {"written", true}, {"readBack", compared}});
    } else {
        printLine("Wrote " + block + (compared ? ", read back and compared" : ", not read back"));
    }
    return Exit::Ok;
}

// ---------------------------------------------------------------- dump

struct DumpedSector {
    std::vector<MemoryKey> keys; // that opened it
    std::vector<std::optional<Bytes>> blocks;

    bool whole() const
    {
        return std::all_of(blocks.begin(), blocks.end(), [](const auto& data) { return data.has_value(); });
    }
    std::string keyNames() const
    {
        std::string names;
        for (const MemoryKey& key : keys) {
            names += (names.empty() ? "" : ", ") + key.name;
        }
        return names;
    }
};

unsigned sectorsOf(const std::string& size)
{
    const auto* const row =
        std::find_if(std::begin(kSizes), std::end(kSizes), [&size](const Size& s) { return size == s.name; });
    return row == std::end(kSizes) ? 0 : row->sectors;
}

// What one key may not read another one may: keys are tried until nothing is missing.
DumpedSector dumpSector(MemorySession& card, unsigned sector, const std::vector<MemoryKey>& keys, Progress& progress)
{
    DumpedSector result;
    result.blocks.resize(blockCount(sector));
    for (const MemoryKey& key : keys) {
        if (result.whole() || !card.authenticate(firstBlock(sector), {key})) {
            continue;
        }
        result.keys.push_back(key);
        for (unsigned i = 0; i < result.blocks.size(); ++i) {
            throwIfInterrupted();
            progress.show("sector " + std::to_string(sector) + ", block " + std::to_string(firstBlock(sector) + i));
            if (!result.blocks[i]) {
                result.blocks[i] = card.read(firstBlock(sector) + i);
            }
        }
    }
    return result;
}

// A card's size cannot be asked for. One that opens its seventeenth sector has forty.
std::vector<DumpedSector> dumpAll(MemorySession& card, const Options& options)
{
    const auto keys = keysOf(options);
    Progress progress;
    const unsigned stated = sectorsOf(options.size);
    unsigned sectors = stated == 0 ? kSmallCard : stated;
    std::vector<DumpedSector> dump;
    for (unsigned sector = 0; sector < sectors; ++sector) {
        progress.show("sector " + std::to_string(sector));
        dump.push_back(dumpSector(card, sector, keys, progress));
        if (stated == 0 && sector + 1 == kSmallCard && card.authenticate(firstBlock(kSmallCard), keys)) {
            sectors = kLargeCard;
        }
    }
    return dump;
}

// What a card does not give out, but is known: the keys that opened the sector.
Bytes trailerWithKeys(Bytes trailer, const std::vector<MemoryKey>& keys)
{
    for (const MemoryKey& key : keys) {
        if (key.name == "A") {
            std::copy(key.value.begin(), key.value.end(), trailer.begin());
        } else if (key.name == "B") {
            std::copy(key.value.begin(), key.value.end(), trailer.begin() + kKeyBAt);
        }
    }
    return trailer;
}

ImageBlocks imageOf(const std::vector<DumpedSector>& dump)
{
    ImageBlocks image;
    for (const DumpedSector& sector : dump) {
        for (const auto& data : sector.blocks) {
            const bool trailer = isTrailer(static_cast<unsigned>(image.size()));
            image.push_back(data && trailer ? std::optional(trailerWithKeys(*data, sector.keys)) : data);
        }
    }
    return image;
}

void printTable(const std::string& identification, const std::vector<DumpedSector>& dump, bool show)
{
    printLine("Card  " + identification);
    Table table({"Sector", "Block", "Data", ""});
    unsigned block = 0;
    for (std::size_t number = 0; number < dump.size(); ++number) {
        std::string heading = std::to_string(number);
        if (dump[number].keys.empty()) {
            table.row({heading, "", "no key given opens it", ""});
        }
        for (const auto& data : dump[number].blocks) {
            if (data) {
                table.row({heading, std::to_string(block), blockText(block, *data, show), inWords(block, *data)});
            } else if (!dump[number].keys.empty()) {
                table.row({heading, std::to_string(block), "may not be read with key " + dump[number].keyNames(), ""});
            }
            heading.clear();
            ++block;
        }
    }
    print(table.text());
}

void printDocument(const std::string& identification, const std::vector<DumpedSector>& dump, bool show)
{
    Json document;
    document["identification"] = identification;
    document["masked"] = !show;
    document["sectors"] = Json::array();
    unsigned block = 0;
    for (std::size_t number = 0; number < dump.size(); ++number) {
        Json sector;
        sector["sector"] = number;
        sector["keys"] = dump[number].keyNames();
        sector["blocks"] = Json::array();
        for (const auto& data : dump[number].blocks) {
            sector["blocks"].push_back(data ? Json(blockText(block, *data, show)) : Json());
            ++block;
        }
        document["sectors"].push_back(sector);
    }
    printJson(document);
}

Exit dump(const Options& options)
{
    const std::string& path = options.output;
    if (!path.empty() && !options.force && std::filesystem::exists(path)) {
        throw Failure(Exit::Output, path + " exists already", "name a new file, or replace it with --force");
    }
    Session session(options.link);
    MemorySession card(session);
    const std::vector<DumpedSector> sectors = dumpAll(card, options);
    (options.json ? printDocument : printTable)(card.identification(), sectors, options.link.show);
    if (options.size == "auto" && sectors.size() == kSmallCard) {
        note("sector 16 did not open: taken as a card of 16 sectors (--size 4k reads more)");
    }
    if (!path.empty()) {
        saveImageFile(path, imageOf(sectors), options.force);
        note("image, keys included: " + path);
    }
    const bool whole = std::all_of(sectors.begin(), sectors.end(), [](const DumpedSector& s) { return s.whole(); });
    return whole ? Exit::Ok : Exit::NoAccess;
}

// ---------------------------------------------------------------- restore

// The image's own keys come last: they are what the card has when it is the one that was dumped.
std::vector<MemoryKey> keysFor(const Options& options, const std::optional<Bytes>& trailer)
{
    std::vector<MemoryKey> keys = keysOf(options);
    if (trailer) {
        keys.push_back({'\x60', "A", Bytes(trailer->begin(), trailer->begin() + kKeySize)});
        keys.push_back({'\x61', "B", Bytes(trailer->begin() + kKeyBAt, trailer->end())});
    }
    return keys;
}

// With one key after the other, until one may write it.
bool restoreBlock(MemorySession& card, unsigned block, const Bytes& data, const std::vector<MemoryKey>& keys)
{
    for (const MemoryKey& key : keys) {
        throwIfInterrupted();
        if (card.authenticate(block, {key}) && card.write(block, data)) {
            return isTrailer(block) || card.read(block) == data;
        }
        card.renew();
    }
    return false;
}

Exit restore(const Options& options)
{
    const ImageBlocks image = loadImageFile(options.image);
    if (options.trailer != options.yesOverwriteTrailer) {
        throw Failure(Exit::Unconfirmed, "trailers hold the sectors' keys and access conditions",
                      "wrong ones lock the card for ever; if it is meant: --trailer --yes-overwrite-trailer");
    }
    Session session(options.link);
    MemorySession card(session);
    Progress progress;
    Json written = Json::array(), failed = Json::array();
    for (unsigned block = 1; block < image.size(); ++block) { // block 0 is the maker's
        const bool wanted =
            image[block] && (!isTrailer(block) || (options.trailer && accessBitsConsistent(*image[block])));
        if (!wanted) {
            continue;
        }
        progress.show("block " + std::to_string(block));
        const unsigned sector = sectorOf(block);
        const auto& trailer = image[firstBlock(sector) + blockCount(sector) - 1];
        const bool done = restoreBlock(card, block, *image[block], keysFor(options, trailer));
        (done ? written : failed).push_back(block);
    }
    if (options.json) {
        printJson({{"identification", card.identification()}, {"written", written}, {"failed", failed}});
    } else {
        printLine("Wrote " + std::to_string(written.size()) + " blocks to card " + card.identification() +
                  (failed.empty() ? "" : "; not written: " + failed.dump()));
    }
    return failed.empty() ? Exit::Ok : Exit::NoAccess;
}

// ---------------------------------------------------------------- command line

using Run = Exit (*)(const Options&);

CLI::App* add(CLI::App& m1, const char* name, const char* text, const std::shared_ptr<Options>& options, Action& action,
              Run run)
{
    CLI::App* const command = m1.add_subcommand(name, text);
    command->add_flag("--json", options->json, "Print JSON");
    addLinkOptions(*command, options->link);
    command->callback([options, &action, run] { action = [options, run] { return run(*options); }; });
    return command;
}

void addKeys(CLI::App& command, Options& options)
{
    command.add_option("--key", options.keys, "Key of six bytes in hex (repeatable: tried in turn; FFFFFFFFFFFF)")
        ->check(hexArgumentOf(kKeySize));
    command
        .add_option("--key-file", options.keyFile, "More keys, one a line: they are not seen in a list of processes")
        ->type_name("FILE");
    command.add_option("--key-type", options.keyType, "Which of the sector's keys it is")
        ->check(CLI::IsMember({"A", "B", "AB"}, CLI::ignore_case))
        ->capture_default_str();
    command
        .add_option("--key-mode", options.keyMode, "Key mode byte in hex for a reader that numbers the keys otherwise")
        ->check(hexArgumentOf(1));
}

void addBlock(CLI::App& command, Options& options)
{
    command.add_option("--block,-b", options.block, "Block number")->required()->check(CLI::Range(0U, kBlocksMax - 1));
}

} // namespace

void addM1(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const m1 = root.add_subcommand("m1", "Read and write contactless memory cards");
    m1->require_subcommand(1);
    add(*m1, "activate", "Show a card's identification", options, action, activate);

    CLI::App* const authCommand = add(*m1, "auth", "Try keys on a sector", options, action, authenticate);
    CLI::App* const readCommand = add(*m1, "read", "Read blocks", options, action, read);
    CLI::App* const writeCommand = add(*m1, "write", "Write a block", options, action, write);
    CLI::App* const dumpCommand = add(*m1, "dump", "Read a whole card", options, action, dump);
    CLI::App* const restoreCommand = add(*m1, "restore", "Write an image's blocks to a card", options, action, restore);
    for (CLI::App* const command : {authCommand, readCommand, writeCommand, dumpCommand, restoreCommand}) {
        addKeys(*command, *options);
    }
    for (CLI::App* const command : {authCommand, readCommand, writeCommand}) {
        addBlock(*command, *options);
    }
    for (CLI::App* const command : {readCommand, dumpCommand}) {
        command->add_flag("--show", options->link.show, "Do not mask the keys in trailers");
    }

    readCommand->add_option("--count,-n", options->count, "How many blocks")
        ->check(CLI::Range(1U, kBlocksMax))
        ->capture_default_str();
    writeCommand->add_option("--data", options->data, "16 bytes in hex")->required()->check(hexArgumentOf(kBlockSize));
    for (CLI::App* const command : {writeCommand, restoreCommand}) {
        command->add_flag("--trailer", options->trailer, "Sector trailers are written, and that is meant");
        command->add_flag("--yes-overwrite-trailer", options->yesOverwriteTrailer, "Said a second time");
    }
    restoreCommand->add_option("image", options->image, "What 'm1 dump --output' saved")->type_name("FILE")->required();
    dumpCommand->add_flag("--force", options->force, "Replace the file of --output");
    dumpCommand->add_option("--size", options->size, "Size of the card")
        ->check(CLI::IsMember({"auto", "mini", "1k", "4k"}))
        ->capture_default_str();
    dumpCommand->add_option("--output,-o", options->output, "Also save an image that a profile can load (with keys)")
        ->type_name("FILE");
}

} // namespace vorn::tool
