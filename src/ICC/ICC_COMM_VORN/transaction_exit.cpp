// SPDX-License-Identifier: Apache-2.0
#include "ICC/ICC_COMM_VORN/transaction_exit.h"

#include "public/local_log.h"

namespace vorn {
namespace {

void logExit(const TransactionExit& exit, int stepResult)
{
    if (exit.logNumber != kNoLogLine) {
        logService("[%s:%d]%d%s", "ICC/ICC_COMM_VORN", exit.logNumber, stepResult,
                   exit.form == LogForm::WithMinusTwo ? "(-2)" : "");
    }
}

} // namespace

int leave(const TransactionExit& exit, int stepResult)
{
    if (exit.time == LogTime::BeforePowerOff) {
        logExit(exit, stepResult);
    }
    if (exit.card == CardPower::Off) {
        vr_closeicc();
    }
    if (exit.time == LogTime::AfterPowerOff) {
        logExit(exit, stepResult);
    }
    if (exit.link == LinkEnd::Closed) {
        cldev();
    }
    return exit.returnsStepResult ? stepResult : exit.code;
}

} // namespace vorn
