// SPDX-License-Identifier: Apache-2.0
// A run of the steps on a unit, and of each of them on the plain simulated reader beside it, with cards that say what
// the unit's cards said.
#pragma once

#include "tools/accept/simulated_channel.h"
#include "tools/accept/steps.h"
#include "tools/cli/errors.h"

#include <string>
#include <vector>

namespace vorn::tool::accept {

// What became of one step.
struct StepResult {
    enum class End { Done, Skipped, Failed };
    const Step* step;
    End end = End::Done;
    std::string why; // it was skipped, or failed
    std::vector<const sim::ObservationName*> seen;
    Time took{0};
};

class Acceptance {
public:
    Acceptance(ReaderLine& unit, Person* person);

    // Throws Failure when the reader fell silent, the port is gone, or a signal came; what was seen until then stays.
    const StepResult& run(const Step& step);
    void skip(const Step& step, const std::string& why);
    const std::vector<StepResult>& results() const { return results_; }
    const Findings& unit() const { return unitFindings_; }
    // What the simulator does; nothing where that is not to be known.
    const Json* plain(const sim::ObservationName& about) const { return plainFindings_.find(about.name); }
    bool differs(const sim::ObservationName& about) const;
    std::size_t differences() const;

private:
    void placeStandIns();
    void runBeside(const Step& step);

    ReaderLine& unitLine_;
    Person* person_;
    SimulatedChannel plainChannel_;
    ReaderLine plainLine_;
    Findings unitFindings_, plainFindings_;
    std::vector<StepResult> results_;
};

} // namespace vorn::tool::accept
