// SPDX-License-Identifier: Apache-2.0
// A recording as it grows. Lines are written by a thread of their own: a disk that is slow or full is nothing that the
// traffic waits for.
#pragma once

#include "sim/reader/line_recording.h"
#include "tools/commands/new_file.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace vorn::tool {

class RecordingFile {
public:
    // Throws Failure.
    RecordingFile(const std::string& path, bool replace, const std::string& about);
    ~RecordingFile();
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    void add(const sim::RecordedLine& line);
    // Writes what waits. What went wrong, in words; empty: the recording is whole.
    std::string close();
    unsigned long lines() const { return lines_; }

    static constexpr std::size_t kWaitingMax = 8U << 20; // characters; lines beyond are lost, and counted

private:
    void write();

    NewFile file_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::string waiting_;
    std::string problem_;
    unsigned long lost_ = 0; // since the last line that was kept
    unsigned long allLost_ = 0;
    unsigned long lines_ = 0;
    bool ending_ = false;
    std::thread thread_;
};

} // namespace vorn::tool
