// SPDX-License-Identifier: Apache-2.0
// Checks of what people write on the command line.
#pragma once

#include "sim/data/bytes.h"

#include <CLI/CLI.hpp>

#include <cstddef>
#include <string>

namespace vorn::tool {

// Whole bytes of hex, blanks and colons between them allowed; at most so many. `exactly`: just so many.
CLI::Validator hexArgument(std::size_t most);
CLI::Validator hexArgumentOf(std::size_t exactly);

// Digits only, at most so many.
CLI::Validator digitsArgument(std::size_t most);

sim::Bytes bytesOfArgument(const std::string& text); // throws Failure

std::string readStandardInput();
// One line; throws Failure when there is none, or when interrupted while waiting.
std::string readLine();

} // namespace vorn::tool
