// SPDX-License-Identifier: Apache-2.0
// Data objects as trees of explained items. All functions take foreign bytes and end at the first that is not whole.
#pragma once

#include "tools/explain/item.h"
#include "tools/explain/tlv_view.h"

#include <string>

namespace vorn::tool {

Explanation explainObjects(ByteSpan bytes, bool show);
Explanation explainList(ByteSpan bytes); // tags and lengths
// The values that a list asked for, one behind the other.
Explanation explainListed(ByteSpan list, ByteSpan values, bool show);
// One object; a currency for its amount may be known from elsewhere.
Item explainObject(Tag tag, ByteSpan value, bool show, const std::string& currency = {});
// The texts of an ARQC and a TC, and the state between the two transaction calls, all in hex.
Explanation explainCryptogram(bool tc, ByteSpan bytes, bool show);
Explanation explainState(ByteSpan bytes, bool show);

} // namespace vorn::tool
