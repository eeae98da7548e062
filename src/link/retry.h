// SPDX-License-Identifier: Apache-2.0
// System calls in a host whose timers and child processes interrupt them.
#pragma once

#include <cerrno>

namespace vorn {

// Makes the call again for as long as a signal interrupts it.
template <class Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace vorn
