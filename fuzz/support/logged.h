// SPDX-License-Identifier: Apache-2.0
// Exchanges as the library's log has them, and the card that is made of them again.
#pragma once

#include "sim/profiles/profile.h"
#include "sim/reader/reader.h"
#include "support/require.h"
#include "tools/explain/transcript.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <exception>
#include <string>

namespace vorn::fuzz {

// One exchange with the reader; the answer's payload alone is logged.
inline std::string logOf(const std::string& marker, const sim::Bytes& command, const sim::Bytes& payload)
{
    const auto dump = [](const sim::Bytes& bytes) {
        std::string line;
        for (const std::uint8_t byte : bytes) {
            line += sim::toHex({byte}) + " ";
        }
        return line + "\n";
    };
    return "Indata----------------------" + marker + "\n" + dump(command) + "Outdata----------------------" + marker +
           "\n" + dump(payload);
}

inline void requirePlayable(const tool::PowerCycle& cycle)
{
    sim::Reader reader([] { return std::chrono::milliseconds(0); });
    try {
        sim::load({"from a log", "", tool::profileOf(cycle).dump()}, reader);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        require(false, "the simulator takes the card of a log");
    }
}

} // namespace vorn::fuzz
