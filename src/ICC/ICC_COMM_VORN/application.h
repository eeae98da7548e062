// SPDX-License-Identifier: Apache-2.0
// Selecting the application that a service works with.
#pragma once

#include "public/bytes.h"

#include "vorn/result.h"

#include <cstdint>

namespace vorn {

struct Application {
    static constexpr std::size_t kAidMax = 128; // 127 bytes, and the half one of a text of odd length

    std::uint8_t aid[kAidMax] = {}; // the caller's whole list, or the candidate's
    std::size_t aidSize = 0;
    std::uint8_t fci[VORN_RESPONSE_MAX] = {};
    std::uint8_t fciSize = 0;

    ByteView aidView() const { return ByteView(aid, aidSize); }
    ByteView fciView() const { return ByteView(fci, fciSize); }
};

struct Selection {
    enum class Outcome { Selected, NoCandidate, FinalSelectFailed };

    Outcome outcome;
    int stepResult; // of the step that failed
    bool byList;    // the caller gave a list, which found nothing

    // The code that all services return for a failure.
    int code() const { return outcome == Outcome::NoCandidate ? VORN_NO_APPLICATION : VORN_SELECT_FAILED; }
};

// What GET PROCESSING OPTIONS gave.
struct ProcessingOptions {
    std::uint8_t aip[2] = {};
    std::uint8_t aipSize = 0;
    std::uint8_t afl[VORN_RESPONSE_MAX] = {};
    std::uint8_t aflSize = 0;

    int get(const Application& application, ByteView terminalData);
    ByteView aipView() const { return ByteView(aip, aipSize); }
    ByteView aflView() const { return ByteView(afl, aflSize); }
};

// Tries the caller's AID list first, if there is one, then the card's directory.
Selection selectApplication(const char* pszAIDlist, Application& application);

} // namespace vorn
