// SPDX-License-Identifier: Apache-2.0
// The bytes on the line as the tool watches them: the same commands whatever the cut.
#include "support/input.h"
#include "support/require.h"
#include "tools/session/line_watcher.h"

#include <algorithm>
#include <utility>
#include <vector>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

using Pieces = std::vector<std::pair<tool::TapRecord, sim::Bytes>>;

// A byte of direction and size, and so many bytes.
Pieces piecesOf(Input& input)
{
    Pieces pieces;
    while (!input.atEnd()) {
        const std::uint8_t head = input.byte();
        sim::Bytes bytes;
        for (unsigned left = head >> 1; left > 0 && !input.atEnd(); --left) {
            bytes.push_back(input.byte());
        }
        pieces.emplace_back((head & 1U) != 0 ? tool::TapRecord::Received : tool::TapRecord::Sent, bytes);
    }
    return pieces;
}

std::vector<sim::Bytes> commandsIn(const Pieces& pieces, std::size_t most)
{
    tool::LineWatcher watcher;
    watcher.begin();
    for (const auto& [record, bytes] : pieces) {
        for (std::size_t at = 0; at < bytes.size(); at += most) {
            const std::size_t end = std::min(at + most, bytes.size());
            watcher.add(record, {bytes.begin() + static_cast<std::ptrdiff_t>(at),
                                 bytes.begin() + static_cast<std::ptrdiff_t>(end)});
        }
    }
    watcher.end(false);
    std::vector<sim::Bytes> commands;
    for (const tool::LineExchange& exchange : watcher.exchanges()) {
        commands.push_back(exchange.command);
    }
    return commands;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::size_t piece = 1U + input.byte();
    const Pieces pieces = piecesOf(input);
    require(commandsIn(pieces, piece) == commandsIn(pieces, size + 1), "a cut changes nothing");
    return 0;
}
