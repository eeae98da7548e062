// SPDX-License-Identifier: Apache-2.0
// What a host sends to the simulated reader, in any cut, with faults as people write them.
#include "sim/cards/memory_card.h"
#include "sim/cards/transcript_card.h"
#include "sim/reader/fault.h"
#include "sim/reader/line_decoder.h"
#include "sim/reader/reader.h"
#include "support/input.h"
#include "support/require.h"

#include <chrono>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

sim::Bytes bytesOf(ByteView view) { return sim::Bytes(view.data(), view.data() + view.size()); }

void decode(ByteView bytes)
{
    sim::LineDecoder decoder({"$I2", "$I4", "$B\x1B%A", "KTLVN"});
    std::vector<sim::LineItem> items;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        decoder.decode(bytes[i], items);
    }
    for (const sim::LineItem& item : items) {
        require(item.kind != sim::LineItem::Kind::Command || item.bytes.size() <= sim::LineDecoder::kCharactersMax / 2,
                "a command fits a frame");
    }
}

std::shared_ptr<sim::Card> card()
{
    const auto any = sim::TranscriptCard::parsePattern("*");
    return std::make_shared<sim::TranscriptCard>(
        sim::Bytes{0x3B, 0x00}, std::vector<sim::TranscriptCard::Pair>{{*any, {0x6F, 0x00, 0x90, 0x00}}},
        sim::TranscriptCard::Order::Any, sim::Bytes{0x6D, 0x00});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::uint8_t how = input.byte();
    const auto fault = sim::parseFault(stringOf(input.take(how & 0x1F)));
    const bool framed = (how & 0x20) != 0;

    std::chrono::milliseconds now{0};
    sim::Reader reader([&now] { return now; });
    reader.insert(sim::Slot::Contact, card());
    reader.insert(sim::Slot::Psam1, card());
    reader.insert(std::make_shared<sim::SectorCard>(sim::Bytes{1, 2, 3, 4}, sim::SectorCard::kSmall));
    reader.checkLineSpeed((how & 0x40) != 0);
    if (fault && fault->value <= 5000) {
        reader.addFault(*fault);
    }
    while (!input.atEnd()) {
        const ByteView piece = input.counted();
        decode(piece);
        for (const auto& output : reader.receive(framed ? sim::encodeFrame(bytesOf(piece)) : bytesOf(piece), 9600)) {
            require(output.bytes.size() <= 12000, "the size of an answer");
        }
        now += std::chrono::milliseconds(50);
    }
    return 0;
}
