// SPDX-License-Identifier: Apache-2.0
// Data objects as trees of explained items. All functions take foreign bytes and end at the first that is not whole.
#pragma once

#include "tools/explain/item.h"
#include "tools/explain/tlv_view.h"

#include <string>

namespace vorn::tool {

Explanation explainObjects(const Bytes& bytes, bool show);
Explanation explainList(const Bytes& bytes); // tags and lengths
// The values that a list asked for, one behind the other.
Explanation explainListed(const Bytes& list, const Bytes& values, bool show);
// One object; a currency for its amount may be known from elsewhere.
Item explainObject(Tag tag, const Bytes& value, bool show, const std::string& currency = {});
// The texts of an ARQC and a TC, and the state between the two transaction calls, all in hex.
Explanation explainCryptogram(bool tc, const Bytes& bytes, bool show);
Explanation explainState(const Bytes& bytes, bool show);

} // namespace vorn::tool
