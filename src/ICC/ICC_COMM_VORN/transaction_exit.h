// SPDX-License-Identifier: Apache-2.0
// The ways out of the two transaction calls. Hosts and their support people know each by its number in the log.
#pragma once

#include "ICC/ICC_COMM_VORN/call_frame.h"

namespace vorn {

constexpr int kNoLogLine = 0;
// What a failing step leaves, where it is not a code of its own.
constexpr int kObjectNotFound = -1;
constexpr int kDolNotBuilt = -1;

enum class LinkEnd { Closed, StaysOpen };
enum class LogForm { Plain, WithMinusTwo };
enum class LogTime { AfterPowerOff, BeforePowerOff };

struct TransactionExit {
    int logNumber;
    CardPower card;
    LinkEnd link;
    int code; // not looked at where the step's result is returned
    LogForm form = LogForm::Plain;
    LogTime time = LogTime::AfterPowerOff;
    bool returnsStepResult = false;
};

constexpr TransactionExit returningStepResult(int logNumber, CardPower card)
{
    return {logNumber, card, LinkEnd::Closed, 0, LogForm::Plain, LogTime::AfterPowerOff, true};
}

// Leaves the call. stepResult: what the failing step left, for the log line.
int leave(const TransactionExit& exit, int stepResult);

} // namespace vorn
