// SPDX-License-Identifier: Apache-2.0
// A counter's desk: the library on a tty, a simulated reader at its other end, and every service call as one row with
// its results and texts, so that whole days can be compared with each other.
#pragma once

#include "sim/issuer/issuer.h"
#include "sim/profiles/profile.h"
#include "sim/reader/reader.h"
#include "support/scripted_reader.h"
#include "support/service_call.h"

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace vorn::test {

struct CallRecord {
    std::string call;
    int result = 0;
    std::vector<std::string> texts; // the outputs, as far as the call wrote them

    bool operator==(const CallRecord& other) const
    {
        return call == other.call && result == other.result && texts == other.texts;
    }
};

std::string toText(const CallRecord& record);

// The results that the header promises for a call.
const std::set<int>& documentedResults(const std::string& call);

// Does a record say nothing that the undisturbed one does not say? A successful call may lack what could not be read: a
// field of the card's data is empty, the transaction log ends early, a response is the empty text.
bool saysNoMoreThan(const CallRecord& undisturbed, const CallRecord& record);

// What one counter does with one customer: service calls in their order.
struct Errand {
    const char* name;
    const char* profile;
    std::vector<CallRecord> (*run)(class SimulatedDesk& desk);
};
const std::vector<Errand>& errands();
inline void PrintTo(const Errand& errand, std::ostream* out) { *out << errand.name; }

class SimulatedDesk {
public:
    SimulatedDesk(std::string port, const std::string& profile);
    SimulatedDesk(std::string port, const sim::Profile& profile);

    const char* port() const { return port_.c_str(); }
    sim::Reader& reader() { return reader_; }
    const sim::Issuer& issuer() const { return *issuer_; }

private:
    std::string port_;
    sim::Reader reader_;
    std::optional<sim::Issuer> issuer_;
};

} // namespace vorn::test
