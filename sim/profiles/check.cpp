// SPDX-License-Identifier: Apache-2.0
// What loading a profile refuses is taken out of it and the rest is loaded again, until nothing is refused any more.
// Then the cards are asked what a reader would ask them.
#include "sim/profiles/check.h"

#include "sim/cards/emv_card.h"
#include "sim/data/digits.h"
#include "sim/data/json_text.h"
#include "sim/data/profile_error.h"
#include "sim/data/tlv.h"
#include "sim/issuer/issuer.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <set>

namespace vorn::sim {

namespace {

using Json = nlohmann::json;

constexpr int kMistakesMax = 200;

// ---------------------------------------------------------------- members that stand twice

std::vector<std::string> doubledMembers(const std::string& text)
{
    std::vector<std::string> mistakes;
    std::vector<std::set<std::string>> open;
    const auto look = [&](int, Json::parse_event_t event, Json& parsed) {
        if (event == Json::parse_event_t::object_start) {
            open.emplace_back();
        } else if (event == Json::parse_event_t::object_end) {
            open.pop_back();
        } else if (event == Json::parse_event_t::key && !open.back().insert(parsed.get<std::string>()).second) {
            mistakes.push_back("member \"" + printable(parsed.get<std::string>(), 40) +
                               "\" stands twice in the same object: only the last one counts");
        }
        return true;
    };
    [[maybe_unused]] const Json ignored = Json::parse(text, look);
    return mistakes;
}

// ---------------------------------------------------------------- taking out what is refused

// The same shape as the profile, with the place that each item of a list had at first.
Json placesOf(const Json& json)
{
    Json places;
    if (json.is_object()) {
        places = Json::object();
        for (const auto& [key, member] : json.items()) {
            places[key] = placesOf(member);
        }
    } else if (json.is_array()) {
        places = Json::array();
        for (std::size_t i = 0; i < json.size(); ++i) {
            places.push_back({{"at", i}, {"is", placesOf(json[i])}});
        }
    }
    return places;
}

// "cards[0].applications[1].fci" in its parts: cards, 0, applications, 1, fci.
std::vector<std::string> partsOf(const std::string& place)
{
    std::vector<std::string> parts{""};
    for (const char c : place) {
        if (c == '.' || c == '[') {
            parts.emplace_back();
        } else if (c != ']') {
            parts.back() += c;
        }
    }
    return parts;
}

class Peeling {
public:
    explicit Peeling(const Json& json) : json_(json), places_(placesOf(json)) {}

    const Json& json() const { return json_; }

    // Takes out the node at this place, or as much of the way to it as is there. Returns the place as it was in the
    // file; nothing when there was none to take out.
    std::optional<std::string> takeOut(const std::string& place)
    {
        const std::vector<std::string> parts = partsOf(place);
        Json *node = &json_, *known = &places_;
        std::string original;
        for (std::size_t i = 0; i < parts.size(); ++i) {
            const std::string& part = parts[i];
            const bool item = node->is_array();
            const std::size_t index = item ? indexOf(part, node->size()) : 0;
            if (item ? index == node->size() : !node->is_object() || !node->contains(part)) {
                return i == 0 ? std::nullopt : std::optional(original);
            }
            original += item ? "[" + known->at(index).at("at").dump() + "]" : (i == 0 ? "" : ".") + part;
            if (i + 1 == parts.size()) {
                item ? eraseItem(*node, *known, index) : eraseMember(*node, *known, part);
                return original;
            }
            node = item ? &node->at(index) : &node->at(part);
            known = item ? &known->at(index).at("is") : &known->at(part);
        }
        return std::nullopt;
    }

    bool tookOut(const std::string& place) const { return gone_.count(place) != 0; }
    void note(const std::string& original) { gone_.insert(original); }

private:
    // `size` when the text is no index.
    static std::size_t indexOf(const std::string& text, std::size_t size)
    {
        const auto index = numberOf(text, 5);
        return index ? std::min<std::size_t>(*index, size) : size;
    }
    static void eraseItem(Json& node, Json& known, std::size_t index)
    {
        node.erase(index);
        known.erase(index);
    }
    static void eraseMember(Json& node, Json& known, const std::string& key)
    {
        node.erase(key);
        known.erase(key);
    }

