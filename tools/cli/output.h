// SPDX-License-Identifier: Apache-2.0
// Standard output is for results alone. The library speaks to it too (over USB, and in the transaction calls), so the
// tool keeps its own way there and gives the library another file in its place.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace vorn::tool {

using Json = nlohmann::ordered_json;

// Call once, before anything is printed.
void keepStandardOutput();
// From now on what the library prints goes to this descriptor.
void divertChatter(int fd);

// Results. Throw Failure when they cannot be written.
void print(const std::string& text);
void printLine(const std::string& text = {});
void printJson(const Json& document);
void printJsonLine(const Json& document); // on one line

// Remarks and progress, to standard error.
void note(const std::string& text);

// Shown in place on a terminal, else not at all.
class Progress {
public:
    Progress();
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void show(const std::string& text);

private:
    bool terminal_;
    bool shown_ = false;
};

} // namespace vorn::tool
