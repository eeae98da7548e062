// SPDX-License-Identifier: Apache-2.0
// What the tests of the exported services share: output buffers with guards around them, and the log entries that
// the slot commands write, composed independently of the library.
#pragma once

#include "support/line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace vorn::test {

// An output of documented capacity with guard bytes on both sides. Every byte is A5h until it is written.
class Output {
public:
    explicit Output(std::size_t capacity) : bytes_(capacity + 2 * kGuard, kFill) {}
    ~Output()
    {
        EXPECT_TRUE(std::all_of(bytes_.begin(), bytes_.begin() + kGuard, isFill)) << "written before the output";
        EXPECT_TRUE(std::all_of(bytes_.end() - kGuard, bytes_.end(), isFill)) << "written behind its capacity";
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    char* text() { return reinterpret_cast<char*>(bytes()); }
    unsigned char* bytes() { return bytes_.data() + kGuard; }
    bool untouched() const { return std::all_of(bytes_.begin(), bytes_.end(), isFill); }

    // The text up to its NUL; a text without one is a failure of its own.
    std::string value() const
    {
        const auto begin = bytes_.begin() + kGuard;
        const auto end = bytes_.end() - kGuard;
        const auto nul = std::find(begin, end, 0);
        EXPECT_NE(nul, end) << "no NUL within the output's capacity";
        return std::string(begin, nul);
    }
    std::string hex(std::size_t count) const
    {
        const auto begin = bytes_.begin() + kGuard;
        return toHex(Bytes(begin, begin + static_cast<std::ptrdiff_t>(count)));
    }

private:
    static constexpr std::ptrdiff_t kGuard = 64;
    static constexpr std::uint8_t kFill = 0xA5;
    static bool isFill(std::uint8_t byte) { return byte == kFill; }
    std::vector<std::uint8_t> bytes_;
};

// The hex dump of the log files.
inline std::string dumpText(const std::string& hex)
{
    const Bytes bytes = fromHex(hex);
    std::string text = bytes.size() > 16 ? "\n" : "";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text += toHex({bytes[i]}) + " ";
        text += i % 16 == 15 ? "\n" : "";
    }
    return text + "\n";
}

// The four entries of a slot command.
inline std::string slotEntries(const std::string& marker, const std::string& command, const std::string& payload)
{
    return "Indata----------------------" + marker + "\n" + dumpText(command) + "Outdata----------------------" +
           marker + "\n" + dumpText(payload);
}

// What the reader's line sees of one call that opens and closes the link.
inline std::vector<std::string> lineOfOneCall()
{
    return {"ESC $ I 2 at 9600", "ESC $ I 4 at 38400", "ESC $ B ESC % A at 9600"};
}

} // namespace vorn::test
