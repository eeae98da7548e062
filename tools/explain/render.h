// SPDX-License-Identifier: Apache-2.0
// Explained items as text and as JSON.
#pragma once

#include "tools/explain/item.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace vorn::tool {

std::string textOf(const Item& item, std::size_t depth = 0);
nlohmann::ordered_json jsonOf(const Item& item);

} // namespace vorn::tool
