// SPDX-License-Identifier: Apache-2.0
#include "tools/session/selected_application.h"

#include "sim/data/tlv.h"
#include "tools/explain/apdu_words.h"
#include "tools/explain/hex.h"
#include "tools/explain/present.h"

namespace vorn::tool {

namespace {

constexpr std::uint8_t kSelect = 0xA4;
constexpr std::uint8_t kProcessingOptions = 0xA8;
constexpr unsigned kDone = 0x9000;

} // namespace

bool SelectedApplication::startsWith(const std::string& hex) const
{
    return toHex(aid).compare(0, hex.size(), hex) == 0;
}

SelectedApplication selectedApplication(const std::vector<LineExchange>& exchanges)
{
    namespace tlv = sim::tlv;
    SelectedApplication application;
    for (const LineExchange& exchange : exchanges) {
        const Bytes apdu = exchange.apdu();
        const std::uint8_t instruction = apdu.size() > 1 ? apdu[1] : std::uint8_t{0};
        if (instruction == kProcessingOptions) {
            break;
        }
        const Bytes data = dataOf(exchange.payload).copy();
        const auto name = instruction == kSelect || instruction == 0xC0 ? tlv::find(data, 0x84) : std::nullopt;
        if (!name || statusOf(exchange.payload) != kDone) {
            continue;
        }
        const auto label = tlv::find(data, 0x50);
        application = {*name, label ? printable(std::string(label->begin(), label->end())) : ""};
    }
    return application;
}

} // namespace vorn::tool
