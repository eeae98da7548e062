// SPDX-License-Identifier: Apache-2.0
// Cards for the simulator out of a log: what a card answered between one power on and the next.
#pragma once

#include "tools/explain/log_reader.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vorn::tool {

// One time that a card had power.
struct PowerCycle {
    std::string slot; // as a profile names it
    Bytes atr;
    std::vector<std::pair<Bytes, Bytes>> exchanges;
    std::size_t line = 0;
};

class Transcript {
public:
    void exchange(const LoggedExchange& logged);
    void text(const std::string& line);

    const std::vector<PowerCycle>& cycles() const { return cycles_; } // those in which a card was asked something
    bool memoryCards() const { return memoryCards_; }
    std::size_t leftOut() const { return leftOut_; } // exchanges that are not whole, or longer than any

    static constexpr std::size_t kMostCycles = 1000;
    static constexpr std::size_t kMostExchanges = 5000; // of one cycle

    void end();

private:
    void powered(const LoggedExchange& logged);
    void close(const std::string& slot);

    std::vector<PowerCycle> open_; // one for each slot
    std::vector<PowerCycle> cycles_;
    bool memoryCards_ = false;
    std::size_t leftOut_ = 0;
};

// A profile with this card in it.
nlohmann::ordered_json profileOf(const PowerCycle& cycle);

} // namespace vorn::tool
