// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/observations.h"

#include "sim/data/json_node.h"
#include "sim/data/json_text.h"
#include "sim/data/printable.h"
#include "sim/data/profile_error.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <variant>

namespace vorn::sim {

namespace {

using Kind = ObservationKind;
using Set = void (*)(Behaviour& unit, std::size_t word);

constexpr int kTimeMax = 60000; // milliseconds
constexpr std::size_t kRawMax = 256;
constexpr std::size_t kTextMax = 256;
constexpr std::size_t kDescriptorMax = 1024;

// What of a unit the observation tells; nothing: it is told for people only.
using Member = std::variant<std::monostate, UnitAnswer Behaviour::*, Behaviour::Time Behaviour::*, int Behaviour::*,
                            Bytes Behaviour::*, std::optional<std::string> Behaviour::*, Set>;

struct Row {
    ObservationName shown;
    Member member;
    int least = 0, most = 0; // of a number
};

Row answer(const char* name, const char* title, UnitAnswer Behaviour::*member)
{
    return {{name, title, Kind::Reply, {}, false}, member};
}

Row time(const char* name, const char* title, Behaviour::Time Behaviour::*member)
{
    return {{name, title, Kind::Time, {}, false}, member};
}

Row word(const char* name, const char* title, std::vector<const char*> words, Set set)
{
    return {{name, title, Kind::Word, std::move(words), false}, set};
}

Row number(const char* name, const char* title, int Behaviour::*member, int least, int most)
{
    return {{name, title, Kind::Number, {}, false}, member, least, most};
}

// Follows from other observations, or is of a person's doing.
Row alone(const char* name, const char* title, std::vector<const char*> words)
{
    return {{name, title, Kind::Word, std::move(words), false}, {}};
}

Row told(const char* name, const char* title, Kind kind, std::vector<const char*> words = {})
{
    return {{name, title, kind, std::move(words), true}, {}};
}

const std::vector<Row>& rows()
{
    using B = Behaviour;
    static const std::vector<Row> table = {
        {{"usb.device", "Device descriptor", Kind::Hex, {}, false}, &B::deviceDescriptor},
        {{"usb.configuration", "Configuration descriptor", Kind::Hex, {}, false}, &B::configurationDescriptor},
        told("usb.endpoints", "Endpoints of interface 0", Kind::Text),
        word("line.speed", "The reader was found at", {"9600", "38400"},
             [](B& unit, std::size_t at) { unit.leftFast = at == 1; }),
        word("line.command", "A command at 9600 baud, without the switch", {"silent", "answered"},
             [](B& unit, std::size_t at) { unit.commandsWhenSlow = at == 1; }),
        {{"version.text", "Version", Kind::Text, {}, false}, &B::version},
        time("version.time", "Time to the version's first byte", &B::versionTime),
        word("switch.fast", "Commands at 38400 baud after ESC $ I 2", {"silent", "answered"},
             [](B& unit, std::size_t at) { unit.followsSwitch = at == 1; }),
        word("switch.version", "Version at 38400 baud", {"silent", "answered"},
             [](B& unit, std::size_t at) { unit.versionWhenFast = at == 1; }),
        word("switch.back", "Version at 9600 baud after the way back", {"silent", "answered"},
             [](B& unit, std::size_t at) { unit.returns = at == 1; }),
        answer("slots.contact", "Contact slot, power on", &B::emptyContact),
        answer("slots.psam1", "PSAM slot 1, power on", &B::emptyPsam1),
        answer("slots.psam2", "PSAM slot 2, power on", &B::emptyPsam2),
        answer("slots.psam3", "PSAM slot 3, power on", &B::emptyPsam3),
        answer("slots.psam4", "PSAM slot 4, power on", &B::emptyPsam4),
        answer("slots.field", "Field, activation of a card", &B::emptyField),
        answer("slots.memory", "Field, activation of a memory card", &B::noMemoryCard),
        alone("cards.in", "A card put into the contact slot", {"seen", "not seen"}),
        alone("cards.out", "The card taken out", {"seen", "not seen"}),
        answer("power.off", "APDU to a card without power", &B::notPowered),
        told("power.contact.answer", "Contact slot, answer to reset", Kind::Hex),
        time("power.contact.time", "Contact slot, time to power up", &B::contactTime),
        told("power.psam1.answer", "PSAM slot 1, answer to reset", Kind::Hex),
        time("power.psam1.time", "PSAM slot 1, time to power up", &B::psam1Time),
        told("power.psam2.answer", "PSAM slot 2, answer to reset", Kind::Hex),
        time("power.psam2.time", "PSAM slot 2, time to power up", &B::psam2Time),
        told("power.psam3.answer", "PSAM slot 3, answer to reset", Kind::Hex),
        time("power.psam3.time", "PSAM slot 3, time to power up", &B::psam3Time),
        told("power.psam4.answer", "PSAM slot 4, answer to reset", Kind::Hex),
        time("power.psam4.time", "PSAM slot 4, time to power up", &B::psam4Time),
        told("field.answer", "Card in the field, its answer", Kind::Hex),
        time("field.time", "Card in the field, time to activate", &B::fieldTime),
        told("field.memory.answer", "Memory card in the field, its answer", Kind::Hex),
        time("field.memory.time", "Memory card in the field, time to activate", &B::memoryTime),
        answer("field.off", "Field switched off", &B::fieldOff),
        time("timing.reply", "Time to the first byte of a short reply", &B::replyTime),
        time("timing.gap", "Longest pause inside a reply", &B::gap),
        told("card.directory", "Card's directory, its answer", Kind::Text),
        told("card.record", "First record of the directory", Kind::Text),
        time("card.time", "Time to the first byte of a card's answer", &B::apduTime),
        answer("frames.empty", "Frame without content", &B::emptyFrame),
        answer("frames.shortest", "Frame with one byte of content", &B::shortFrame),
        alone("frames.128", "Frame of 128 characters, one write", {"taken", "not taken"}),
        answer("frames.129", "Frame of 129 characters, one too many", &B::wrongLength),
        alone("frames.130", "Frame of 130 characters, two writes", {"taken", "not taken"}),
        number("frames.longest", "Longest frame taken, of those tried", &B::longestFrame, 8, 4096),
        answer("frames.longer", "Answer to the first one that is too long", &B::tooLong),
        answer("malformed.command", "Unknown command", &B::unknownCommand),
        answer("malformed.parameter", "Command with a byte missing", &B::badParameter),
        answer("malformed.slot", "A slot that there is not", &B::noSuchSlot),
        answer("malformed.check", "Wrong check byte", &B::wrongCheck),
        answer("malformed.character", "Wrong character", &B::wrongCharacter),
        answer("malformed.cut", "Cut frame, then silence", &B::cutFrame),
        time("malformed.cut.time", "Time until a cut frame is answered", &B::cutTime),
        word("malformed.cut.next", "The next frame after it", {"lost", "taken"},
             [](B& unit, std::size_t at) { unit.beginsAnew = at == 1; }),
        word("malformed.two", "Two frames at once: answered", {"both", "first", "second", "neither"},
             [](B& unit, std::size_t at) { unit.twoFrames = static_cast<B::TwoFrames>(at); }),
        number("usb.packet", "Longest packet of a reply", &B::packetSize, 1, 64),
        told("usb.cut", "How the longest reply was cut", Kind::Text),
        word("usb.zero", "Packets without a byte", {"never", "after whole packets", "always"},
             [](B& unit, std::size_t at) { unit.zeroPacket = static_cast<B::ZeroPacket>(at); }),
        told("pauses.fast", "Shortest pause borne after ESC $ I 2, of 19 ms", Kind::Number),
        told("pauses.back", "Shortest pause borne on the way back, of 42 ms", Kind::Number),
    };
    return table;
}

// ---------------------------------------------------------------- reading

std::string textOf(const JsonNode& value, std::size_t most)
{
    std::string text = value.text();
    if (text.size() > most || printable(text) != text) {
        value.expected("a printable text of at most " + std::to_string(most) + " bytes");
    }
    return text;
}

std::size_t wordOf(const JsonNode& value, const std::vector<const char*>& words)
{
    const std::string text = textOf(value, kTextMax);
    const auto found = std::find(words.begin(), words.end(), text);
    if (found == words.end()) {
        std::string known;
        for (const char* const one : words) {
            known += (known.empty() ? "" : ", ") + std::string(one);
        }
        value.expected("one of " + known);
    }
    return static_cast<std::size_t>(found - words.begin());
}

Bytes bytesOf(const JsonNode& value)
{
    Bytes bytes = value.hex();
    if (bytes.size() > kDescriptorMax) {
        value.expected("at most " + std::to_string(kDescriptorMax) + " bytes");
    }
    return bytes;
}

// Sets the member that the row names.
struct Setter {
    const Row& row;
    const JsonNode& value;
    Behaviour& unit;

