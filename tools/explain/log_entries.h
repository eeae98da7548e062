// SPDX-License-Identifier: Apache-2.0
// The entries that the calls write between the exchanges. Not all of them end their line.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace vorn::tool {

enum class EntryKind { Call, Result, Failure, Other };

struct LogEntry {
    EntryKind kind = EntryKind::Other;
    std::string name; // of the call, or of what results: "pszARQC"
    std::string text; // what stands behind the name
};

std::vector<LogEntry> entriesOf(const std::string& line);

// "nPortNo:ttyS1,extendPort:,..." in the order of the text.
std::vector<std::pair<std::string, std::string>> argumentsOf(const std::string& text);

// Whether a text holds entries of the service log, or is the trace file.
bool looksLikeServiceLog(const std::string& text);
bool looksLikeTraceFile(const std::string& text);

} // namespace vorn::tool
