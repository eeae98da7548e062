// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/log_reader.h"

#include <algorithm>

namespace vorn::tool {

namespace {

constexpr std::string_view kCommandMark = "Indata----------------------";
constexpr std::string_view kAnswerMark = "Outdata----------------------";
constexpr std::size_t kLongestMarker = 32;
constexpr std::size_t kReaderHeader = 3; // the reader's own bytes before an APDU

} // namespace

sim::ByteSpan LoggedExchange::apdu() const
{
    const bool toCard = marker.find("capdu") != std::string::npos && command.size() > kReaderHeader;
    return toCard ? sim::ByteSpan(command).from(kReaderHeader) : sim::ByteSpan();
}

void LogReader::add(const char* piece, std::size_t size)
{
    std::string_view left(piece, size);
    for (std::size_t end = left.find('\n'); end != std::string_view::npos; end = left.find('\n')) {
        if (rest_.empty()) {
            line(left.substr(0, std::min(end, kLongestLine)));
        } else {
            keep(left.substr(0, end));
            line(rest_);
            rest_.clear();
        }
        left.remove_prefix(end + 1);
    }
    keep(left);
}

// Of a line that is too long its beginning.
void LogReader::keep(std::string_view part) { rest_.append(part.substr(0, kLongestLine - rest_.size())); }

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
bool LogReader::mark(std::string_view text)
{
    const std::size_t answerAt = text.find(kAnswerMark);
    const bool answer = answerAt != std::string_view::npos;
    const std::size_t at = answer ? answerAt : text.find(kCommandMark);
    if (at == std::string_view::npos) {
        return false;
    }
    if (!answer || state_ != State::Command) {
        deliver();
        const std::string_view marker = text.substr(at + (answer ? kAnswerMark : kCommandMark).size(), kLongestMarker);
        exchange_.line = number_;
        exchange_.marker = marker.substr(0, marker.find_first_of("\r \t"));
    }
    if (at > 0) {
        receiver_.text(std::string(text.substr(0, at)), number_);
    }
    state_ = answer ? State::Answer : State::Command;
    return true;
}

void LogReader::line(std::string_view whole)
{
    ++number_;
    const std::string_view text = whole.substr(0, whole.find_last_not_of('\r') + 1);
    if ((state_ != State::Text && dump(text)) || mark(text)) {
        return;
    }
    deliver();
    if (text.find_first_not_of(" \t") != std::string_view::npos) {
        receiver_.text(std::string(text), number_);
    }
}

bool LogReader::dump(std::string_view text)
{
    Bytes& into = state_ == State::Command ? exchange_.command : exchange_.answer;
    if (!sim::appendFromHex(into, text)) {
        return false;
    }
    exchange_.cut = exchange_.cut || into.size() > kLongestDump;
    into.resize(std::min(into.size(), kLongestDump));
    return true;
}

void LogReader::deliver()
{
    if (state_ != State::Text) {
        receiver_.exchange(exchange_);
    }
    exchange_.marker.clear();
    exchange_.command.clear();
    exchange_.answer.clear();
    exchange_.cut = false;
    exchange_.line = 0;
    state_ = State::Text;
}

} // namespace vorn::tool
