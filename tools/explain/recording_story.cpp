// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/recording_story.h"

#include "tools/explain/frame_view.h"
#include "tools/explain/hex.h"
#include "tools/explain/present.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace vorn::tool {

namespace {

using sim::LineUnit;
using Kind = sim::RecordedLine::Kind;
using std::chrono::microseconds;

enum Operation : std::uint8_t { kPowerOn = 0x22, kActivate = 0x24, kApdu = 0x26 };
constexpr std::size_t kApduAt = 3;    // behind 32 26 and the slot
constexpr std::size_t kPayloadAt = 2; // of an answer, behind 32 and the status

std::string seconds(microseconds time)
{
    char text[40];
    std::snprintf(text, sizeof text, "%lld.%06lld s", static_cast<long long>(time.count() / 1000000),
                  static_cast<long long>(time.count() % 1000000));
    return text;
}

// As people speak of pauses.
std::string pause(microseconds time)
{
    char text[40];
    const double value = static_cast<double>(time.count());
    if (time < std::chrono::seconds(1)) {
        std::snprintf(text, sizeof text, "%.1f ms", value / 1000);
    } else {
        std::snprintf(text, sizeof text, "%.2f s", value / 1000000);
    }
    return text;
}

std::string count(std::size_t number, const char* thing)
{
    return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

bool isOperation(const Bytes& command, Operation operation) { return command.size() > 1 && command[1] == operation; }

std::uint8_t statusOfReader(const Bytes& answer) { return answer.size() < kPayloadAt ? 0xFF : answer[1]; }

Bytes payloadOf(const Bytes& answer)
{
    return {answer.begin() + static_cast<std::ptrdiff_t>(std::min(kPayloadAt, answer.size())), answer.end()};
}

// No card is nothing that went wrong.
bool refusal(std::uint8_t status) { return status != 0x00 && status != 0x02 && status != 0x06; }

// The reader's answer in its frame, as it is explained anywhere; blocks of memory cards are their holder's.
Item readersAnswer(const Bytes& command, const Bytes& answer, bool show)
{
    const Explanation explained = explainFrame(sim::encodeFrame(answer), show);
    Item item = explained.items.empty() ? object("", "Answer of the reader", toHex(answer)) : explained.items.front();
    item.failed = false;
    if (answer.size() > kPayloadAt) {
        item.hex = toHex(ByteSpan(answer).first(kPayloadAt)) + payloadHex(command, payloadOf(answer), show);
        item.below.clear();
    }
    return item;
}

} // namespace

RecordingStory::RecordingStory(bool show, Sink sink, CryptogramChecks checks)
    : show_(show),
      sink_(std::move(sink)),
      reader_([this](const sim::RecordedLine& one) { line(one); }),
      view_(show),
      checks_(std::move(checks))
{}

void RecordingStory::end()
{
    reader_.end();
    giveUp(last_);
    std::vector<LineUnit> units;
    host_.end(units);
    for (const LineUnit& unit : units) {
        stray(unit.raw, "from the host");
    }
    finish(last_);
}

void RecordingStory::line(const sim::RecordedLine& line)
{
    last_ = line.at;
    switch (line.kind) {
    case Kind::FromHost:
        hostBytes(line);
        break;
    case Kind::FromReader:
        readerBytes(line);
        break;
    default:
        event(line);
    }
}

void RecordingStory::hostBytes(const sim::RecordedLine& line)
{
    for (const std::uint8_t byte : line.bytes) {
        std::vector<LineUnit> units;
        host_.add(byte, units);
        for (LineUnit& unit : units) {
            fromHost(std::move(unit), line.at);
        }
    }
    hostAt_ = line.at;
}

void RecordingStory::readerBytes(const sim::RecordedLine& line)
{
    if (pending_ && !pending_->answeredAt) {
        pending_->answeredAt = line.at;
    }
    for (const std::uint8_t byte : line.bytes) {
        std::vector<LineUnit> units;
        answers_.add(byte, units);
        for (const LineUnit& unit : units) {
            fromReader(unit, line.at);
        }
    }
}

// ---------------------------------------------------------------- what the host sends

void RecordingStory::fromHost(LineUnit&& unit, Time at)
{
    if (unit.kind == LineUnit::Kind::Other) {
        use(at);
        stray(unit.raw, "from the host");
        return;
    }
    giveUp(at);
    if (unit.kind == LineUnit::Kind::Sequence && !unit.isSequence(sim::kAskVersion)) {
        sequence(unit, at);
        return;
    }
    use(at);
    pending_ = Pending{std::move(unit), at, std::nullopt, {}};
}

void RecordingStory::sequence(const LineUnit& unit, Time at)
{
    if (unit.isSequence(sim::kSwitchFast)) {
        finish(at);
        use(at);
        attach(remark("the reader is switched to 38400 baud (ESC $ I 2)"));
    } else if (unit.isSequence(sim::kSwitchSlow)) {
        use(at);
        attach(remark("the reader is switched back to 9600 baud (ESC $ I 4)"));
    } else {
        use(at);
        attach(remark("the reader is put to rest (ESC $ B ESC % A)"));
        closed_ = true;
        finish(at);
    }
}

// ---------------------------------------------------------------- what the reader sends

void RecordingStory::fromReader(const LineUnit& unit, Time at)
{
    if (unit.kind == LineUnit::Kind::Other) {
        if (pending_ && pending_->before.size() < kMostBytes) {
            pending_->before.insert(pending_->before.end(), unit.raw.begin(), unit.raw.end());
        } else if (!pending_) {
            use(at);
            stray(unit.raw, "from the reader");
        }
        return;
    }
    if (pending_) {
        complete(unit, at);
        return;
    }
    use(at);
    attach(remark("an answer that nobody was waiting for: " +
                      hexText(unit.content.empty() ? unit.raw : unit.content, show_),
                  true));
}

// ---------------------------------------------------------------- exchanges

std::string RecordingStory::timesOf(const Pending& pending, Time whole) const
{
    const std::string sent = "sent at " + seconds(pending.at);
    if (!pending.answeredAt) {
        return sent;
    }
    const std::string first = pause(*pending.answeredAt - pending.at);
    const std::string last = pause(whole - pending.at);
    return sent + ", answered after " + first + (first == last ? "" : ", whole after " + last);
}

Item RecordingStory::slotExchange(const Bytes& command, const Bytes& answer) const
{
    Item item;
    item.kind = ItemKind::Exchange;
    const Item asked = explainReaderCommand(command, show_);
    item.name = asked.words;
    item.below.push_back(asked);
    Item answered = readersAnswer(command, answer, show_);
    item.words = answered.words;
    const bool power = isOperation(command, kPowerOn) || isOperation(command, kActivate);
    if (power && statusOfReader(answer) == 0x00) {
        answered = explainReset(payloadOf(answer), show_);
    }
    item.below.push_back(std::move(answered));
    return item;
}

Item RecordingStory::exchange(const Bytes& command, const Bytes& answer)
{
    const std::uint8_t status = statusOfReader(answer);
    const bool apdu = isOperation(command, kApdu) && command.size() > kApduAt;
    if ((isOperation(command, kPowerOn) || isOperation(command, kActivate)) && status == 0x00) {
        view_.powerOn();
        checks_.powerOn();
    }
    if (!apdu) {
        return slotExchange(command, answer);
    }
    const Bytes sent(command.begin() + kApduAt, command.end());
    Item item = view_.exchange(sent, status == 0x00 ? payloadOf(answer) : Bytes());
    item.title = command[2] >= 0x10 && command[2] <= 0x13 ? slotName(command[2]) : "";
    if (status != 0x00) {
        Item answered = readersAnswer(command, answer, show_);
        item.words = answered.words;
        item.below.back() = std::move(answered);
    }
    const std::string checked = status == 0x00 ? checks_.exchange(sent, payloadOf(answer)) : "";
    if (checks_.hasKeys() && !checked.empty()) {
        item.below.push_back(remark(checked));
    }
    return item;
}

// An exchange that did not come to a whole answer.
Item RecordingStory::broken(std::string words) const
{
    const LineUnit& sent = pending_->sent;
    Item item;
    item.kind = ItemKind::Exchange;
    item.failed = true;
    item.words = std::move(words);
    item.name =
        sent.kind == LineUnit::Kind::Sequence ? "the reader's version" : "a frame that is wrong: " + sent.problem;
    if (sent.kind == LineUnit::Kind::Frame) {
        item.below.push_back(explainReaderCommand(sent.content, show_));
        item.name = item.below.back().words;
    }
    return item;
}

void RecordingStory::complete(const LineUnit& answer, Time at)
{
    const Bytes& command = pending_->sent.content;
    const bool whole = answer.kind == LineUnit::Kind::Frame;
    Item item;
    if (whole && pending_->sent.kind == LineUnit::Kind::Frame) {
        item = exchange(command, answer.content);
        item.failed = refusal(statusOfReader(answer.content));
    } else {
        item = broken(whole ? readersAnswer(command, answer.content, show_).words
                            : "the answer is damaged: " + answer.problem);
    }
    if (!pending_->before.empty()) {
        item.below.push_back(remark(count(pending_->before.size(), "byte") + " before the answer", true));
    }
    attachExchange(std::move(item), at);
}

void RecordingStory::attachExchange(Item item, Time whole)
{
    item.number = ++number_;
    ++exchanges_;
    failures_ += item.failed ? 1 : 0;
    item.below.insert(item.below.begin(), object("", "Time", "", timesOf(*pending_, whole)));
    pending_.reset();
    attach(std::move(item));
}

// Nothing more is coming for what was sent.
void RecordingStory::giveUp(Time at)
{
    std::vector<LineUnit> begun;
    answers_.end(begun);
    for (const LineUnit& unit : begun) {
        fromReader(unit, last_);
    }
    if (!pending_) {
        return;
    }
    if (pending_->sent.kind == LineUnit::Kind::Sequence) {
        version(at);
        return;
    }
    Item item = broken("no answer in " + pause(at - pending_->at));
    if (!pending_->before.empty()) {
        item.below.push_back(remark(count(pending_->before.size(), "byte") + " came that are no frame", true));
    }
    attachExchange(std::move(item), at);
}

void RecordingStory::version(Time at)
{
    Item item;
    item.kind = ItemKind::Exchange;
    item.name = "the reader's version";
    const Bytes& text = pending_->before;
    item.failed = text.empty();
    item.words = text.empty() ? "no answer in " + pause(at - pending_->at)
                              : printable(maskedUnless(show_, std::string(text.begin(), text.end())));
    attachExchange(std::move(item), pending_->answeredAt.value_or(at));
}

// ---------------------------------------------------------------- what else happened

void RecordingStory::stray(const Bytes& bytes, const char* whose)
{
    if (strayFrom_ != whose) {
        flushStray();
    }
    strayFrom_ = whose;
    if (stray_.size() < kMostBytes) {
        stray_.insert(stray_.end(), bytes.begin(), bytes.end());
    }
}

void RecordingStory::flushStray()
{
    const Bytes bytes = std::exchange(stray_, {});
    if (!bytes.empty()) {
        attach(
            remark(count(bytes.size(), "byte") + " " + strayFrom_ + " outside of any frame: " + hexText(bytes, show_)));
    }
}

void RecordingStory::event(const sim::RecordedLine& line)
{
    switch (line.kind) {
    case Kind::Speed:
        use(line.at);
        attach(remark("the host's line is at " +
                      (line.speed < 0 ? "an unknown speed" : std::to_string(line.speed) + " baud") + ", " +
                      pause(line.at - hostAt_) + " behind its last bytes"));
        break;
    case Kind::Dropped:
        use(line.at);
        attach(remark("the host threw away unread: " + hexText(line.bytes, show_)));
        break;
    case Kind::Gone:
        use(line.at);
        attach(remark("the reader's port went away, at " + seconds(line.at), true));
        break;
    case Kind::Lost:
        use(line.at);
        attach(remark(count(line.number, "line") + " of the recording could not be written", true));
        break;
    case Kind::Told:
        use(line.at);
        attach(remark("before the copy was made: " + printable(maskedUnless(show_, line.text))));
        break;
    case Kind::Redacted:
        checks_ = {}; // over zeros no cryptogram is right
        sink_(remark("A copy for others: zeros stand for what was secret."));
        break;
    case Kind::End:
        giveUp(line.at);
        finish(line.at);
        sink_(remark("The recording ended at " + seconds(line.at) + ", the host with code " +
                     std::to_string(line.number) + "."));
        break;
    default:
        break;
    }
}

// ---------------------------------------------------------------- one use of the line

void RecordingStory::use(Time at)
{
    if (!open_) {
        open_ = true;
        use_ = Item();
        use_.kind = ItemKind::Call;
        use_.name = "The line in use";
        use_.title = "from " + seconds(at);
        usedFrom_ = at;
    }
}

void RecordingStory::attach(Item item)
{
    use(last_);
    if (!stray_.empty()) {
        flushStray();
    }
    if (use_.below.size() < kMostItems) {
        use_.below.push_back(std::move(item));
    } else {
        ++left_;
    }
}

void RecordingStory::finish(Time at)
{
    if (!open_) {
        return;
    }
    flushStray();
    if (left_ > 0) {
        use_.below.push_back(remark(std::to_string(left_) + " more are not shown"));
    }
    use_.failed = failures_ > 0;
    use_.words = count(exchanges_, "exchange") + " in " + pause(at - usedFrom_) +
                 (failures_ > 0 ? ", " + std::to_string(failures_) + " went wrong" : "") +
                 (closed_ ? "" : "; the reader was not put to rest");
    sink_(use_);
    open_ = closed_ = false;
    exchanges_ = failures_ = left_ = 0;
}

} // namespace vorn::tool
