// SPDX-License-Identifier: Apache-2.0
// A profile's text as JSON, within bounds that no profile of a person comes near: what reads the values behind it may
// go down into them and keep a place for each.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>

namespace vorn::sim {

constexpr std::size_t kJsonSizeMax = 1048576;
constexpr int kJsonDepthMax = 64;
constexpr std::size_t kJsonValuesMax = 50000; // lists and objects counted too
constexpr std::size_t kJsonNameMax = 1000;    // bytes of one member's name

// path: where the text came from, for complaints (ProfileError).
nlohmann::json parseJson(const std::string& text, const std::string& path);

} // namespace vorn::sim
