// SPDX-License-Identifier: Apache-2.0
// Takes a log file apart into calls. Each can be told without the others: what was learnt of its card before goes along.
#pragma once

#include "tools/explain/apdu_view.h"
#include "tools/explain/log_entries.h"
#include "tools/explain/log_reader.h"

#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace vorn::tool {

struct LoggedCall {
    explicit LoggedCall(const ExchangeView& before, std::size_t number) : view(before), first(number) {}

    ExchangeView view;     // what was learnt before it
    std::size_t first = 1; // number of its first exchange
    std::size_t left = 0;  // exchanges that are not kept
    // In the log's order; the call's own entry comes first, unless the log has none.
    std::vector<std::variant<LogEntry, LoggedExchange>> parts;
};

class LogCalls {
public:
    using Sink = std::function<void(LoggedCall)>;
    LogCalls(bool show, Sink sink);

    void add(const char* piece, std::size_t size) { reader_.add(piece, size); }
    void end();

    static constexpr std::size_t kMostExchanges = 2000; // of one call; more are counted only

private:
    void exchange(const LoggedExchange& logged);
    void text(const std::string& line);
    void finish();

    Sink sink_;
    LogReader reader_;
    ExchangeView view_;
    LoggedCall call_;
    std::size_t exchanges_ = 0; // of the call
    std::size_t number_ = 0;    // of the last exchange
};

} // namespace vorn::tool
