// SPDX-License-Identifier: Apache-2.0
// What is left of a run: the report for the maintainers and for 'vorn sim --like', and a page for people.
#pragma once

#include "tools/accept/acceptance.h"

#include <functional>
#include <string>

namespace vorn::tool::accept {

struct Circumstances {
    std::string reader; // "reader at ttyS1", "simulated reader"
    std::string tool;   // its version
    std::string library;
    std::string date;    // ISO 8601
    std::string problem; // what ended the run before its end
};

Json reportOf(const Acceptance& acceptance, const Circumstances& circumstances);

using Write = std::function<void(const std::string&)>;
void writePage(const Acceptance& acceptance, const Circumstances& circumstances, const Write& write);

// A value as people read it: "700 ms", "status 02", "silent".
std::string valueText(const sim::ObservationName& about, const Json& value);

} // namespace vorn::tool::accept
