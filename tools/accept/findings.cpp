// SPDX-License-Identifier: Apache-2.0
#include "tools/accept/findings.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace vorn::tool::accept {

void Findings::add(const char* name, Json value)
{
    const sim::ObservationName* const about = sim::observationName(name);
    if (about == nullptr) {
        throw std::logic_error(std::string("an observation without a name: ") + name);
    }
    const auto same = std::find_if(all_.begin(), all_.end(), [&](const Finding& f) { return f.about == about; });
    if (same != all_.end()) {
        same->value = std::move(value);
    } else {
        all_.push_back({about, std::move(value)});
    }
}

const Json* Findings::find(const std::string& name) const
{
    const auto found = std::find_if(all_.begin(), all_.end(), [&](const Finding& f) { return name == f.about->name; });
    return found == all_.end() ? nullptr : &found->value;
}

bool differ(const sim::ObservationName& about, const Json& unit, const Json& simulator)
{
    if (about.told) {
        return false;
    }
    if (about.kind != sim::ObservationKind::Time) {
        return unit != simulator;
    }
    const auto one = unit.get<Time::rep>(), other = simulator.get<Time::rep>();
    return std::abs(one - other) > std::max(kTolerance.count(), std::max(one, other) / 4);
}

} // namespace vorn::tool::accept
