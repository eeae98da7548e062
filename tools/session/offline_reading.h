// SPDX-License-Identifier: Apache-2.0
// Reads a card for offline data authentication, and has it sign.
#pragma once

#include "tools/session/session.h"
#include "tools/verify/offline_checks.h"

namespace vorn::tool {

struct CardCall;

// The card is powered, and the application selected and asked anew. Throws Failure when something does not come that
// the card has announced.
class OfflineReading {
public:
    OfflineReading(Session& session, int interfaceMode, Bytes aid);

    // All checks of what the card offers. withCryptogram: CDA too, which takes an ARQC: for the card that is a
    // transaction that was not brought to its end.
    verify::OfflineChecks check(const verify::Authorities& authorities, bool withCryptogram);

private:
    struct Answer {
        unsigned status = 0;
        Bytes data;
    };

    Answer ask(const char* name, int (*function)(CardCall&), const Bytes& data, std::uint8_t p1 = 0,
               std::uint8_t p2 = 0);
    Bytes need(const char* name, const Answer& answer) const;
    Bytes valuesFor(const Bytes& list);
    void readFile(unsigned file, unsigned first, unsigned last, unsigned marked);
    void signDynamically(verify::OfflineChecks& checks);
    void signCryptogram(verify::OfflineChecks& checks);

    Session& session_;
    Bytes terminalData_;
    Bytes unpredictable_;
    Bytes options_; // the values of the PDOL
    verify::Evidence evidence_;
    std::size_t recordsRead_ = 0;
};

} // namespace vorn::tool
