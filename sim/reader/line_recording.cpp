// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/line_recording.h"

#include "sim/data/digits.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>
#include <utility>

namespace vorn::sim {

namespace {

using std::chrono::microseconds;
using Kind = RecordedLine::Kind;

constexpr char kMagic[] = "vorn recording ";
constexpr char kVersion[] = "1";
constexpr std::size_t kFraction = 6; // digits
constexpr int kMicrosecondsPerSecond = 1'000'000;
constexpr char kUnknownSpeed[] = "?";

enum class Content { Nothing, Bytes, Speed, Number, Text };

struct KindRow {
    const char* word;
    Kind kind;
    Content content;
};

constexpr KindRow kKinds[] = {
    {">", Kind::FromHost, Content::Bytes},
    {"<", Kind::FromReader, Content::Bytes},
    {"x", Kind::Dropped, Content::Bytes},
    {"speed", Kind::Speed, Content::Speed},
    {"gone", Kind::Gone, Content::Nothing},
    {"lost", Kind::Lost, Content::Number},
    {"end", Kind::End, Content::Number},
    {"told", Kind::Told, Content::Text},
    {"redacted", Kind::Redacted, Content::Nothing},
};

std::string firstLine() { return std::string(kMagic) + kVersion; }

std::string speedText(int speed) { return speed < 0 ? kUnknownSpeed : std::to_string(speed); }

// Digits alone, so many at most.
template <class T>
bool number(const std::string& text, std::size_t most, T& value)
{
    return text.size() <= most && isDigits(text) &&
           std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc();
}

bool speedOf(const std::string& text, int& speed)
{
    speed = -1;
    return text == kUnknownSpeed || number(text, 7, speed);
}

// "12.000345"
bool timeOf(const std::string& text, microseconds& at)
{
    const std::size_t point = text.find('.');
    long long seconds = 0;
    long long fraction = 0;
    if (point == std::string::npos || text.size() - point - 1 != kFraction ||
        !number(text.substr(0, point), 9, seconds) || !number(text.substr(point + 1), kFraction, fraction)) {
        return false;
    }
    at = microseconds(seconds * kMicrosecondsPerSecond + fraction);
    return true;
}

std::string cutWord(std::string& text)
{
    const std::size_t end = std::min(text.find(' '), text.size());
    std::string word = text.substr(0, end);
    text.erase(0, end + (end < text.size() ? 1 : 0));
    return word;
}

bool contentOf(Content content, std::string& rest, RecordedLine& line)
{
    switch (content) {
    case Content::Nothing:
        return rest.empty();
    case Content::Speed:
        return speedOf(rest, line.speed);
    case Content::Number:
        return number(rest, 9, line.number);
    case Content::Text:
        line.text = rest;
        return true;
    case Content::Bytes:
        break;
    }
    if (!speedOf(cutWord(rest), line.speed)) {
        return false;
    }
    auto bytes = fromHex(rest);
    if (!bytes || bytes->empty() || bytes->size() > RecordedLine::kBytesMax) {
        return false;
    }
    line.bytes = std::move(*bytes);
    return true;
}

std::optional<RecordedLine> parse(std::string text)
{
    RecordedLine line;
    if (!timeOf(cutWord(text), line.at)) {
        return std::nullopt;
    }
    const std::string word = cutWord(text);
    const auto* const row =
        std::find_if(std::begin(kKinds), std::end(kKinds), [&word](const KindRow& r) { return word == r.word; });
    if (row == std::end(kKinds) || !contentOf(row->content, text, line)) {
        return std::nullopt;
    }
    line.kind = row->kind;
    return line;
}

} // namespace

std::string recordingHead(const std::string& about) { return firstLine() + "\n# " + about + "\n"; }

std::string textOf(const RecordedLine& line)
{
    char time[40];
    std::snprintf(time, sizeof time, "%lld.%06lld", static_cast<long long>(line.at.count() / kMicrosecondsPerSecond),
                  static_cast<long long>(line.at.count() % kMicrosecondsPerSecond));
    const auto* const row =
        std::find_if(std::begin(kKinds), std::end(kKinds), [&line](const KindRow& r) { return line.kind == r.kind; });
    const std::string head = std::string(time) + " " + row->word;
    switch (row->content) {
    case Content::Nothing:
        return head + "\n";
    case Content::Bytes:
        return head + " " + speedText(line.speed) + " " + toHex(line.bytes) + "\n";
    case Content::Speed:
        return head + " " + speedText(line.speed) + "\n";
    case Content::Number:
        return head + " " + std::to_string(line.number) + "\n";
    case Content::Text:
        return head + " " + line.text + "\n";
    }
    return head + "\n";
}

bool looksLikeRecording(const std::string& text) { return text.compare(0, sizeof kMagic - 1, kMagic) == 0; }

void RecordingReader::add(const char* piece, std::size_t size)
{
    for (std::size_t at = 0; at < size;) {
        const char* const end = std::find(piece + at, piece + size, '\n');
        const auto count = static_cast<std::size_t>(end - piece) - at;
        const std::size_t room = kLongestLine - rest_.size();
        rest_.append(piece + at, std::min(count, room));
        skipping_ = skipping_ || count > room;
        at += count;
        if (at < size) { // the line feed
            line();
            ++at;
        }
    }
}

void RecordingReader::end()
{
    if (!rest_.empty()) {
        line();
    }
}

void RecordingReader::line()
{
    ++number_;
    rest_.erase(rest_.find_last_not_of('\r') + 1);
    const bool tooLong = std::exchange(skipping_, false);
    if (tooLong || !understood()) {
        firstBad_ = badLines_++ == 0 ? number_ : firstBad_;
    }
    rest_.clear();
}

bool RecordingReader::understood()
{
    if (rest_.empty() || rest_[0] == '#') {
        return true;
    }
    if (looksLikeRecording(rest_)) {
        otherVersion_ = otherVersion_ || rest_ != firstLine();
        base_ = last_;
        return rest_ == firstLine();
    }
    auto line = parse(std::move(rest_));
    if (!line) {
        return false;
    }
    last_ = std::max(last_, base_ + line->at);
    line->at = last_;
    receiver_(*line);
    return true;
}

std::string RecordingReader::problem() const
{
    if (otherVersion_) {
        return std::string("a recording of another version than ") + kVersion + ", which this tool writes";
    }
    return badLines_ == 0 ? ""
                          : "line " + std::to_string(firstBad_) + " is no line of a recording" +
                                (badLines_ > 1 ? ", nor are " + std::to_string(badLines_ - 1) + " more" : "");
}

Recording readRecording(const std::string& text)
{
    Recording recording;
    RecordingReader reader([&recording](const RecordedLine& line) { recording.lines.push_back(line); });
    reader.add(text.data(), text.size());
    reader.end();
    recording.problem = reader.problem();
    return recording;
}

} // namespace vorn::sim
