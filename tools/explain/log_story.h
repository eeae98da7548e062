// SPDX-License-Identifier: Apache-2.0
// A log file as a story: each call with its arguments, its exchanges and how it ended. One call is held in memory at a
// time, so that a log may be as long as it likes.
#pragma once

#include "tools/explain/apdu_view.h"
#include "tools/explain/item.h"
#include "tools/explain/log_entries.h"
#include "tools/explain/log_reader.h"

#include <functional>
#include <string>
#include <vector>

namespace vorn::tool {

class LogStory {
public:
    using Sink = std::function<void(const Item&)>;
    LogStory(bool show, Sink sink);

    void add(const char* piece, std::size_t size) { reader_.add(piece, size); }
    void end();

    std::size_t exchanges() const { return number_; }

    static constexpr std::size_t kMostExchanges = 2000; // of one call; more are counted only

private:
    struct Sent {
        Bytes apdu, answer;
        bool power = false;    // power on: no APDU
        std::size_t place = 0; // among the call's items
    };

    void exchange(const LoggedExchange& logged);
    void text(const std::string& line);
    void entry(const LogEntry& entry);
    void begin(const LogEntry& entry);
    void result(const LogEntry& entry);
    void exit(const LogEntry& entry);
    void finish();
    void judge();
    std::string causeOf(const Sent& sent) const;
    const Sent* failing() const;
    bool harmless(std::size_t index) const;
    void attach(Item item);
    Item cardExchange(const LoggedExchange& logged, Sent& sent);
    Item slotExchange(const LoggedExchange& logged, Sent& sent);

    bool show_;
    Sink sink_;
    LogReader reader_;
    ExchangeView view_;
    std::size_t number_ = 0;
    bool open_ = false; // a call is under way
    Item call_;
    std::vector<Sent> sent_;
    std::size_t left_ = 0; // exchanges that were not kept
    bool succeeded_ = false;
    std::string failure_;
    bool memoryCard_ = false;
};

// The trace file: which calls with which port.
std::vector<Item> explainTraceFile(const std::string& text, bool show);

} // namespace vorn::tool
