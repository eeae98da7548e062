// SPDX-License-Identifier: Apache-2.0
// What must hold, whatever came in.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <initializer_list>

namespace vorn::fuzz {

inline void require(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

// A result that the call's documentation lists.
inline void requireResult(int result, std::initializer_list<int> documented)
{
    for (const int one : documented) {
        if (result == one) {
            return;
        }
    }
    std::fprintf(stderr, "undocumented result %d\n", result);
    std::abort();
}

} // namespace vorn::fuzz
