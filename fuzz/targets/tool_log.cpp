// SPDX-License-Identifier: Apache-2.0
// The library's log file as the tool follows it, in any cut: the same exchanges whatever the cut.
#include "support/input.h"
#include "support/require.h"
#include "tools/session/exchange_feed.h"

#include <vector>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

std::vector<sim::Bytes> exchangesIn(const std::string& text, std::size_t piece)
{
    std::vector<sim::Bytes> found;
    tool::ExchangeParser parser([&found](const tool::CardExchange& exchange) {
        found.push_back(exchange.command);
        found.push_back(exchange.response);
    });
    for (std::size_t at = 0; at < text.size(); at += piece) {
        parser.add(text.substr(at, piece));
    }
    parser.end();
    return found;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::size_t piece = 1U + input.byte();
    const std::string text = stringOf(input.rest());
    require(exchangesIn(text, piece) == exchangesIn(text, text.size() + 1), "a cut changes nothing");
    return 0;
}
