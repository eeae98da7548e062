// SPDX-License-Identifier: Apache-2.0
// Standard output is for results alone, standard error for remarks. What the library prints of its own (over USB, and
// in the transaction calls) goes to a file beside its logs.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace vorn::tool {

class Failure;
using Json = nlohmann::ordered_json;

// Call once, before anything is printed.
void keepStandardOutput();

// Results. Throw Failure when they cannot be written.
void print(std::string_view text);
void printLine(const std::string& text = {});
// A document's text, on one line where indent is -1. What is no UTF-8 in it (a file's name) is replaced.
std::string jsonText(const Json& document, int indent = 2);
void printJson(const Json& document);
bool documentPrinted(); // a result that is not one line of several: no second document may follow it
void printJsonLine(const Json& document); // on one line
// A document that is the result, and what kept it from being whole; the failure is told by it then.
void printResult(Json& document, std::optional<Failure>& failure);

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