    Json json_;
    Json places_;
    std::set<std::string> gone_;
};

std::optional<std::string> refusal(const Profile& profile)
{
    try {
        Reader reader;
        load(profile, reader);
        issuerOf(profile);
    } catch (const std::exception& error) {
        return error.what();
    }
    return std::nullopt;
}

// "FILE: PLACE: WHAT": the place and what is wrong there.
struct Complaint {
    std::string place;
    std::string what;
};

Complaint complaintOf(std::string message, const Profile& profile)
{
    const std::string file = profile.path + ": ";
    if (message.compare(0, file.size(), file) == 0) {
        message.erase(0, file.size());
    }
    const std::size_t end = std::min(message.find(": "), message.size());
    std::string place = message.substr(0, end);
    if (place.compare(0, 8, "profile.") == 0) {
        place.erase(0, 8);
    }
    return {place, message.substr(std::min(end + 2, message.size()))};
}

// What is missing only because it was taken out for a mistake of its own has been told.
bool followsFromOther(const Peeling& peeling, const std::string& original, const std::string& what)
{
    const std::size_t end = what.rfind("\" is missing");
    return end != std::string::npos && what.front() == '"' && peeling.tookOut(original + "." + what.substr(1, end - 1));
}

std::vector<std::string> refusals(const Profile& given, Json& left)
{
    std::vector<std::string> mistakes;
    Profile profile = given;
    Peeling peeling(left);
    for (int turn = 0; turn < kMistakesMax; ++turn) {
        profile.json = peeling.json().dump();
        const auto message = refusal(profile);
        if (!message) {
            break;
        }
        const Complaint complaint = complaintOf(*message, profile);
        const auto original = peeling.takeOut(complaint.place);
        if (!original) {
            mistakes.push_back(complaint.place + (complaint.what.empty() ? "" : ": " + complaint.what));
            break;
        }
        if (!followsFromOther(peeling, *original, complaint.what)) {
            mistakes.push_back(*original + ": " + complaint.what);
        }
        peeling.note(*original);
    }
    left = peeling.json();
    return mistakes;
}

// ---------------------------------------------------------------- what the cards say

constexpr std::size_t kStatusSize = 2;

bool done(const Bytes& response)
{
    return response.size() >= kStatusSize && response[response.size() - 2] == 0x90 && response.back() == 0x00;
}

Bytes select(const Bytes& aid)
{
    const Bytes header{0x00, 0xA4, 0x04, 0x00, static_cast<std::uint8_t>(aid.size())};
    Bytes command;
    command.reserve(header.size() + aid.size());
    command.insert(command.end(), header.begin(), header.end());
    command.insert(command.end(), aid.begin(), aid.end());
    return command;
}

// With zeros for all data that the card wants.
Bytes processingOptions(const Bytes& information)
{
    std::size_t size = 0;
    const auto list = tlv::find(information, 0x9F38);
    if (const auto entries = list ? tlv::parseDol(*list) : std::nullopt) {
        for (const tlv::DolEntry& entry : *entries) {
            size += entry.length;
        }
    }
    size = std::min<std::size_t>(size, 200);
    Bytes command{0x80, 0xA8, 0x00, 0x00, static_cast<std::uint8_t>(size + 2), 0x83, static_cast<std::uint8_t>(size)};
    command.insert(command.end(), size, 0x00);
    return command;
}

Bytes locatorIn(const Bytes& data)
{
    if (const auto plain = tlv::find(data, 0x80); plain && plain->size() > 2) {
        return {plain->begin() + 2, plain->end()};
    }
    return tlv::find(data, 0x94).value_or(Bytes());
}

std::vector<std::string> missingRecords(Card& card, const Bytes& aid, const std::string& where)
{
    constexpr std::size_t entry = 4;
    std::vector<std::string> mistakes;
    const Bytes information = card.transmit(select(aid));
    const Bytes options = card.transmit(processingOptions(information));
    if (!done(information) || !done(options)) {
        return mistakes;
    }
    const Bytes locator = locatorIn({options.begin(), options.end() - kStatusSize});
    for (std::size_t at = 0; at + entry <= locator.size(); at += entry) {
        const unsigned file = locator[at] >> 3;
        for (unsigned record = locator[at + 1]; record <= locator[at + 2]; ++record) {
            if (!done(card.transmit({0x00, 0xB2, static_cast<std::uint8_t>(record),
                                     static_cast<std::uint8_t>(file << 3 | 0x04U), 0x00}))) {
                mistakes.push_back(where + ": the AFL names record " + std::to_string(record) + " of file " +
                                   std::to_string(file) + ", which nobody wrote");
            }
        }
    }
    return mistakes;
}

std::string textOf(const Json& object, const char* key)
{
    const auto member = object.find(key);
    return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
}

void addCard(const Json& card, const std::string& where, std::vector<std::string>& mistakes)
{
    std::set<std::string> names;
    const auto emv = makeEmvCard(card, where);
    emv->powerOn();
    const Json applications = card.value("applications", Json::array());
    for (std::size_t i = 0; i < applications.size(); ++i) {
        const std::string place = where + ".applications[" + std::to_string(i) + "]";
        const std::string name = textOf(applications[i], "aid");
        const auto aid = fromHex(name);
        if (!names.insert(name).second) {
            mistakes.push_back(place + ": another application above has this identifier");
        } else if (aid) {
            const auto more = missingRecords(*emv, *aid, place);
            mistakes.insert(mistakes.end(), more.begin(), more.end());
        }
    }
}

} // namespace

std::vector<std::string> mistakesIn(const Profile& profile)
{
    Json json;
    try {
        json = parseJson(profile.json, profile.path);
    } catch (const ProfileError& error) {
        return {error.what()};
    }
    std::vector<std::string> mistakes = doubledMembers(profile.json);
    const auto refused = refusals(profile, json);
    mistakes.insert(mistakes.end(), refused.begin(), refused.end());
    if (!refused.empty()) {
        return mistakes; // places among what is left would be wrong
    }
    const Json cards = json.value("cards", Json::array());
    for (std::size_t i = 0; i < cards.size(); ++i) {
        if (textOf(cards[i], "type") == "emv") {
            addCard(cards[i], "cards[" + std::to_string(i) + "]", mistakes);
        }
    }
    return mistakes;
}

} // namespace vorn::sim
