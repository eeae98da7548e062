// SPDX-License-Identifier: Apache-2.0
// Reports of acceptance runs. The unit that one describes is then asked everything, in one piece and byte by byte.
#include "sim/data/profile_error.h"
#include "sim/reader/line_decoder.h"
#include "sim/reader/observations.h"
#include "sim/reader/reader.h"
#include "support/input.h"
#include "support/require.h"

using namespace vorn;
using namespace vorn::fuzz;

namespace {

constexpr std::size_t kAnswerMax = 8192; // bytes for one piece; the longest answers are a report's own

sim::Bytes everything()
{
    sim::Bytes line{0x1B, 'K', 'T', 'L', 'V', 'N', 0x1B, '$', 'I', '2', 0x1B, 'K', 'T', 'L', 'V', 'N'};
    const sim::Bytes commands[] = {{0x32, 0x22, 0x01, 0x80, 0x00},
                                   {0x32, 0x22, 0x01, 0x80, 0x13},
                                   {0x32, 0x24, 0x01, 0x80},
                                   {0x32, 0x25, 0x00, 0x00},
                                   {0x32, 0x26, 0x10, 0x00, 0xA4},
                                   {0x32, 0x41, 0x01, 0x00},
                                   {0x32, 0x7F},
                                   {0x32, 0x22},
                                   {}};
    for (const sim::Bytes& command : commands) {
        const sim::Bytes frame = sim::encodeFrame(command);
        line.insert(line.end(), frame.begin(), frame.end());
    }
    line.insert(line.end(), {0x02, 0x30, 0x31}); // a frame that is cut
    return line;
}

void answersTo(sim::Reader& reader, const sim::Bytes& piece)
{
    std::size_t size = 0;
    for (const auto& output : reader.receive(piece)) {
        require(output.delay >= output.delay.zero(), "no answer before its command");
        size += output.bytes.size();
    }
    require(size <= kAnswerMax, "the size of the answers");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const sim::Bytes line = everything();
    try {
        const sim::Behaviour unit = sim::behaviourOf(stringOf(ByteView(data, size)), "report.json");
        for (const bool inOnePiece : {true, false}) {
            sim::Reader reader([] { return std::chrono::milliseconds(0); });
            reader.behave(unit);
            if (inOnePiece) {
                answersTo(reader, line);
            }
            for (const std::uint8_t byte : line) {
                answersTo(reader, {byte});
            }
        }
    } catch (const sim::ProfileError&) { // the complaint that a person gets
    }
    return 0;
}
