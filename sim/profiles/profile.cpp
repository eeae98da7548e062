// SPDX-License-Identifier: Apache-2.0
#include "sim/profiles/profile.h"

#include "sim/cards/emv_card.h"
#include "sim/cards/memory_card.h"
#include "sim/cards/transcript_card.h"
#include "sim/data/digits.h"
#include "sim/data/json_node.h"
#include "sim/data/json_text.h"
#include "sim/data/named_file.h"
#include "sim/reader/fault.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <utility>

namespace vorn::sim {

namespace {

namespace fs = std::filesystem;

constexpr const char* kExtension = ".json";
constexpr int kLatest = 24 * 60 * 60 * 1000; // a card that comes later than in a day is a slip of the pen
constexpr std::size_t kResponseMax = Reader::kPayloadMax;

// ---------------------------------------------------------------- finding

std::vector<fs::path> directories()
{
    std::vector<fs::path> places;
    if (const char* own = std::getenv("VORN_PROFILES"); own != nullptr && *own != '\0') {
        places.emplace_back(own);
    }
    std::error_code ignored;
    const fs::path executable = fs::read_symlink("/proc/self/exe", ignored);
    if (!executable.empty()) {
        places.push_back(executable.parent_path().parent_path() / "share" / "vorn" / "profiles");
    }
#ifdef VORN_PROFILE_SOURCE
    places.emplace_back(VORN_PROFILE_SOURCE);
#endif
    return places;
}

Profile readProfile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(kJsonSizeMax + 1, '\0'); // one more than the parser takes
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!file.is_open() || file.bad()) {
        throw ProfileError(path.string() + ": cannot be read");
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    return {printable(path.stem().string()), path.string(), std::move(text)};
}

// ---------------------------------------------------------------- cards

struct SlotRow {
    const char* name;
    Slot slot;
};
constexpr SlotRow kSlots[] = {{"contact", Slot::Contact}, {"field", Slot::Field}, {"psam1", Slot::Psam1},
                              {"psam2", Slot::Psam2},     {"psam3", Slot::Psam3}, {"psam4", Slot::Psam4}};

Slot slotOf(const JsonNode& node)
{
    const std::string name = node.text();
    const auto* const row =
        std::find_if(std::begin(kSlots), std::end(kSlots), [&name](const SlotRow& r) { return name == r.name; });
    if (row == std::end(kSlots)) {
        node.expected("contact, field, or psam1 to psam4");
    }
    return row->slot;
}

// An empty one is a card that answers nothing.
Bytes responseOf(const JsonNode& node)
{
    Bytes response = node.hex();
    if (response.size() == 1 || response.size() > kResponseMax) {
        node.expected("a response of 2 to " + std::to_string(kResponseMax) +
                      " bytes, its status word at the end, or none");
    }
    return response;
}

TranscriptCard::Pair pairOf(const JsonNode& node)
{
    const auto parts = node.items();
    if (parts.size() != 2) {
        node.expected("a pair [command, response]");
    }
    const auto pattern = TranscriptCard::parsePattern(parts[0].text());
    if (!pattern) {
        parts[0].expected("a command in hex, ?? for any byte, * at the end for any rest");
    }
    return {*pattern, responseOf(parts[1])};
}

TranscriptCard::Order orderOf(const JsonNode& node)
{
    const std::string name = node.text();
    if (name != "any" && name != "strict") {
        node.expected("any or strict");
    }
    return name == "strict" ? TranscriptCard::Order::Strict : TranscriptCard::Order::Any;
}

std::shared_ptr<Card> makeTranscriptCard(const JsonNode& card)
{
    card.allow({"slot", "after_ms", "type", "comment", "atr", "order", "otherwise", "pairs"});
    std::vector<TranscriptCard::Pair> pairs;
    for (const JsonNode& node : card.at("pairs").items()) {
        pairs.push_back(pairOf(node));
    }
    const auto order = card.find("order");
    const auto otherwise = card.find("otherwise");
    return std::make_shared<TranscriptCard>(card.at("atr").hex(), std::move(pairs),
                                            order ? orderOf(*order) : TranscriptCard::Order::Any,
                                            otherwise ? responseOf(*otherwise) : Bytes{0x6D, 0x00});
}

// A file named in a profile is beside the profile.
NamedFile beside(const Profile& profile, const std::string& name)
{
    return {fs::path(profile.path).parent_path().string(), name};
}

std::shared_ptr<SectorCard> blankCard(const JsonNode& card)
{
    const Bytes identification = card.at("uid").hex();
    if (identification.size() != 4 && identification.size() != 7) {
        card.at("uid").expected("4 or 7 bytes of hex text");
    }
    const auto size = card.find("size");
    if (size && size->number(0, 4096) != 1024 && size->number(0, 4096) != 4096) {
        size->expected("1024 or 4096");
    }
    const bool large = size && size->number(0, 4096) == 4096;
    return std::make_shared<SectorCard>(identification, large ? SectorCard::kLarge : SectorCard::kSmall);
}

Bytes blockOf(const JsonNode& node)
{
    if (node.isText()) {
        return node.hex(MemoryCard::kBlockSize);
    }
    if (!node.isObject()) {
        node.expected("16 bytes of hex text, or an object with value and address");
    }
    node.allow({"value", "address"});
    return ValueBlock{node.at("value").number(INT32_MIN, INT32_MAX),
                      static_cast<std::uint8_t>(node.at("address").number(0, 255))}
        .encode();
}

void setBlocks(const JsonNode& node, SectorCard& card)
{
    for (const auto& [key, block] : node.members()) {
        const auto number = numberOf(key, 3);
        if (!number || *number >= card.blocks().size()) {
            throw ProfileError(block.where() + ": expected a block number from 0 to " +
                               std::to_string(card.blocks().size() - 1));
        }
        card.setBlock(*number, blockOf(block));
    }
}

std::shared_ptr<MemoryCard> makeMemoryCard(const JsonNode& card, const Profile& profile)
{
    card.allow({"slot", "after_ms", "type", "comment", "image", "save", "uid", "size", "blocks"});
    std::shared_ptr<SectorCard> memory;
    if (const auto image = card.find("image")) {
        if (card.find("uid") || card.find("size")) {
            throw ProfileError(card.where() + ": \"uid\" and \"size\" stand in the image already");
        }
        try {
            memory = std::make_shared<SectorCard>(loadImage(beside(profile, image->text())));
        } catch (const FileError& error) {
            throw ProfileError(image->where() + ": " + error.what());
        }
    } else {
        memory = blankCard(card);
    }
    if (const auto blocks = card.find("blocks")) {
        setBlocks(*blocks, *memory);
    }
    if (const auto save = card.find("save")) {
        memory->saveTo(beside(profile, save->text()));
    }
    return memory;
}

// ---------------------------------------------------------------- a whole profile

struct NewCard {
    Slot slot;
    std::chrono::milliseconds after;
    std::shared_ptr<Card> card;
    std::shared_ptr<MemoryCard> memory;
};

NewCard cardOf(const JsonNode& node, const Profile& profile)
{
    NewCard result{slotOf(node.at("slot")), std::chrono::milliseconds(0), nullptr, nullptr};
    if (const auto after = node.find("after_ms")) {
        result.after = std::chrono::milliseconds(after->number(0, kLatest));
    }
    const std::string type = node.at("type").text();
    if (type == "emv") {
        result.card = makeEmvCard(node.value(), node.where());
    } else if (type == "transcript") {
        result.card = makeTranscriptCard(node);
    } else if (type == "memory") {
        result.memory = makeMemoryCard(node, profile);
    } else {
        node.at("type").expected("emv, transcript or memory");
    }
    if (result.memory && result.slot != Slot::Field) {
        node.at("slot").expected("field, the only place for a memory card");
    }
    return result;
}

std::vector<NewCard> cardsOf(const JsonNode& list, const Profile& profile)
{
    std::vector<NewCard> cards;
    std::set<std::pair<Slot, bool>> taken;
    for (const JsonNode& node : list.items()) {
        cards.push_back(cardOf(node, profile));
        if (!taken.insert({cards.back().slot, cards.back().memory != nullptr}).second) {
            node.at("slot").expected("a slot that no card above lies in");
        }
    }
    return cards;
}

Fault faultOf(const JsonNode& node)
{
    const auto fault = parseFault(node.text());
    if (!fault) {
        node.expected("a fault such as status=06@3, silence@4, noise=5, delay=200/26 or pull@7");
    }
    return *fault;
}

} // namespace

