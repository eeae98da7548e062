// SPDX-License-Identifier: Apache-2.0
// Card profiles, their issuer included. What a profile that is understood makes of a card is then asked for its data.
#include "sim/data/json_node.h"
#include "sim/issuer/issuer.h"
#include "sim/profiles/profile.h"
#include "sim/reader/line_decoder.h"
#include "support/input.h"

#include <nlohmann/json.hpp>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

void use(sim::Reader& reader)
{
    static const sim::Bytes kCommands[] = {
        {0x32, 0x22, 0x01, 0x80, 0x00},
        {0x32, 0x26, 0x00, 0x00, 0xA4, 0x04, 0x00, 0x0E, 0x31, 0x50, 0x41,
         0x59, 0x2E, 0x53, 0x59, 0x53, 0x2E, 0x44, 0x44, 0x46, 0x30, 0x31},
        {0x32, 0x26, 0x00, 0x00, 0xB2, 0x01, 0x0C, 0x00},
        {0x32, 0x26, 0x00, 0x80, 0xA8, 0x00, 0x00, 0x02, 0x83, 0x00},
        {0x32, 0x26, 0x00, 0x80, 0xCA, 0x9F, 0x36, 0x00},
        {0x32, 0x24, 0x01, 0x80},
        {0x32, 0x41, 0x01, 0x00},
    };
    for (const sim::Bytes& command : kCommands) {
        reader.receive(sim::encodeFrame(command));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Files that it names lie in a folder that is not there.
    const sim::Profile profile{"fuzz", "/nonexistent/fuzz.json", stringOf(ByteView(data, size))};
    try {
        sim::Reader reader([] { return std::chrono::milliseconds(0); });
        sim::load(profile, reader);
        use(reader);
    } catch (const sim::ProfileError&) { // the complaint that a person gets
    }
    try {
        sim::issuerOf(profile);
    } catch (const sim::ProfileError&) {}
    return 0;
}
