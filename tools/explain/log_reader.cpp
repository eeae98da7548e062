// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/log_reader.h"

#include <algorithm>

namespace vorn::tool {

namespace {

const std::string kCommandMark = "Indata----------------------";
const std::string kAnswerMark = "Outdata----------------------";

} // namespace

void LogReader::add(const char* piece, std::size_t size)
{
    for (std::size_t at = 0; at < size;) {
        const char* const end = std::find(piece + at, piece + size, '\n');
        const auto count = static_cast<std::size_t>(end - piece) - at;
        const std::size_t room = kLongestLine - rest_.size();
        if (!skipping_) {
            rest_.append(piece + at, std::min(count, room));
        }
        skipping_ = skipping_ || count > room;
        at += count;
        if (at < size) { // the line feed
            line(rest_);
            rest_.clear();
            skipping_ = false;
            ++at;
        }
    }
}

void LogReader::end()
{
    if (!rest_.empty()) {
        line(rest_);
        rest_.clear();
    }
    exchange_.cut = exchange_.cut || state_ == State::Command;
    deliver();
}

// Not all entries end their line, so a mark may stand behind another entry.
bool LogReader::mark(const std::string& text)
{
    const std::size_t answerAt = text.find(kAnswerMark);
    const bool answer = answerAt != std::string::npos;
    const std::size_t at = answer ? answerAt : text.find(kCommandMark);
    if (at == std::string::npos) {
        return false;
    }
    const std::string before = text.substr(0, at);
    if (!answer || state_ != State::Command) {
        deliver();
        exchange_.line = number_;
        exchange_.marker = text.substr(at + (answer ? kAnswerMark : kCommandMark).size(), 32);
        exchange_.marker.erase(std::min(exchange_.marker.find_first_of("\r \t"), exchange_.marker.size()));
    }
    if (!before.empty()) {
        receiver_.text(before, number_);
    }
    state_ = answer ? State::Answer : State::Command;
    return true;
}

void LogReader::line(const std::string& whole)
{
    ++number_;
    const std::string text = whole.substr(0, whole.find_last_not_of('\r') + 1);
    if (mark(text)) {
        return;
    }
    const auto bytes = state_ == State::Text ? std::nullopt : sim::fromHex(text);
    if (bytes) {
        dump(*bytes);
        return;
    }
    deliver();
    if (text.find_first_not_of(" \t") != std::string::npos) {
        receiver_.text(text, number_);
    }
}

void LogReader::dump(const Bytes& bytes)
{
    Bytes& into = state_ == State::Command ? exchange_.command : exchange_.answer;
    const std::size_t room = kLongestDump - into.size();
    exchange_.cut = exchange_.cut || bytes.size() > room;
    into.insert(into.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), room)));
}

void LogReader::deliver()
{
    if (state_ != State::Text) {
        receiver_.exchange(exchange_);
    }
    exchange_ = {};
    state_ = State::Text;
}

} // namespace vorn::tool
