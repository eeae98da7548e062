// SPDX-License-Identifier: Apache-2.0
// The lettered texts that go between host and library, as explained items.
#pragma once

#include "tools/explain/item.h"

#include <string>

namespace vorn::tool {

Explanation explainRecord(const std::string& text, bool show);          // A to L
Explanation explainTransactions(const std::string& text);               // P to X
Explanation explainTransactionData(const std::string& text, bool show); // what a host gives the transaction calls

} // namespace vorn::tool
