// SPDX-License-Identifier: Apache-2.0
// Between a host and the reader: every byte arrives and is written down, and all is left as it was.
#include "sim/reader/line_recording.h"
#include "tools/running_tool.h"

#include <sys/file.h>
#include <termios.h>

#include <algorithm>
#include <cstring>

namespace {

using namespace vorn::test;
using vorn::sim::Bytes;
using vorn::sim::RecordedLine;
using Kind = RecordedLine::Kind;

// The reader's end of a line, in the test's own hands.
class ReadersEnd {
public:
    ReadersEnd() : master_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_EQ(::grantpt(master_), 0);
        EXPECT_EQ(::unlockpt(master_), 0);
        path_ = ::ptsname(master_);
        keeper_ = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~ReadersEnd()
    {
        ::close(keeper_);
        hangUp();
    }
    ReadersEnd(const ReadersEnd&) = delete;
    ReadersEnd& operator=(const ReadersEnd&) = delete;

    const std::string& path() const { return path_; }
    int descriptor() const { return master_; }
    termios settings() const
    {
        termios now{};
        ::tcgetattr(keeper_, &now);
        return now;
    }
    speed_t speed() const
    {
        const termios now = settings();
        return ::cfgetospeed(&now);
    }
    void set(const termios& settings) const { ::tcsetattr(keeper_, TCSANOW, &settings); }
    void hangUp()
    {
        if (master_ >= 0) {
            ::close(master_);
        }
        master_ = -1;
    }

private:
    int master_;
    int keeper_ = -1;
    std::string path_;
};

// A host's descriptor for a port.
class HostsEnd {
public:
    explicit HostsEnd(const std::string& port)
        : descriptor_(::open(("/dev/" + port).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_GE(descriptor_, 0) << port;
    }
    ~HostsEnd() { ::close(descriptor_); }
    HostsEnd(const HostsEnd&) = delete;
    HostsEnd& operator=(const HostsEnd&) = delete;

    int descriptor() const { return descriptor_; }
    void setSpeed(speed_t speed) const
    {
        termios settings{};
        ::tcgetattr(descriptor_, &settings);
        ::cfsetspeed(&settings, speed);
        EXPECT_EQ(::tcsetattr(descriptor_, TCSAFLUSH, &settings), 0);
    }

private:
    int descriptor_;
};

void send(int to, const std::string& bytes)
{
    EXPECT_EQ(::write(to, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

// So many bytes, or what came until nothing did.
std::string taken(int from, std::size_t count)
{
    std::string all;
    pollfd input{from, POLLIN, 0};
    while (all.size() < count && ::poll(&input, 1, kPatience) == 1) {
        std::array<char, 4096> piece{};
        const ssize_t got = ::read(from, piece.data(), std::min(piece.size(), count - all.size()));
        if (got <= 0) {
            break;
        }
        all.append(piece.data(), static_cast<std::size_t>(got));
    }
    return all;
}

std::string joined(const vorn::sim::Recording& recording, Kind kind)
{
    std::string all;
    for (const RecordedLine& line : recording.lines) {
        if (line.kind == kind) {
            all.append(line.bytes.begin(), line.bytes.end());
        }
    }
    return all;
}

class RecordTest : public ToolTest {
protected:
    std::string to() const { return (scratch.path() / "line.rec").string(); }
    vorn::sim::Recording recorded() const { return vorn::sim::readRecording(contents(to())); }
    Arguments command(const std::string& port, const Arguments& host) const
    {
        return with({"record", "--port", port, "--to", to(), "--"}, host);
    }
    // A recorder without a host program; its port.
    std::string start(Process& recorder)
    {
        std::string port = recorder.outputLine();
        EXPECT_EQ(port.compare(0, 4, "pts/"), 0) << port;
        return port;
    }
    static void stop(Process& recorder, int code)
    {
        recorder.signal(SIGINT);
        std::string output, errors;
        EXPECT_EQ(recorder.finish(output, errors), code) << errors;
    }
};

TEST_F(RecordTest, AHostFindsTheReaderThroughItAndItsBytesAreWrittenDown)
{
    const Result direct = run(scratch, {"info", "--json", "--show", "--sim", "debit"});
    ASSERT_EQ(direct.code, kOk) << direct.errors;
    Process reader(scratch, {"sim", "debit", "--check-speed"});
    const std::string port = reader.outputLine();
    const Result through =
        run(scratch, command(port, {tool().string(), "info", "--json", "--show", "--port", "{port}"}));
    EXPECT_EQ(through.code, kOk) << through.errors;
    EXPECT_EQ(through.output, direct.output);

    const auto recording = recorded();
    EXPECT_EQ(recording.problem, "");
    EXPECT_EQ(fs::status(to()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    std::chrono::microseconds last{0};
    for (const RecordedLine& line : recording.lines) {
        EXPECT_GE(line.at, last);
        last = line.at;
        const std::string bytes(line.bytes.begin(), line.bytes.end());
        if (line.kind == Kind::FromHost) {
            const bool slow = bytes == "\x1B$I2" || bytes == "\x1B$B\x1B%A";
            EXPECT_EQ(line.speed, slow ? 9600 : 38400) << bytes;
        }
    }
    ASSERT_FALSE(recording.lines.empty());
    EXPECT_EQ(recording.lines.back().kind, Kind::End);
    const std::string sent = joined(recording, Kind::FromHost);
    EXPECT_EQ(sent.compare(0, 4, "\x1B$I2"), 0);
    EXPECT_NE(sent.find("\x02"
                        "0005322201800091\x03"),
              std::string::npos)
        << sent;
    EXPECT_NE(joined(recording, Kind::FromReader).find("\x02"), std::string::npos);
}

TEST_F(RecordTest, EveryByteComesThroughInBothDirections)
{
    ReadersEnd reader;
    Process recorder(scratch, {"record", "--port", reader.path(), "--to", to()});
    const HostsEnd host(start(recorder));
    std::string all;
    for (int i = 0; i < 8 * 256; ++i) {
        all += static_cast<char>(i * 7);
    }
    send(host.descriptor(), all);
    EXPECT_EQ(taken(reader.descriptor(), all.size()), all);
    std::reverse(all.begin(), all.end());
    send(reader.descriptor(), all);
    EXPECT_EQ(taken(host.descriptor(), all.size()), all);
    stop(recorder, kOk);
    EXPECT_EQ(joined(recorded(), Kind::FromReader), all);
    std::reverse(all.begin(), all.end());
    EXPECT_EQ(joined(recorded(), Kind::FromHost), all);
}

TEST_F(RecordTest, TheReadersPortFollowsTheHostsSpeed)
{
    ReadersEnd reader;
    Process recorder(scratch, {"record", "--port", reader.path(), "--to", to()});
    const HostsEnd host(start(recorder));
    for (const speed_t speed : std::vector<speed_t>{B38400, B1200, B115200, B9600}) {
        host.setSpeed(speed);
        send(host.descriptor(), "x");
        EXPECT_EQ(taken(reader.descriptor(), 1), "x");
        EXPECT_EQ(reader.speed(), speed);
    }
    stop(recorder, kOk);
    std::vector<int> speeds;
    for (const RecordedLine& line : recorded().lines) {
        if (line.kind == Kind::Speed) {
            speeds.push_back(line.speed);
        }
    }
    EXPECT_EQ(speeds, (std::vector<int>{38400, 1200, 115200, 9600}));
}

// Two calls of a host while the recorder does not get the processor: the port goes through the same speeds.
TEST_F(RecordTest, AHostThatSwitchesToAndFroMeanwhileIsFollowed)
{
    ReadersEnd reader;
    Process recorder(scratch, {"record", "--port", reader.path(), "--to", to()});
    const HostsEnd host(start(recorder));
    host.setSpeed(B38400);
    send(host.descriptor(), "x");
    EXPECT_EQ(taken(reader.descriptor(), 1), "x");
    recorder.suspend();
    send(host.descriptor(), "\x1B$I4");
    host.setSpeed(B9600);
    send(host.descriptor(), "\x1B$B\x1B%A");
    send(host.descriptor(), "\x1B$I2");
    host.setSpeed(B38400);
    send(host.descriptor(), "y");
    recorder.signal(SIGCONT);
    EXPECT_EQ(taken(reader.descriptor(), 15), "\x1B$I4\x1B$B\x1B%A\x1B$I2y");
    stop(recorder, kOk);
    std::string sent;
    for (const RecordedLine& line : recorded().lines) {
        if (line.kind == Kind::FromHost) {
            sent += std::to_string(line.speed) + " " + std::to_string(line.bytes.size()) + "; ";
        }
    }
    EXPECT_EQ(sent, "38400 1; 38400 4; 9600 10; 38400 1; ");
}

TEST_F(RecordTest, ThePortsSettingsAndTheLinkAreAsBefore)
{
    ReadersEnd reader;
    termios odd = reader.settings();
    ::cfsetspeed(&odd, B19200);
    odd.c_lflag |= ECHO | ICANON;
    odd.c_cc[VMIN] = 3;
    reader.set(odd);
    const termios before = reader.settings();
    const std::string link = (scratch.path() / "reader").string();
    Process recorder(scratch, {"record", "--port", reader.path(), "--to", to(), "--link", link});
    const std::string port = start(recorder);
    EXPECT_EQ(fs::read_symlink(link), "/dev/" + port);
    EXPECT_EQ(reader.settings().c_lflag & static_cast<tcflag_t>(ECHO | ICANON), 0U);
    stop(recorder, kOk);
    const termios after = reader.settings();
    EXPECT_EQ(std::memcmp(&after, &before, sizeof after), 0);
    EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
}

TEST_F(RecordTest, WhatAHostWritesLastStillReachesTheReader)
{
    ReadersEnd reader;
    const Result result = run(scratch, command(reader.path(), {"sh", "-c", "printf last >/dev/$VORN_PORT; exit 7"}));
    EXPECT_EQ(result.code, 7) << result.errors;
    EXPECT_EQ(taken(reader.descriptor(), 4), "last");
    EXPECT_EQ(joined(recorded(), Kind::FromHost), "last");
    EXPECT_EQ(recorded().lines.back().number, 7U);
}

TEST_F(RecordTest, AHostThatDiesIsTold)
{
    ReadersEnd reader;
    const Result result = run(scratch, command(reader.path(), {"sh", "-c", "kill -KILL $$"}));
    EXPECT_EQ(result.code, 128 + SIGKILL);
    EXPECT_TRUE(result.complains("ended by signal 9")) << result.errors;
    EXPECT_EQ(recorded().lines.back().number, 128U + SIGKILL);
}

TEST_F(RecordTest, AHostThatLeavesTheLineFastIsTold)
{
    ReadersEnd reader;
    const Result result =
        run(scratch, command(reader.path(), {"sh", "-c", "stty 38400 </dev/$VORN_PORT; printf x >/dev/$VORN_PORT"}));
    EXPECT_EQ(result.code, kOk) << result.errors;
    EXPECT_TRUE(result.complains("left the line at 38400 baud")) << result.errors;
}

TEST_F(RecordTest, SignalsReachTheHost)
{
    ReadersEnd reader;
    for (const int number : {SIGTERM, SIGHUP, SIGUSR1}) {
        fs::remove(to());
        Process recorder(scratch, command(reader.path(), {"sh", "-c",
                                                          "trap 'exit 8' TERM; trap 'exit 9' HUP; trap 'exit 10' USR1;"
                                                          "echo ready; while :; do sleep 0.05; done"}));
        EXPECT_EQ(recorder.outputLine(), "ready");
        recorder.signal(number);
        std::string output, errors;
        const int expected = number == SIGTERM ? 8 : number == SIGHUP ? 9 : 10;
        EXPECT_EQ(recorder.finish(output, errors), expected) << errors;
    }
}

TEST_F(RecordTest, AHostThatDoesNotWantToEndIsEndedByTheThirdSignal)
{
    ReadersEnd reader;
    Process recorder(scratch, command(reader.path(), {"sh", "-c",
                                                      "trap 'echo no' TERM; echo ready; while :; do "
                                                      "sleep 0.05; done"}));
    EXPECT_EQ(recorder.outputLine(), "ready");
    recorder.signal(SIGTERM);
    EXPECT_EQ(recorder.outputLine(), "no");
    recorder.signal(SIGTERM);
    EXPECT_EQ(recorder.outputLine(), "no");
    recorder.signal(SIGTERM);
    std::string output, errors;
    EXPECT_EQ(recorder.finish(output, errors), 128 + SIGKILL) << errors;
}

TEST_F(RecordTest, AReaderThatIsUnpluggedIsTold)
{
    ReadersEnd reader;
    Process recorder(scratch, {"record", "--port", reader.path(), "--to", to()});
    start(recorder);
    reader.hangUp();
    std::string output, errors;
    EXPECT_EQ(recorder.finish(output, errors), kPort) << errors;
    EXPECT_NE(errors.find("went away"), std::string::npos) << errors;
    const auto recording = recorded();
    EXPECT_TRUE(std::any_of(recording.lines.begin(), recording.lines.end(),
                            [](const RecordedLine& line) { return line.kind == Kind::Gone; }));
}

TEST_F(RecordTest, AFullDiskEndsTheRecordingAndNotTheTraffic)
{
    ReadersEnd reader;
    const std::string script =
        "ulimit -S -f 2; exec '" + tool().string() + "' record --port " + reader.path() + " --to '" + to() + "'";
    const std::string program = scratch.file("limited", script);
    Process limited(scratch, {"record", "--port", reader.path(), "--to", to() + ".outer", "--", "sh", "-c",
                              "ulimit -S -f 2; exec '" + tool().string() + "' record --port {port} --to '" + to() +
                                  "' -- sh -c 'echo $VORN_PORT; read line'"});
    const HostsEnd host(limited.outputLine());
    for (int i = 0; i < 40; ++i) {
        const std::string text(100, static_cast<char>('A' + i % 26));
        send(host.descriptor(), text);
        EXPECT_EQ(taken(reader.descriptor(), text.size()), text);
    }
    limited.write("\n");
    std::string output, errors;
    EXPECT_EQ(limited.finish(output, errors), kOutput) << errors;
    EXPECT_NE(errors.find("the recording is not whole"), std::string::npos) << errors;
    EXPECT_EQ(joined(vorn::sim::readRecording(contents(to() + ".outer")), Kind::FromHost).size(), 4000U);
}

TEST_F(RecordTest, RefusalsLeaveNothingBehind)
{
    ReadersEnd reader;
    EXPECT_EQ(run(scratch, command("USB", {"true"})).code, kUsage);
    EXPECT_EQ(run(scratch, command("ttyNone7", {"true"})).code, kPort);
    EXPECT_EQ(run(scratch, command(reader.path(), {"/no/such/program"})).code, kUsage);
    EXPECT_FALSE(fs::exists(to()));
    const int other = ::open(reader.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    EXPECT_EQ(run(scratch, command(reader.path(), {"true"})).code, kPortBusy);
    ::close(other);
    EXPECT_FALSE(fs::exists(to()));
    scratch.file("line.rec", "mine");
    EXPECT_EQ(run(scratch, command(reader.path(), {"true"})).code, kOutput);
    EXPECT_EQ(contents(to()), "mine");
    EXPECT_EQ(run(scratch, with({"record", "--force", "--port", reader.path(), "--to", to()}, {"--", "true"})).code,
              kOk);
    EXPECT_EQ(recorded().problem, "");
    const std::string taken = scratch.file("taken", "");
    EXPECT_EQ(
        run(scratch, {"record", "--force", "--port", reader.path(), "--to", to(), "--link", taken, "--", "true"}).code,
        kPort);
    EXPECT_TRUE(fs::is_regular_file(taken));
}

} // namespace
