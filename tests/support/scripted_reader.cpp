// SPDX-License-Identifier: Apache-2.0
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace vorn::test {
namespace {

constexpr std::uint8_t kStx = 0x02;
constexpr std::uint8_t kEtx = 0x03;
constexpr int kWorkingSpeed = 38400;

void appendNibbles(Bytes& text, std::uint8_t byte)
{
    text.push_back(static_cast<std::uint8_t>(0x30 + (byte >> 4)));
    text.push_back(static_cast<std::uint8_t>(0x30 + (byte & 0x0F)));
}

// The content of a frame, or nothing and the reason.
bool decodeFrame(const Bytes& text, Bytes& content, std::string& reason)
{
    Bytes bytes;
    for (std::size_t i = 1; i + 2 < text.size(); i += 2) {
        if ((text[i] & 0xF0) != 0x30 || (text[i + 1] & 0xF0) != 0x30) {
            reason = "a character outside 30..3F";
            return false;
        }
        bytes.push_back(static_cast<std::uint8_t>(((text[i] & 0x0F) << 4) | (text[i + 1] & 0x0F)));
    }
    if (text.size() % 2 != 0 || bytes.size() < 3 || bytes.size() - 3 != std::size_t{bytes[0]} * 256 + bytes[1]) {
        reason = "a wrong length";
        return false;
    }
    content.assign(bytes.begin() + 2, bytes.end() - 1);
    std::uint8_t check = 0;
    for (const std::uint8_t byte : content) {
        check = static_cast<std::uint8_t>(check ^ byte);
    }
    if (check != bytes.back()) {
        reason = "a wrong check byte";
        return false;
    }
    return true;
}

const struct {
    const char* bytes;
    const char* name;
} kSequences[] = {
    {"1B244932", "ESC $ I 2"},
    {"1B244934", "ESC $ I 4"},
    {"1B24421B2541", "ESC $ B ESC % A"},
};

} // namespace

Bytes frame(const Bytes& content)
{
    Bytes text{kStx};
    appendNibbles(text, static_cast<std::uint8_t>(content.size() >> 8));
    appendNibbles(text, static_cast<std::uint8_t>(content.size() & 0xFF));
    std::uint8_t check = 0;
    for (const std::uint8_t byte : content) {
        appendNibbles(text, byte);
        check = static_cast<std::uint8_t>(check ^ byte);
    }
    appendNibbles(text, check);
    text.push_back(kEtx);
    return text;
}

Bytes replyFrame(std::uint8_t status, const Bytes& payload)
{
    Bytes content{0x32, status};
    content.insert(content.end(), payload.begin(), payload.end());
    return frame(content);
}

ScriptedReader::ScriptedReader(Line& line) : line_(line)
{
    line_.onBytes = [this](const Bytes& bytes, int speed) { receive(bytes, speed); };
}

ScriptedReader::~ScriptedReader()
{
    if (!done()) {
        ADD_FAILURE() << steps_.size() << " expected reader command(s) did not come; the first: " << next();
    }
    line_.onBytes = {};
}

ScriptedReader& ScriptedReader::command(const std::string& command, const std::string& payload, std::uint8_t status)
{
    return raw(command, replyFrame(status, fromHex(payload)));
}

ScriptedReader& ScriptedReader::silent(const std::string& command)
{
    steps_.push_back({fromHex(command), {}, false});
    return *this;
}

ScriptedReader& ScriptedReader::raw(const std::string& command, const Bytes& answer)
{
    steps_.push_back({fromHex(command), answer, true});
    return *this;
}

ScriptedReader& ScriptedReader::slot(std::uint8_t slotByte)
{
    slot_ = slotByte;
    return *this;
}

ScriptedReader& ScriptedReader::powerOn(const std::string& atr) { return slot(0x00).command("32 22 01 80 00", atr); }

ScriptedReader& ScriptedReader::powerOnField(const std::string& answer)
{
    command("32 22 01 80 00", "", 0x02);
    return slot(0xFF).command("32 24 01 80", answer);
}

ScriptedReader& ScriptedReader::powerOff()
{
    return slot_ == 0xFF ? command("32 25 00 00") : command("32 23" + toHex({slot_}));
}

ScriptedReader& ScriptedReader::apdu(const std::string& commandApdu, const std::string& responseApdu)
{
    return command("32 26" + toHex({slot_}) + commandApdu, responseApdu);
}

std::string ScriptedReader::next() const { return done() ? "nothing" : toHex(steps_.front().command); }

void ScriptedReader::receive(const Bytes& bytes, int speed)
{
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
    while (!buffer_.empty()) {
        if (buffer_.front() == kStx) {
            const auto end = std::find(buffer_.begin(), buffer_.end(), kEtx);
            if (end == buffer_.end()) {
                return;
            }
            const Bytes text(buffer_.begin(), end + 1);
            buffer_.erase(buffer_.begin(), end + 1);
            handleFrame(text, speed);
            continue;
        }
        const auto end = std::find(buffer_.begin(), buffer_.end(), kStx);
        std::string outside = toHex(Bytes(buffer_.begin(), end));
        buffer_.erase(buffer_.begin(), end);
        for (const auto& sequence : kSequences) {
            if (outside == sequence.bytes) {
                outside = sequence.name;
            }
        }
        events_.push_back(outside + " at " + std::to_string(speed));
    }
}

void ScriptedReader::handleFrame(const Bytes& text, int speed)
{
    if (speed != kWorkingSpeed) {
        ADD_FAILURE() << "a frame came at " << speed << " baud";
    }
    Bytes content;
    std::string reason;
    if (!decodeFrame(text, content, reason)) {
        ADD_FAILURE() << "a frame has " << reason << ": " << toHex(text);
        return;
    }
    if (done() || steps_.front().command != content) {
        ADD_FAILURE() << "the reader was asked " << toHex(content) << ", expected was " << next();
        return;
    }
    const Step step = std::move(steps_.front());
    steps_.pop_front();
    if (step.answered) {
        line_.send(step.answer);
    }
}

// ---------------------------------------------------------------- the fixture

ReaderTest::ReaderTest()
{
    directory_ = (std::filesystem::temp_directory_path() / "vorn-test-XXXXXX").string();
    if (mkdtemp(directory_.data()) == nullptr || chdir(directory_.c_str()) != 0) {
        throw std::runtime_error("no working directory for the test");
    }
    Clock::freeze();
    Clock::onSleep([this] { line.serve(); });
    m_VrICType = 0;
    original_ = line.settings();
}

ReaderTest::~ReaderTest()
{
    Clock::release();
    std::error_code ignored;
    std::filesystem::current_path("/", ignored);
    std::filesystem::remove_all(directory_, ignored);
}

void ReaderTest::openLink()
{
    vr_comportmode = 0;
    std::snprintf(vr_comportparam, sizeof vr_comportparam, "%s", line.param().c_str());
    ASSERT_EQ(opdev(), 0);
}

void ReaderTest::closeLink() { EXPECT_EQ(cldev(), 0); }

std::string ReaderTest::traceLog() { return fileText(VORN_TRACE_FILE); }

std::string ReaderTest::serviceLog() { return fileText(VORN_SERVICE_FILE); }

namespace {

bool isDumpByte(const std::string& text, std::size_t at)
{
    const auto digit = [&](std::size_t i) {
        return i < text.size() && std::string("0123456789ABCDEF").find(text[i]) != std::string::npos;
    };
    return digit(at) && digit(at + 1) && at + 2 < text.size() && text[at + 2] == ' ';
}

// The position behind the hex dump that begins at `at`.
std::size_t behindDump(const std::string& text, std::size_t at)
{
    if (at < text.size() && text[at] == '\n' && isDumpByte(text, at + 1)) {
        ++at; // a dump of more than 16 bytes begins with a line feed
    }
    for (int inLine = 0; isDumpByte(text, at);) {
        at += 3;
        if (++inLine == 16 && at < text.size() && text[at] == '\n') {
            ++at;
            inLine = 0;
        }
    }
    return at < text.size() && text[at] == '\n' ? at + 1 : at;
}

} // namespace

std::string ReaderTest::callLog()
{
    const std::string text = serviceLog();
    std::string rest;
    for (std::size_t at = 0; at < text.size();) {
        if (text.compare(at, 10, "Indata----") == 0 || text.compare(at, 11, "Outdata----") == 0) {
            at = behindDump(text, text.find('\n', at) + 1);
        } else {
            rest += text[at++];
        }
    }
    return rest;
}

void ReaderTest::forgetLogs()
{
    std::filesystem::remove(VORN_TRACE_FILE);
    std::filesystem::remove(VORN_SERVICE_FILE);
}

bool ReaderTest::linkClosed() const
{
    int slaves = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) == "/dev/" + line.port()) {
            ++slaves;
        }
    }
    const struct termio now = line.settings();
    const bool restored = now.c_iflag == original_.c_iflag && now.c_oflag == original_.c_oflag &&
                          now.c_cflag == original_.c_cflag && now.c_lflag == original_.c_lflag &&
                          memcmp(now.c_cc, original_.c_cc, sizeof now.c_cc) == 0;
    return slaves == 1 && restored; // the one is the test's own
}

int ReaderTest::openDescriptors()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

// ---------------------------------------------------------------- files and streams

std::string fileText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

namespace {

std::string streamOf(FILE* stream, int descriptor, const std::function<void()>& f)
{
    std::fflush(stream);
    char name[] = "/tmp/vorn-stream-XXXXXX";
    const int file = mkstemp(name);
    const int saved = dup(descriptor);
    dup2(file, descriptor);
    f();
    std::fflush(stream);
    dup2(saved, descriptor);
    close(saved);
    close(file);
    const std::string text = fileText(name);
    unlink(name);
    return text;
}

} // namespace

std::string standardOutputOf(const std::function<void()>& f) { return streamOf(stdout, STDOUT_FILENO, f); }

std::string standardErrorOf(const std::function<void()>& f) { return streamOf(stderr, STDERR_FILENO, f); }

} // namespace vorn::test
