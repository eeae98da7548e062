// SPDX-License-Identifier: Apache-2.0
// A reader that expects given commands in a given order and answers each as told: a test reads as a transcript. The
// first command that differs fails the test and is answered by silence.
#pragma once

#include "support/clock.h"
#include "support/line.h"

#include <gtest/gtest.h>

#include <deque>
#include <string>

namespace vorn::test {

// The reader's frames, written independently of the library.
Bytes frame(const Bytes& content);                           // STX length content check ETX
Bytes replyFrame(std::uint8_t status, const Bytes& payload); // content: 32 status payload

class ScriptedReader {
public:
    explicit ScriptedReader(Line& line);
    ~ScriptedReader(); // fails the test when expected commands did not come

    // Reader commands, without their frame. Hex texts may hold blanks.
    ScriptedReader& command(const std::string& command, const std::string& payload = "", std::uint8_t status = 0);
    ScriptedReader& silent(const std::string& command);
    ScriptedReader& raw(const std::string& command, const Bytes& answer); // these bytes as they are

    // The user's card: apdu() goes to the slot byte set by slot() (00 at first; powerOnField sets FF).
    ScriptedReader& slot(std::uint8_t slotByte);
    ScriptedReader& powerOn(const std::string& atr = "3B00");
    ScriptedReader& powerOnField(const std::string& answer = "3B80"); // after an empty contact slot
    ScriptedReader& powerOff();                                       // of the slot set
    ScriptedReader& apdu(const std::string& commandApdu, const std::string& responseApdu);

    bool done() const { return steps_.empty(); }
    std::string next() const; // the command expected next, for messages
    void clear() { steps_.clear(); }

    // What happened besides: "ESC $ I 2 at 9600", "ESC $ I 4 at 38400", "ESC $ B ESC % A at 9600", and other bytes
    // outside frames as hex.
    const std::vector<std::string>& lineEvents() const { return events_; }
    // Each frame's speed must be 38400, or the test fails.

private:
    struct Step {
        Bytes command;
        Bytes answer;
        bool answered;
    };
    void receive(const Bytes& bytes, int speed);
    void handleFrame(const Bytes& text, int speed);
    Line& line_;
    std::deque<Step> steps_;
    Bytes buffer_;
    std::vector<std::string> events_;
    std::uint8_t slot_ = 0;
};

// A test of the library against a scripted reader: a fresh working directory, frozen time, a line, a reader, and the
// library's globals as in a new process.
class ReaderTest : public ::testing::Test {
protected:
    ReaderTest();
    ~ReaderTest() override;

    Line line;
    ScriptedReader reader{line};

    const char* port() const { return line.port().c_str(); }
    void openLink();  // fills vr_comportparam and calls opdev, for tests below the services
    void closeLink(); // cldev

    static std::string traceLog();   // vr_log.txt, empty when there is none
    static std::string serviceLog(); // ICC_COMM_VORN.log
    // ICC_COMM_VORN.log without the slot commands' Indata/Outdata entries: what the calls themselves wrote.
    static std::string callLog();
    static void forgetLogs();

    // Is the link closed, and were the tty's own settings put back?
    bool linkClosed() const;
    static int openDescriptors();

private:
    std::string directory_;
    struct termio original_ {};
};

std::string fileText(const std::string& path);
// What f wrote to standard output / standard error.
std::string standardOutputOf(const std::function<void()>& f);
std::string standardErrorOf(const std::function<void()>& f);

} // namespace vorn::test