Profile findProfile(const std::string& nameOrPath)
{
    const fs::path given(nameOrPath);
    if (given.has_parent_path() || given.extension() == kExtension) {
        return readProfile(given);
    }
    for (const fs::path& directory : directories()) {
        const fs::path path = directory / (nameOrPath + kExtension);
        std::error_code ignored;
        if (fs::is_regular_file(path, ignored)) {
            return readProfile(path);
        }
    }
    std::string known;
    for (const std::string& name : shippedProfiles()) {
        known += (known.empty() ? "" : ", ") + name;
    }
    throw ProfileError(nameOrPath + ": no such profile; known are " + known + ", or give the path of a file");
}

std::vector<std::string> shippedProfiles()
{
    std::set<std::string> names;
    for (const fs::path& directory : directories()) {
        std::error_code ignored;
        for (const auto& entry : fs::directory_iterator(directory, ignored)) {
            const std::string name = entry.path().stem().string();
            if (entry.path().extension() == kExtension && name == printable(name)) {
                names.insert(name);
            }
        }
    }
    return {names.begin(), names.end()};
}

// Nothing is put into the reader before the whole profile has been understood.
void load(const Profile& profile, Reader& reader)
{
    const nlohmann::json json = parseJson(profile.json, profile.path);
    const JsonNode root(json, profile.path + ": profile");
    root.allow({"name", "comment", "version", "cards", "faults", "issuer"}); // the issuer is read by who answers for it
    if (const auto name = root.find("name")) {
        name->text();
    }
    const auto at = [&](const char* key) {
        const auto node = root.find(key);
        return node ? std::optional(JsonNode(node->value(), profile.path + ": " + key)) : std::nullopt;
    };

    const auto version = at("version");
    const std::string versionText = version ? version->text() : "";
    std::vector<NewCard> cards;
    if (const auto list = at("cards")) {
        cards = cardsOf(*list, profile);
    }
    std::vector<Fault> faults;
    if (const auto list = at("faults")) {
        for (const JsonNode& node : list->items()) {
            faults.push_back(faultOf(node));
        }
    }

    if (version) {
        reader.setVersion(versionText);
    }
    for (NewCard& card : cards) {
        if (card.memory) {
            reader.insert(std::move(card.memory), card.after);
        } else {
            reader.insert(card.slot, std::move(card.card), card.after);
        }
    }
    for (const Fault& fault : faults) {
        reader.addFault(fault);
    }
}

std::optional<Issuer> issuerOf(const Profile& profile)
{
    const nlohmann::json json = parseJson(profile.json, profile.path);
    const auto issuer = JsonNode(json, profile.path).find("issuer");
    return issuer ? std::optional(makeIssuer(issuer->value(), profile.path + ": issuer")) : std::nullopt;
}

} // namespace vorn::sim
