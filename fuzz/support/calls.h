// SPDX-License-Identifier: Apache-2.0
// What the harnesses of whole calls share: outputs, ports, and what holds after every call.
#pragma once

#include "support/input.h"
#include "support/require.h"

#include "ICC_COMM_VORN.h"
#include "seam/world.h"

#include <cstring>
#include <memory>

namespace vorn::fuzz {

// An output of just its documented capacity.
class Output {
public:
    explicit Output(std::size_t capacity) : capacity_(capacity), bytes_(new char[capacity])
    {
        std::memset(bytes_.get(), kUntouched, capacity);
    }

    char* text() { return bytes_.get(); }
    unsigned char* bytes() { return reinterpret_cast<unsigned char*>(bytes_.get()); }
    bool untouched() const { return bytes_[0] == kUntouched; }

    // The length of the text; one without a NUL is a finding.
    std::size_t length() const
    {
        const std::size_t n = strnlen(bytes_.get(), capacity_);
        require(n < capacity_, "an output text ends within its capacity");
        return n;
    }

private:
    static constexpr char kUntouched = '\xA5';
    std::size_t capacity_;
    std::unique_ptr<char[]> bytes_;
};

// How a call is made, by the first bytes of an input: at which port, with which failures below.
struct Circumstances {
    explicit Circumstances(Input& input);

    const char* port;
    int timeout;
};

// Gives back what a call may leave open, and forgets which card was powered: every input starts from the same state.
void endOfCalls();

// Not where the link could not be opened: a tty whose settings are refused stays open until the next call.
void requireLinkClosed(int result);

} // namespace vorn::fuzz
