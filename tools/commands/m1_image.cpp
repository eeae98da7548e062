// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/m1_image.h"

#include "tools/cli/errors.h"
#include "tools/explain/hex.h"
#include "tools/session/memory_layout.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace vorn::tool {

namespace {

constexpr std::size_t kBlockSize = 16;
constexpr std::streamsize kFileMost = 65536; // of an image or a list of keys; a device has no end
constexpr std::size_t kBlockCounts[] = {20, 64, 256};
const char* const kUnknown = "could not be read";

struct Line {
    std::string text;
    std::string remark;
};

std::vector<Line> linesOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(static_cast<std::size_t>(kFileMost) + 1, '\0');
    file.read(text.data(), kFileMost + 1);
    if (file.bad() || file.gcount() == 0) {
        throw Failure(Exit::Usage, path + " cannot be read, or is empty");
    }
    if (file.gcount() > kFileMost) {
        throw Failure(Exit::Usage, path + " is too long for an image or a list of keys");
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    std::vector<Line> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::size_t mark = std::min(line.find('#'), line.size());
        std::string content = line.substr(0, mark);
        content.erase(std::remove_if(content.begin(), content.end(), [](unsigned char c) { return c <= ' '; }),
                      content.end());
        lines.push_back({content, line.substr(mark)});
    }
    return lines;
}

Failure badLine(const std::string& path, std::size_t number, const char* what)
{
    return {Exit::Usage, path + ", line " + std::to_string(number) + ": " + what};
}

} // namespace

ImageBlocks loadImageFile(const std::string& path)
{
    ImageBlocks blocks;
    bool unknown = false;
    const std::vector<Line> lines = linesOf(path);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].text.empty()) {
            unknown = unknown || lines[i].remark.find(kUnknown) != std::string::npos;
            continue;
        }
        const auto bytes = fromHex(lines[i].text);
        if (!bytes || bytes->size() != kBlockSize) {
            throw badLine(path, i + 1, "16 bytes of hex are expected");
        }
        blocks.push_back(unknown ? std::nullopt : bytes);
        unknown = false;
    }
    if (std::find(std::begin(kBlockCounts), std::end(kBlockCounts), blocks.size()) == std::end(kBlockCounts)) {
        throw Failure(Exit::Usage, path + " has " + std::to_string(blocks.size()) + " blocks",
                      "an image has 20, 64 or 256, one a line");
    }
    return blocks;
}

void saveImageFile(const std::string& path, const ImageBlocks& blocks, bool replace)
{
    std::string text;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        text += blocks[i]
                    ? toHex(*blocks[i]) + "\n"
                    : "# block " + std::to_string(i) + " " + kUnknown + "\n" + std::string(2 * kBlockSize, '0') + "\n";
    }
    const int file =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (replace ? O_TRUNC : O_EXCL), S_IRUSR | S_IWUSR);
    if (file < 0 && errno == EEXIST) {
        throw Failure(Exit::Output, path + " exists already", "name a new file, or replace it with --force");
    }
    const bool written = file >= 0 && ::fchmod(file, S_IRUSR | S_IWUSR) == 0 &&
                         ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const int error = errno;
    const bool closed = file >= 0 && ::close(file) == 0;
    if (!written || !closed) {
        throw Failure(Exit::Output, path + " could not be written: " + std::strerror(error));
    }
}

std::vector<std::string> loadKeyFile(const std::string& path)
{
    std::vector<std::string> keys;
    const std::vector<Line> lines = linesOf(path);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].text.empty()) {
            continue;
        }
        const auto bytes = fromHex(lines[i].text);
        if (!bytes || bytes->size() != kKeySize) {
            throw badLine(path, i + 1, "a key of six bytes in hex is expected");
        }
        keys.push_back(toHex(*bytes));
    }
    return keys;
}

} // namespace vorn::tool
