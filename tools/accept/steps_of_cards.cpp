// SPDX-License-Identifier: Apache-2.0
// Steps about slots and the cards in them. Nothing here changes a card.
#include "tools/accept/steps.h"
#include "tools/explain/mask.h"

namespace vorn::tool::accept {

namespace {

struct Place {
    std::uint8_t place;
    const char* slot; // names of observations
    const char* answer;
    const char* time;
};
constexpr Place kPlaces[] = {
    {kContact, "slots.contact", "power.contact.answer", "power.contact.time"},
    {kFirstPsam, "slots.psam1", "power.psam1.answer", "power.psam1.time"},
    {kFirstPsam + 1, "slots.psam2", "power.psam2.answer", "power.psam2.time"},
    {kFirstPsam + 2, "slots.psam3", "power.psam3.answer", "power.psam3.time"},
    {kFirstPsam + 3, "slots.psam4", "power.psam4.answer", "power.psam4.time"},
    {kField, "slots.field", "field.answer", "field.time"},
    {kMemory, "slots.memory", "field.memory.answer", "field.memory.time"},
};

bool inField(const Place& place) { return place.place == kField || place.place == kMemory; }

void powerCard(Bench& bench, const Place& place)
{
    const Reply first = bench.line.powerOn(place.place);
    if (!first.ok()) {
        return;
    }
    bench.findings.hex(place.answer, first.payload);
    const auto time = believedTime([&]() -> std::optional<Time> {
        bench.line.powerOff(place.place);
        const Reply reply = bench.line.powerOn(place.place);
        return reply.ok() ? std::optional(reply.heard.first) : std::nullopt;
    });
    if (time) {
        bench.findings.time(place.time, *time);
    }
    bench.line.powerOff(place.place);
}

} // namespace

void lookIntoSlots(Bench& bench)
{
    for (const Place& place : kPlaces) {
        const Reply reply = bench.line.powerOn(place.place);
        if (reply.ok()) {
            bench.findings.cardThere(place.slot);
            bench.line.powerOff(place.place);
        } else {
            bench.findings.reply(place.slot, reply.answer());
        }
    }
}

namespace {

bool moved(Bench& bench, Person::Wish wish)
{
    if (!bench.person->please(wish)) {
        return false;
    }
    const bool there = bench.line.powerOn(kContact).ok();
    if (there) {
        bench.line.powerOff(kContact);
    }
    const bool in = wish == Person::Wish::PutIn;
    bench.findings.word(in ? "cards.in" : "cards.out", there == in ? "seen" : "not seen");
    return true;
}

} // namespace

// Ends with a card in the slot, for the steps behind this one.
void moveCard(Bench& bench)
{
    using Wish = Person::Wish;
    const bool there = bench.line.powerOn(kContact).ok();
    if (there) {
        bench.line.powerOff(kContact);
    } else if (!moved(bench, Wish::PutIn)) {
        return;
    }
    if (moved(bench, Wish::TakeOut)) {
        moved(bench, Wish::PutIn);
    }
}

void powerCards(Bench& bench)
{
    for (const Place& place : kPlaces) {
        if (!inField(place)) {
            powerCard(bench, place);
        }
    }
    for (const auto& [place, answer] : bench.line.seen().answers) {
        if (place != kField && place != kMemory) { // off since a moment ago
            const Reply reply = bench.line.apdu(place, {0x00, 0xA4, 0x00, 0x00});
            bench.findings.reply("power.off", reply.answer());
            break;
        }
    }
}

void useField(Bench& bench)
{
    for (const Place& place : kPlaces) {
        if (inField(place)) {
            powerCard(bench, place);
        }
    }
    bench.line.makeReady();
    bench.findings.reply("field.off", bench.line.command({0x32, 0x25, 0x00, 0x00}).answer());
}

void timeReplies(Bench& bench)
{
    bench.line.makeReady();
    const auto measure = [&bench](Time Heard::*which) {
        return believedTime([&]() -> std::optional<Time> {
            const Reply reply = bench.line.command({0x32, 0x25, 0x00, 0x00});
            return reply.status ? std::optional(reply.heard.*which) : std::nullopt;
        });
    };
    if (const auto first = measure(&Heard::first)) {
        bench.findings.time("timing.reply", *first);
    }
    if (const auto gap = measure(&Heard::gap)) {
        bench.findings.time("timing.gap", *gap);
    }
}

// A payment system's directory, in the contact slot or in the field.
void readTestCard(Bench& bench)
{
    static const Bytes select = [] {
        Bytes bytes{0x00, 0xA4, 0x04, 0x00, 0x0E};
        for (const char c : std::string("1PAY.SYS.DDF01")) {
            bytes.push_back(static_cast<std::uint8_t>(c));
        }
        bytes.push_back(0x00);
        return bytes;
    }();
    static const Bytes record{0x00, 0xB2, 0x01, 0x0C, 0x00};
    for (const std::uint8_t place : {kContact, kField}) {
        if (!bench.line.powerOn(place).ok()) {
            continue;
        }
        const Reply directory = bench.line.apdu(place, select);
        if (directory.ok()) {
            bench.findings.text("card.directory", responseHex(select, directory.payload, false));
        }
        const Reply first = bench.line.apdu(place, record);
        if (first.ok()) {
            bench.findings.text("card.record", responseHex(record, first.payload, false));
        }
        const auto time = believedTime([&]() -> std::optional<Time> {
            const Reply again = bench.line.apdu(place, record);
            return again.ok() ? std::optional(again.heard.first) : std::nullopt;
        });
        if (time) {
            bench.findings.time("card.time", *time);
        }
        bench.line.powerOff(place);
        return;
    }
}

} // namespace vorn::tool::accept
