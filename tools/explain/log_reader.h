// SPDX-License-Identifier: Apache-2.0
// Takes the library's log file apart: exchanges with the reader, and the entries of the calls between them. The file
// may come in any pieces and be as long as it likes; what is kept of it is bounded.
#pragma once

#include "sim/data/bytes.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace vorn::tool {

using sim::Bytes;

struct LoggedExchange {
    std::string marker; // "icc_poweron", "capdu"
    Bytes command;      // as it went to the reader
    Bytes answer;       // its payload; empty also when none came
    bool cut = false;   // longer than a reader's frame can be, or the log ends inside
    std::size_t line = 0;

    bool powersOn() const { return marker == "icc_poweron" || marker == "picc_Active"; }
    // What went to the card; empty when the command was the reader's own.
    sim::ByteSpan apdu() const;
};

class LogReader {
public:
    struct Receiver {
        std::function<void(const LoggedExchange&)> exchange;
        std::function<void(const std::string& text, std::size_t line)> text; // without its line end
    };
    explicit LogReader(Receiver receiver) : receiver_(std::move(receiver)) {}

    void add(const char* piece, std::size_t size);
    void end();

    static constexpr std::size_t kLongestLine = 65536;
    static constexpr std::size_t kLongestDump = 4096; // bytes

private:
    enum class State { Text, Command, Answer };
    void keep(std::string_view part);
    void line(std::string_view whole);
    bool mark(std::string_view text);
    bool dump(std::string_view text);
    void deliver();

    Receiver receiver_;
    std::string rest_; // of a piece before: the line's beginning
    std::size_t number_ = 0;
    State state_ = State::Text;
    LoggedExchange exchange_;
};

} // namespace vorn::tool
