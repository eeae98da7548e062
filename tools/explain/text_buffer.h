// SPDX-License-Identifier: Apache-2.0
// Text on its way out: it is added in small parts and handed on in large ones.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string_view>

namespace vorn::tool {

class TextBuffer {
public:
    using Write = std::function<void(std::string_view)>;
    explicit TextBuffer(Write write) : write_(std::move(write)) {}

    void add(std::string_view text)
    {
        if (text.size() > kCapacity - size_) {
            flush();
        }
        if (text.size() > kCapacity) {
            return write_(text);
        }
        std::memcpy(text_.data() + size_, text.data(), text.size());
        size_ += text.size();
    }

    void add(char character) { add(std::string_view(&character, 1)); }

    void flush()
    {
        if (size_ > 0) {
            write_({text_.data(), size_});
        }
        size_ = 0;
    }

private:
    static constexpr std::size_t kCapacity = 65536;

    Write write_;
    std::array<char, kCapacity> text_{};
    std::size_t size_ = 0;
};

} // namespace vorn::tool
