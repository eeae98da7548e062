// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/arguments.h"

#include "sim/data/digits.h"
#include "tools/cli/errors.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/quote.h"
#include "tools/explain/hex.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

namespace vorn::tool {

namespace {

std::optional<sim::Bytes> bytesOf(std::string text)
{
    text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == ':' || c == ' ' || c == '-'; }),
               text.end());
    return fromHex(text);
}

// Nothing at the end of the input. Interrupted: throws.
std::optional<char> readCharacter()
{
    for (;;) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (::poll(&input, 1, -1) < 0 && errno == EINTR) {
            throwIfInterrupted();
        } else {
            break;
        }
    }
    char c = 0;
    return ::read(STDIN_FILENO, &c, 1) == 1 ? std::optional(c) : std::nullopt;
}

} // namespace

CLI::Validator hexArgument(std::size_t most)
{
    return CLI::Validator(
        [most](std::string& text) -> std::string {
            const auto bytes = bytesOf(text);
            if (!bytes) {
                return inQuotes(text) + " is not hex, two digits a byte";
            }
            if (bytes->size() > most) {
                return "at most " + std::to_string(most) + " bytes";
            }
            text = toHex(*bytes);
            return {};
        },
        "HEX");
}

CLI::Validator hexArgumentOf(std::size_t exactly)
{
    return CLI::Validator(
        [exactly](std::string& text) -> std::string {
            const auto bytes = bytesOf(text);
            if (!bytes || bytes->size() != exactly) {
                return std::to_string(exactly) + " bytes of hex are expected";
            }
            text = toHex(*bytes);
            return {};
        },
        "HEX");
}

CLI::Validator digitsArgument(std::size_t most)
{
    return CLI::Validator(
        [most](const std::string& text) -> std::string {
            if (text.size() > most || !sim::isDigits(text)) {
                return "1 to " + std::to_string(most) + " digits are expected";
            }
            return {};
        },
        "DIGITS");
}

sim::Bytes bytesOfArgument(const std::string& text)
{
    const auto bytes = bytesOf(text);
    if (!bytes) {
        throw Failure(Exit::Usage, inQuotes(text) + " is not hex, two digits a byte");
    }
    return *bytes;
}

std::string readStandardInput()
{
    std::string text;
    while (const auto c = readCharacter()) {
        text += *c;
    }
    return text;
}

std::string readLine()
{
    std::string text;
    for (auto c = readCharacter(); c; c = readCharacter()) {
        if (*c == '\n' && !text.empty()) {
            return text;
        }
        if (*c != '\n' && *c != '\r') {
            text += *c;
        }
    }
    if (text.empty()) {
        throw Failure(Exit::DataMissing, "nothing came on standard input");
    }
    return text;
}

} // namespace vorn::tool
