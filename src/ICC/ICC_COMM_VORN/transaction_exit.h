// SPDX-License-Identifier: Apache-2.0
// The ways out of the two transaction calls. Hosts and their support people know each by its number in the log.
#pragma once

#include "ICC/ICC_COMM_VORN/call_frame.h"

namespace vorn {

constexpr int kNoLogLine = 0;
constexpr int kStepsCode = -9999; // the call returns what the failing step returned

enum class LogForm { Plain, WithMinusTwo };
enum class LogTime { AfterPowerOff, BeforePowerOff };

struct TransactionExit {
    int logNumber;
    CardPower card;
    LinkEnd link;
    int code;
    LogForm form = LogForm::Plain;
    LogTime time = LogTime::AfterPowerOff;
};

// Leaves the call. stepResult: what the failing step left, for the log line.
int leave(const TransactionExit& exit, int stepResult);

} // namespace vorn
