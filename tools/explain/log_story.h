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

// What is left to be done with a told call, when it is its turn.
using InOrder = std::function<void()>;

class LogStory {
public:
    // Called with each told call, for several of them at a time.
    using Receiver = std::function<InOrder(Item)>;
    // Where the system has no thread left, a call is told when it is its turn.
    LogStory(bool show, Receiver receiver, std::launch how = std::launch::async | std::launch::deferred);

    void add(const char* piece, std::size_t size);
    void settle(); // ends what is under way, before a wait
    void end();

private:
    void tell();
    void finishFirst();

    bool show_;
    Receiver receiver_;
    std::launch how_;
    std::size_t atATime_; // pieces under way
    LogCalls calls_;
    std::vector<LoggedCall> heard_;
    std::deque<std::future<std::vector<InOrder>>> telling_;
    bool memoryCard_ = false;
};

// The trace file: which calls with which port.
std::vector<Item> explainTraceFile(const std::string& text, bool show);

} // namespace vorn::tool
