// SPDX-License-Identifier: Apache-2.0
// What a run has seen, by the names of sim/reader/observations.h.
#pragma once

#include "sim/reader/observations.h"
#include "tools/accept/channel.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace vorn::tool::accept {

using Json = nlohmann::ordered_json;

struct Finding {
    const sim::ObservationName* about;
    Json value;
};

class Findings {
public:
    // A later one of the same name takes the place of the earlier one.
    void word(const char* name, const char* value) { add(name, value); }
    void reply(const char* name, const sim::UnitAnswer& value) { add(name, sim::answerText(value)); }
    void cardThere(const char* name) { add(name, sim::kCardThere); }
    void number(const char* name, long value) { add(name, value); }
    void time(const char* name, Time value) { add(name, value.count()); }
    void hex(const char* name, const Bytes& value) { add(name, sim::toHex(value)); }
    void text(const char* name, const std::string& value) { add(name, value); }

    const std::vector<Finding>& all() const { return all_; }
    const Json* find(const std::string& name) const; // or nullptr

private:
    void add(const char* name, Json value);
    std::vector<Finding> all_;
};

// A time is another one when the two are further apart than a busy machine puts them.
bool differ(const sim::ObservationName& about, const Json& unit, const Json& simulator);

constexpr Time kTolerance{200};

} // namespace vorn::tool::accept
