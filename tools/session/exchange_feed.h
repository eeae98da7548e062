// SPDX-License-Identifier: Apache-2.0
// What the library and the card say to each other while a call runs. The calls tell nothing but their result; the
// library's log file has every exchange, with any reader.
#pragma once

#include "sim/data/bytes.h"

#include <atomic>
#include <exception>
#include <functional>
#include <ios>
#include <string>
#include <thread>

namespace vorn::tool {

using sim::Bytes;

struct CardExchange {
    Bytes command; // the APDU
    Bytes response;
};

// Finds the exchanges in a log that is still being written, in any cut.
class ExchangeParser {
public:
    using Receiver = std::function<void(const CardExchange&)>;
    explicit ExchangeParser(Receiver receiver) : receiver_(std::move(receiver)) {}

    void add(const std::string& text);
    void end(); // the last exchange is only known to be whole when nothing follows

private:
    enum class State { Other, Command, Response };
    void line(const std::string& text);
    void deliver();

    Receiver receiver_;
    std::string rest_;
    State state_ = State::Other;
    CardExchange exchange_;
};

// Follows the log from its present end, on a thread of its own; the receiver is called from there. What the receiver
// throws comes out of finish.
class ExchangeFeed {
public:
    ExchangeFeed(std::string log, ExchangeParser::Receiver receiver);
    ~ExchangeFeed();
    void finish(); // all that was written by now has been received
    ExchangeFeed(const ExchangeFeed&) = delete;
    ExchangeFeed& operator=(const ExchangeFeed&) = delete;

private:
    void follow();
    void readMore();
    void stop();

    std::string log_;
    std::streamoff position_ = 0;
    ExchangeParser parser_;
    std::exception_ptr failure_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

} // namespace vorn::tool
