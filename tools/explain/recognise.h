// SPDX-License-Identifier: Apache-2.0
// What a pasted text is, and its explanation. All of it takes foreign text.
#pragma once

#include "tools/explain/item.h"

#include <optional>
#include <string>

namespace vorn::tool {

enum class InputKind {
    Unknown,
    Log,
    Trace,
    Recording, // of the line
    Frame,
    ReaderCommand,
    Command,
    Exchange, // commands, each followed by its response
    Response,
    Status,
    Objects,
    List,
    AnswerToReset,
    Record,
    Transactions,
    Arqc,
    Tc,
    State
};

// "log", "apdu", ...: as a person names a kind; nothing for a name that is none.
std::optional<InputKind> kindOf(const std::string& name);
std::string kindNames(const char* between = ", "); // all of them

InputKind recognise(const std::string& text);
// Not of logs and recordings, which are told piece by piece (log_story.h, recording_story.h).
Explanation explain(InputKind kind, const std::string& text, bool show);

} // namespace vorn::tool
