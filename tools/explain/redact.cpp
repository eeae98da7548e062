// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/redact.h"

#include "tools/explain/frame_view.h"
#include "tools/explain/hex.h"
#include "tools/explain/mask.h"

#include <algorithm>

namespace vorn::tool {

namespace {

const char* const kCommandMark = "Indata----";
const char* const kAnswerMark = "Outdata----";
constexpr std::size_t kReaderHeader = 3;
constexpr std::size_t kLongestBlock = 65536;
constexpr std::size_t kShortestSecret = 9;

bool dumpLine(const std::string& line)
{
    return line.find_first_not_of("0123456789ABCDEFabcdef \r\n") == std::string::npos;
}

bool blank(char c) { return c == ' ' || c == '\r' || c == '\n'; }

// The hex characters of a dump, and the dump with those hidden that are hidden there: the others stay in their case.
std::string denseOf(const std::string& text)
{
    std::string dense;
    std::copy_if(text.begin(), text.end(), std::back_inserter(dense), [](char c) { return !blank(c); });
    return dense;
}

std::string filled(std::string text, const std::string& dense)
{
    std::size_t at = 0;
    for (char& c : text) {
        if (!blank(c) && at < dense.size()) {
            c = dense[at++] == '*' ? '*' : c;
        }
    }
    return text;
}

// Zeros and blanks may stand anywhere without being anybody's.
bool telling(const std::string& secret)
{
    constexpr std::size_t different = 4;
    return std::set<char>(secret.begin(), secret.end()).size() >= different;
}

std::string maskedCommand(const Bytes& command)
{
    if (command.size() <= kReaderHeader) {
        return toHex(command);
    }
    const Bytes apdu(command.begin() + kReaderHeader, command.end());
    return toHex(Bytes(command.begin(), command.begin() + kReaderHeader)) + commandHex(apdu, false);
}

} // namespace

// ---------------------------------------------------------------- blocks

template <class Use>
void Redaction::flush(Use use)
{
    if (!block_.text.empty()) {
        use(block_);
    }
    block_.text.clear();
}

template <class Use>
void Redaction::feed(const std::string& line, Use use)
{
    ++number_;
    const bool command = line.find(kCommandMark) != std::string::npos;
    const bool answer = line.find(kAnswerMark) != std::string::npos;
    const bool more = block_.dump && dumpLine(line) && block_.text.size() < kLongestBlock;
    if (!more) {
        flush(use);
        block_.line = number_;
    }
    block_.text += line;
    if (command || answer) {
        block_.dump = false;
        flush(use);
        block_.dump = true;
        block_.command = command;
    } else if (!more) {
        block_.dump = false;
        flush(use);
    }
}

// A field of a record may claim more than its line has: the ends of lines are nobody's secret.
std::string Redaction::masked(const Block& block)
{
    std::string text = hidden(block);
    for (std::size_t at = block.text.find_first_of("\r\n"); at < text.size();
         at = block.text.find_first_of("\r\n", at + 1)) {
        text[at] = block.text[at];
    }
    return text;
}

std::string Redaction::hidden(const Block& block)
{
    if (!block.dump) {
        return maskText(block.text);
    }
    const auto bytes = fromHex(block.text);
    if (!bytes) {
        return maskText(block.text);
    }
    if (block.command) {
        command_ = *bytes;
        return filled(block.text, maskedCommand(*bytes));
    }
    return filled(block.text, payloadHex(command_, *bytes, false));
}

// ---------------------------------------------------------------- what is secret

void Redaction::remember(const std::string& clear, const std::string& masked)
{
    std::string was;
    std::string is;
    for (std::size_t at = 0; at < clear.size(); ++at) { // a blank may be hidden, too
        if (!blank(clear[at])) {
            was += clear[at];
            is += masked[at];
        }
    }
    for (std::size_t at = is.find('*'); at < is.size(); at = is.find('*', at)) {
        const std::size_t end = std::min(is.find_first_not_of('*', at), is.size());
        std::string secret = was.substr(at, end - at);
        if (secret.size() >= kShortestSecret && telling(secret) && secrets_.size() < kMostSecrets) {
            secrets_.insert(std::move(secret));
        }
        at = end;
    }
}

void Redaction::learn(const std::string& line)
{
    feed(line, [this](const Block& block) { remember(block.text, masked(block)); });
}

void Redaction::learnEnd()
{
    flush([this](const Block& block) { remember(block.text, masked(block)); });
    number_ = 0;
    block_ = {};
    command_.clear();
}

// ---------------------------------------------------------------- writing

// What was a secret in one place is one in every other.
void Redaction::sweep(std::string& text) const
{
    for (const std::string& secret : secrets_) {
        for (std::size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at)) {
            text.replace(at, secret.size(), secret.size(), '*');
        }
    }
}

std::string Redaction::zeroed(const Block& block)
{
    std::string text = masked(block);
    std::string dense = denseOf(text);
    sweep(dense);
    text = filled(text, dense);
    const bool changed = text.find('*') != std::string::npos && text != block.text;
    if (changed) {
        ++count_;
        constexpr std::size_t most = 100;
        if (changes_.size() < most) {
            changes_.push_back({block.line, block.dump ? (block.command ? "a command" : "an answer") : "an entry"});
        }
        std::replace(text.begin(), text.end(), '*', '0');
    }
    return text;
}

void Redaction::write(const std::string& line, const Write& out)
{
    feed(line, [this, &out](const Block& block) { out(zeroed(block)); });
}

void Redaction::writeEnd(const Write& out)
{
    flush([this, &out](const Block& block) { out(zeroed(block)); });
}

} // namespace vorn::tool
