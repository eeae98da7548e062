// SPDX-License-Identifier: Apache-2.0
// A memory card's image: a line of hex for each block, remarks behind #. What could not be read has a remark before it.
#pragma once

#include "sim/data/bytes.h"

#include <optional>
#include <string>
#include <vector>

namespace vorn::tool {

using ImageBlocks = std::vector<std::optional<sim::Bytes>>; // none: not known

// Throws Failure: not readable, no image, or neither 5, 16 nor 40 sectors.
ImageBlocks loadImageFile(const std::string& path);

// A file of its user's own, since the keys are in it. One that is there is replaced only when that is meant.
void saveImageFile(const std::string& path, const ImageBlocks& blocks, bool replace);

// Keys of six bytes in hex, one a line. Throws Failure.
std::vector<std::string> loadKeyFile(const std::string& path);

} // namespace vorn::tool
