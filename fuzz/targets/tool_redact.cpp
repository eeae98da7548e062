// SPDX-License-Identifier: Apache-2.0
// A log copied for others: nothing moves, nothing becomes anything but a zero, and an account number in an entry is gone.
#include "support/tool_output.h"
#include "tools/explain/redact.h"

#include <string>
#include <vector>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        lines.push_back(text.substr(at, end - at));
        at = end;
    }
    return lines;
}

std::string redacted(const std::string& log)
{
    const std::vector<std::string> lines = linesOf(log);
    tool::Redaction redaction;
    for (const std::string& line : lines) {
        redaction.learn(line);
    }
    redaction.learnEnd();
    std::string copy;
    const auto write = [&copy](const std::string& text) { copy += text; };
    for (const std::string& line : lines) {
        redaction.write(line, write);
    }
    redaction.writeEnd(write);
    return copy;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::string number = accountNumber(input.take(12));
    const std::string entry = "\nthe card " + number + " was read\n";
    const std::string log = stringOf(input.rest()) + entry;

    const std::string copy = redacted(log);
    require(copy.size() == log.size(), "a copy changes no length");
    for (std::size_t i = 0; i < log.size(); ++i) {
        require(copy[i] == log[i] || copy[i] == '0', "a copy changes nothing but to zeros");
        require(copy[i] == log[i] || (log[i] != '\n' && log[i] != '\r'), "lines end where they ended");
    }
    require(copy.find(number, copy.size() - entry.size()) == std::string::npos, "an account number is gone");
    return 0;
}
