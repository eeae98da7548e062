// SPDX-License-Identifier: Apache-2.0
// Patterns of transcripts, matched against commands; faults; hex text.
#include "sim/cards/transcript_card.h"
#include "sim/data/bytes.h"
#include "sim/reader/fault.h"
#include "support/input.h"
#include "support/require.h"

using namespace vorn;
using namespace vorn::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const auto order = (input.byte() & 1) != 0 ? sim::TranscriptCard::Order::Strict : sim::TranscriptCard::Order::Any;
    std::vector<sim::TranscriptCard::Pair> pairs;
    std::vector<sim::Bytes> commands;
    while (!input.atEnd()) {
        const std::string text = stringOf(input.counted());
        if (const auto pattern = sim::TranscriptCard::parsePattern(text)) {
            pairs.push_back({*pattern, {0x90, 0x00}});
        }
        if (const auto bytes = sim::fromHex(text)) {
            require(sim::fromHex(sim::toHex(*bytes)) == bytes, "hex text gives its bytes back");
            commands.push_back(*bytes);
        }
        sim::parseFault(text);
    }
    sim::TranscriptCard card({0x3B, 0x00}, pairs, order, {0x6D, 0x00});
    card.powerOn();
    for (const sim::Bytes& command : commands) {
        require(card.transmit(command).size() == 2, "an answer of the transcript");
    }
    return 0;
}