    void operator()(std::monostate) const
    {
        if (row.shown.kind == Kind::Word) {
            wordOf(value, row.shown.words);
        }
    }
    void operator()(UnitAnswer Behaviour::*member) const
    {
        const std::string text = value.text();
        if (text == kCardThere) {
            return;
        }
        const auto parsed = parseAnswer(text);
        if (!parsed) {
            value.expected("a status such as F0, \"silent\" or \"raw\" with hex");
        }
        unit.*member = *parsed;
    }
    void operator()(Behaviour::Time Behaviour::*member) const
    {
        unit.*member = Behaviour::Time(value.number(0, kTimeMax));
    }
    void operator()(int Behaviour::*member) const { unit.*member = value.number(row.least, row.most); }
    void operator()(Bytes Behaviour::*member) const { unit.*member = bytesOf(value); }
    void operator()(std::optional<std::string> Behaviour::*member) const { unit.*member = textOf(value, kTextMax); }
    void operator()(Set set) const { set(unit, wordOf(value, row.shown.words)); }
};

void take(Behaviour& unit, const std::string& name, const JsonNode& node)
{
    const auto& table = rows();
    const auto row = std::find_if(table.begin(), table.end(), [&](const Row& r) { return name == r.shown.name; });
    if (row == table.end()) {
        throw ProfileError(node.where() + ": there is no such observation");
    }
    // In a report there is more with the value; who writes one by hand gives the value alone.
    const JsonNode value = node.isObject() ? node.at("value") : node;
    std::visit(Setter{*row, value, unit}, row->member);
}

} // namespace

std::string answerText(const UnitAnswer& answer)
{
    switch (answer.kind) {
    case UnitAnswer::Kind::Status:
        return toHex({answer.status});
    case UnitAnswer::Kind::Silence:
        return "silent";
    case UnitAnswer::Kind::Raw:
        break;
    }
    return "raw " + toHex(answer.raw);
}

std::optional<UnitAnswer> parseAnswer(const std::string& text)
{
    const std::string raw = "raw ";
    if (text == "silent") {
        return UnitAnswer::silence();
    }
    if (text.compare(0, raw.size(), raw) == 0) {
        const auto bytes = fromHex(text.substr(raw.size()));
        const bool fits = bytes && !bytes->empty() && bytes->size() <= kRawMax;
        return fits ? std::optional<UnitAnswer>({UnitAnswer::Kind::Raw, 0, *bytes}) : std::nullopt;
    }
    const auto status = fromHex(text);
    return status && status->size() == 1 ? std::optional(UnitAnswer::ofStatus(status->front())) : std::nullopt;
}

const std::vector<ObservationName>& observationNames()
{
    static const std::vector<ObservationName> names = [] {
        std::vector<ObservationName> all;
        for (const Row& row : rows()) {
            all.push_back(row.shown);
        }
        return all;
    }();
    return names;
}

const ObservationName* observationName(const std::string& name)
{
    const auto& all = observationNames();
    const auto found = std::find_if(all.begin(), all.end(), [&](const ObservationName& n) { return name == n.name; });
    return found == all.end() ? nullptr : &*found;
}

Behaviour behaviourOf(const std::string& report, const std::string& path)
{
    const nlohmann::json json = parseJson(report, path);
    const JsonNode root(json, path);
    if (root.at("format").text() != kReportFormat) {
        throw ProfileError(path + ": this is no report of 'vorn accept'");
    }
    const int version = root.at("version").number(1, 1000000);
    if (version != kReportVersion) {
        throw ProfileError(path + ": a report of version " + std::to_string(version) + ", this simulator reads " +
                           std::to_string(kReportVersion));
    }
    Behaviour unit;
    for (const auto& [name, node] : root.at("observations").members()) {
        take(unit, name, node);
    }
    return unit;
}

} // namespace vorn::sim
