// SPDX-License-Identifier: Apache-2.0
// A copy of a recording that may be sent to others: what is secret in its frames is replaced by zeros, as in a copy of a
// log (redact.h). Every length, time and cut stays, frames that were right are right again, wrong ones stay wrong. What
// can no longer be checked then is checked before, and told.
#pragma once

#include "sim/reader/line_recording.h"
#include "sim/reader/line_units.h"
#include "tools/explain/cryptogram_checks.h"
#include "tools/explain/redact.h"

#include <map>
#include <string>
#include <vector>

namespace vorn::tool {

class RecordingRedaction {
public:
    RecordingRedaction(sim::Recording recording, CryptogramChecks checks);

    std::string text(const std::string& about) const; // the whole copy
    std::size_t count() const { return count_; }      // of things that were changed

private:
    using Bytes = sim::Bytes;
    // One direction.
    struct Stream {
        Bytes bytes;
        std::size_t cut = 0; // bytes of it that have been delivered as units
    };
    struct Piece {
        bool fromHost = false;
        sim::LineUnit unit;
        std::size_t at = 0;   // in its stream
        std::size_t line = 0; // that ended it
    };

    void cutUp();
    void addUnits(std::vector<sim::LineUnit>& units, bool fromHost, std::size_t line);
    void checkAll();
    void redactFrames();
    void redactRest();
    void replace(const Piece& piece, const Bytes& bytes);
    void putBack();

    sim::Recording recording_;
    CryptogramChecks checks_;
    Stream host_, reader_;
    std::vector<Piece> pieces_;
    std::map<std::size_t, std::vector<std::string>> told_; // behind which line
    std::size_t count_ = 0;
};

} // namespace vorn::tool
