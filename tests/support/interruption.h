// SPDX-License-Identifier: Apache-2.0
// What can happen at any exchange of a transaction's two calls.
#pragma once

#include <string>

namespace vorn::test {

enum class Interruption {
    DeadReader,  // it answers nothing any more
    LostReply,   // one reply is missing
    CardPulled,  // the reader has no card any more
    CardSlipped, // it has none for one exchange
    EmptyReply,  // one reply carries nothing from the card
    OneByte,     // one reply carries half a status word
};

// What the step at which it happens returns.
inline std::string resultOf(Interruption how)
{
    switch (how) {
    case Interruption::DeadReader:
    case Interruption::LostReply:
        return "-11";
    case Interruption::CardPulled:
    case Interruption::CardSlipped:
        return "-9";
    case Interruption::EmptyReply:
    case Interruption::OneByte:
        break;
    }
    return "-10";
}

} // namespace vorn::test
