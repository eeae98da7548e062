// SPDX-License-Identifier: Apache-2.0
// Foreign text for people's eyes. Every message of the simulator goes through it: names of files, members of profiles
// and what stands in them come from strangers, and a terminal obeys what it is sent.
#pragma once

#include <cstddef>
#include <string>

namespace vorn::sim {

// The UTF-8 text with <U+202E> for each character that a terminal obeys or that is not seen (controls, marks of
// direction, characters without width) and <FF> for each byte that is no UTF-8. Behind `most` characters it is cut
// and ends in "...". What is printable already stays as it is.
std::string printable(const std::string& text, std::size_t most = std::string::npos);

} // namespace vorn::sim
