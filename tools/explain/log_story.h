// SPDX-License-Identifier: Apache-2.0
// A log file as a story: each call with its arguments, its exchanges and how it ended. What a few pieces of it brought is
// held in memory at a time, so that a log may be as long as it likes; their calls are told side by side.
#pragma once

#include "tools/explain/item.h"
#include "tools/explain/log_calls.h"

#include <deque>
#include <functional>
#include <future>
#include <string>
#include <vector>

namespace vorn::tool {

class LogStory {
public:
    using Sink = std::function<void(const Item&)>;
    LogStory(bool show, Sink sink, std::launch how = std::launch::async);

    void add(const char* piece, std::size_t size);
    void settle(); // hands on what is being told, before a wait
    void end();

private:
    void tell();
    void handOn();

    static constexpr std::size_t kMostTellers = 8; // pieces under way

    bool show_;
    Sink sink_;
    std::launch how_;
    LogCalls calls_;
    std::vector<LoggedCall> heard_;
    std::deque<std::future<std::vector<Item>>> telling_;
    bool memoryCard_ = false;
};

// The trace file: which calls with which port.
std::vector<Item> explainTraceFile(const std::string& text, bool show);

} // namespace vorn::tool
