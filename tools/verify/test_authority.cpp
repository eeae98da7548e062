// SPDX-License-Identifier: Apache-2.0
// The public half of the simulated cards' TEST authority, made by scripts/make-test-keys. What it vouches for is worth
// nothing outside a simulation: everybody has the other half.
#include "tools/verify/authorities.h"

namespace vorn::tool::verify {

const char* testAuthorityModulus()
{
    return "CF2CC4A7A8EA4B9414F458F543B4E3291C4CD24DC8B2A228395A66C4B7492867FA211BF0432D9A2014DB40215363D31F"
           "4701C14E3D6E8363917C27B09358B37079A017511046520338FAACBE8536A9291D7C2F2C0001D3C80003665C57C98B63"
           "CCEC12A861916BA6BE499D733D75011AAA47E7EC27CC16359832A429A6CB052D62D708026C7E665A053E0C91F7241B4B";
}

} // namespace vorn::tool::verify
