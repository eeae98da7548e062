// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/recording_file.h"

#include "tools/cli/errors.h"

#include <utility>

namespace vorn::tool {

RecordingFile::RecordingFile(const std::string& path, bool replace, const std::string& about) : file_(path, replace)
{
    file_.write(sim::recordingHead(about));
    thread_ = std::thread([this] { write(); });
}

RecordingFile::~RecordingFile()
{
    if (thread_.joinable()) {
        close();
    }
}

void RecordingFile::add(const sim::RecordedLine& line)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (waiting_.size() > kWaitingMax) {
        ++lost_;
        ++allLost_;
        return;
    }
    if (lost_ > 0) {
        sim::RecordedLine gap;
        gap.at = line.at;
        gap.kind = sim::RecordedLine::Kind::Lost;
        gap.number = std::exchange(lost_, 0);
        waiting_ += sim::textOf(gap);
    }
    waiting_ += sim::textOf(line);
    ++lines_;
    wake_.notify_one();
}

// After a failure nothing more is written: a recording with a hole in it that nobody marked would be worse.
void RecordingFile::write()
{
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
        if (waiting_.empty()) {
            return;
        }
        const std::string text = std::exchange(waiting_, {});
        if (!problem_.empty()) {
            continue;
        }
        lock.unlock();
        std::string problem;
        try {
            file_.write(text);
        } catch (const Failure& failure) {
            problem = failure.what();
        }
        lock.lock();
        problem_ = problem;
    }
}

std::string RecordingFile::close()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        ending_ = true;
        wake_.notify_one();
    }
    thread_.join();
    try {
        file_.close();
    } catch (const Failure& failure) {
        problem_ = problem_.empty() ? failure.what() : problem_;
    }
    if (problem_.empty() && allLost_ > 0) {
        problem_ = std::to_string(allLost_) + " lines came faster than they could be written";
    }
    return problem_;
}

} // namespace vorn::tool
