// SPDX-License-Identifier: Apache-2.0
#include "ICC/ICC_COMM_VORN/application.h"

#include "card/selection.h"
#include "public/local_log.h"

#include "vorn/card.h"
#include "vorn/convert.h"

#include <cstring>

namespace vorn {
namespace {

constexpr char kPaymentSystemEnvironment[] = "1PAY.SYS.DDF01";

void keep(Application& application, ByteView fci)
{
    application.fciSize = static_cast<std::uint8_t>(fci.size());
    if (!fci.empty()) {
        std::memcpy(application.fci, fci.data(), fci.size());
    }
}

// Only the low byte of the text's length counts.
bool selectByList(const char* list, Application& application)
{
    const auto length = static_cast<std::uint8_t>(std::strlen(list));
    AsciiToHex(list, application.aid, length);
    application.aidSize = length / 2;
    Candidates<flist> candidates;
    if (vrdk_AidAppSelect(1, application.aid, length / 2, &candidates.head()) < 1) {
        return false;
    }
    keep(application, ByteView(candidates.head().fci, candidates.head().fciLength));
    return true;
}

} // namespace

int ProcessingOptions::get(const Application& application, ByteView terminalData)
{
    return vrdk_GetProcOptions(application.fci, application.fciSize, terminalData.data(),
                               static_cast<int>(terminalData.size()), aip, &aipSize, afl, &aflSize);
}

Selection selectApplication(const char* pszAIDlist, Application& application)
{
    const char* list = textOf(pszAIDlist);
    const bool byList = *list != '\0';
    if (byList && selectByList(list, application)) {
        return {Selection::Outcome::Selected, 0, false};
    }
    application = Application{};
    Candidates<alist> candidates;
    const auto* environment = reinterpret_cast<const unsigned char*>(kPaymentSystemEnvironment);
    const int found = vrdk_PseAppSelect(environment, sizeof kPaymentSystemEnvironment - 1, &candidates.head());
    if (found == 0) {
        return {Selection::Outcome::NoCandidate, found, byList};
    }
    application.aidSize = candidates.head().aidLength;
    std::memcpy(application.aid, candidates.head().aid, application.aidSize);
    const int result = vrdk_FinalAppSelect(application.aid, static_cast<int>(application.aidSize), application.fci,
                                           &application.fciSize);
    if (result != VORN_OK) {
        return {Selection::Outcome::FinalSelectFailed, result, byList};
    }
    return {Selection::Outcome::Selected, 0, byList};
}

} // namespace vorn
