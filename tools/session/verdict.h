// SPDX-License-Identifier: Apache-2.0
// What went wrong in a call, from its exchanges. The library's calls pass over much (a record that did not come is
// left out, a directory that did not answer is no directory), and give one result for many causes.
#pragma once

#include "tools/cli/errors.h"
#include "tools/session/line_watcher.h"

#include <optional>

namespace vorn::tool {

enum class Trouble {
    None,
    NoCard,      // none in the slot or field
    CardGone,    // it was there before
    CardMute,    // it took no power
    Silent,      // nothing came back
    Refused,     // the reader answered with an error
    Damaged,     // not a whole frame
    WrongDevice, // not a reader
};

struct Verdict {
    Trouble trouble = Trouble::None;
    std::size_t at = 0; // which exchange
};

// cardSeen: a card answered before these exchanges. Power-offs are not looked at: when they come the result is there.
Verdict judge(const std::vector<LineExchange>& exchanges, bool cardSeen);

// One exchange by itself, whatever stood before it.
Trouble troubleOf(const LineExchange& exchange);

Failure failureOf(Trouble trouble, const LineExchange& exchange);

// Of the directory and a log, or those that the answer to GET PROCESSING OPTIONS names.
enum class Records { All, OfApplication };

// The first READ RECORD that the card refused with another status word than this one, in words.
std::optional<std::string> refusedRecord(const std::vector<LineExchange>& exchanges, Records which, unsigned allowed);

std::string exchangeName(const LineExchange& exchange); // "power on", "the APDU READ RECORD 1 of file 1"

} // namespace vorn::tool
