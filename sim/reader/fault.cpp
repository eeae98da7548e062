// SPDX-License-Identifier: Apache-2.0
// The text form of faults: KIND[=VALUE][@N][/OP].
#include "sim/reader/fault.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace vorn::sim {

namespace {

enum class Value { None, Hex, Decimal };

struct KindRow {
    const char* name;
    Fault::Kind kind;
    Value value;
    int least;
    int most;
};

constexpr KindRow kKinds[] = {
    {"status", Fault::Kind::Status, Value::Hex, 0, 0xFF},     {"silence", Fault::Kind::Silence, Value::None, 0, 0},
    {"noise", Fault::Kind::Noise, Value::Decimal, 1, 100000}, {"check", Fault::Kind::WrongCheck, Value::None, 0, 0},
    {"short", Fault::Kind::Short, Value::Decimal, 1, 100000}, {"long", Fault::Kind::Long, Value::Decimal, 1, 100000},
    {"noend", Fault::Kind::NoEnd, Value::None, 0, 0},         {"delay", Fault::Kind::Delay, Value::Decimal, 1, 3600000},
    {"pull", Fault::Kind::Pull, Value::None, 0, 0},
};

// Digits and nothing else, within the bounds.
std::optional<int> number(const std::string& text, int base, int least, int most)
{
    int value = 0;
    const char* end = text.data() + text.size();
    const auto isDigit = [base](unsigned char c) { return base == 16 ? std::isxdigit(c) != 0 : std::isdigit(c) != 0; };
    if (text.empty() || !std::all_of(text.begin(), text.end(), isDigit)) {
        return std::nullopt;
    }
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop != end || value < least || value > most) {
        return std::nullopt;
    }
    return value;
}

// Cuts off what follows the last `mark`; nothing when the mark is not there.
std::optional<std::string> cutTail(std::string& text, char mark)
{
    const std::size_t at = text.rfind(mark);
    if (at == std::string::npos) {
        return std::nullopt;
    }
    std::string tail = text.substr(at + 1);
    text.resize(at);
    return tail;
}

} // namespace

std::vector<std::string> faultKinds()
{
    std::vector<std::string> kinds;
    for (const KindRow& row : kKinds) {
        kinds.push_back(std::string(row.name) + (row.value == Value::None ? "" : "="));
    }
    return kinds;
}

std::optional<Fault> parseFault(const std::string& text)
{
    std::string kind = text;
    const auto operation = cutTail(kind, '/');
    const auto command = cutTail(kind, '@');
    const auto value = cutTail(kind, '=');
    const auto* const row =
        std::find_if(std::begin(kKinds), std::end(kKinds), [&kind](const KindRow& r) { return kind == r.name; });
    if (row == std::end(kKinds) || value.has_value() != (row->value != Value::None)) {
        return std::nullopt;
    }

    Fault fault;
    fault.kind = row->kind;
    if (value) {
        const auto n = number(*value, row->value == Value::Hex ? 16 : 10, row->least, row->most);
        if (!n) {
            return std::nullopt;
        }
        fault.value = *n;
    }
    if (command) {
        const auto n = number(*command, 10, 1, 1000000000);
        if (!n) {
            return std::nullopt;
        }
        fault.command = *n;
    }
    if (operation) {
        const auto n = number(*operation, 16, 0, 0xFF);
        if (!n) {
            return std::nullopt;
        }
        fault.operation = static_cast<std::uint8_t>(*n);
    }
    return fault;
}

} // namespace vorn::sim
