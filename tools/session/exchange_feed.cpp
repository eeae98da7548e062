// SPDX-License-Identifier: Apache-2.0
#include "tools/session/exchange_feed.h"

#include "tools/explain/hex.h"

#include <array>
#include <chrono>
#include <fstream>
#include <utility>

namespace vorn::tool {

namespace {

const std::string kCommandMark = "Indata----------------------capdu";
const std::string kResponseMark = "Outdata----------------------capdu";
constexpr std::size_t kReaderHeader = 3; // the reader's own bytes before the APDU
constexpr auto kPause = std::chrono::milliseconds(10);

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

} // namespace

void ExchangeParser::add(const std::string& text)
{
    rest_ += text;
    for (auto end = rest_.find('\n'); end != std::string::npos; end = rest_.find('\n')) {
        line(rest_.substr(0, end));
        rest_.erase(0, end + 1);
    }
}

void ExchangeParser::end() { deliver(); }

// Lines of the two dumps are hex or empty. Other lines may stand before a mark in the same line: not all log entries
// end theirs.
void ExchangeParser::line(const std::string& text)
{
    const bool command = contains(text, kCommandMark);
    if (command || contains(text, kResponseMark)) {
        if (command) {
            deliver();
        }
        state_ = command ? State::Command : State::Response;
        return;
    }
    const auto bytes = fromHex(text);
    if (state_ == State::Other) {
        return;
    }
    if (!bytes) {
        deliver();
        return;
    }
    Bytes& into = state_ == State::Command ? exchange_.command : exchange_.response;
    into.insert(into.end(), bytes->begin(), bytes->end());
}

void ExchangeParser::deliver()
{
    if (state_ != State::Other && exchange_.command.size() > kReaderHeader) {
        exchange_.command.erase(exchange_.command.begin(), exchange_.command.begin() + kReaderHeader);
        receiver_(exchange_);
    }
    exchange_ = {};
    state_ = State::Other;
}

ExchangeFeed::ExchangeFeed(std::string log, ExchangeParser::Receiver receiver)
    : log_(std::move(log)), parser_(std::move(receiver))
{
    std::ifstream in(log_, std::ios::binary | std::ios::ate);
    position_ = in ? static_cast<std::streamoff>(in.tellg()) : 0;
    thread_ = std::thread([this] { follow(); });
}

ExchangeFeed::~ExchangeFeed() { stop(); }

void ExchangeFeed::finish()
{
    stop();
    if (failure_) {
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
}

void ExchangeFeed::stop()
{
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

void ExchangeFeed::follow()
{
    try {
        while (!stop_) {
            readMore();
            std::this_thread::sleep_for(kPause);
        }
        readMore();
        parser_.end();
    } catch (...) {
        failure_ = std::current_exception();
    }
}

void ExchangeFeed::readMore()
{
    std::ifstream in(log_, std::ios::binary);
    in.seekg(position_);
    if (!in) {
        return;
    }
    std::array<char, 4096> piece{};
    while (in.read(piece.data(), piece.size()), in.gcount() > 0) {
        position_ += in.gcount();
        parser_.add(std::string(piece.data(), static_cast<std::size_t>(in.gcount())));
    }
}

} // namespace vorn::tool
