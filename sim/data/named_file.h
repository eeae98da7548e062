// SPDX-License-Identifier: Apache-2.0
// Files that a profile names. A profile may come from a stranger, so its names lead to regular files in the profile's
// own folder and below, through no link, and never to more bytes than the caller expects.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace vorn::sim {

struct NamedFile {
    std::string folder; // trusted; empty: the working directory
    std::string name;   // not trusted: "card.image", "images/card.image"

    std::string path() const; // for people
};

// Says the file and what is wrong with it, printable.
struct FileError : std::runtime_error {
    FileError(const NamedFile& file, const std::string& what);
};

// Both throw FileError.
std::string readFile(const NamedFile& file, std::size_t most);
// The whole file at once or not at all, readable by its owner only: these files hold keys.
void replaceFile(const NamedFile& file, const std::string& text);

} // namespace vorn::sim
