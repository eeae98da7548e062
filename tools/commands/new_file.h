// SPDX-License-Identifier: Apache-2.0
// A file of results: made for its user alone, and never in place of another one without being told.
#pragma once

#include <string>

namespace vorn::tool {

class NewFile {
public:
    NewFile(const std::string& path, bool replace); // throws Failure
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void write(const std::string& text);
    void close(); // what could not be written is known at last here

private:
    std::string path_;
    int fd_;
};

} // namespace vorn::tool
