// SPDX-License-Identifier: Apache-2.0
// The system as the library sees it, failing on purpose. A program that links this defines the calls that the library
// makes to libc; they count those that come from the library itself (or from the JSON library on its behalf), and make
// the n-th one fail. Calls of the test, of the simulated reader and of libc's own are never touched.
#pragma once

namespace vorn::test {

enum class Site {
    Open,      // of the tty
    Read,      // from it
    Write,     // to it
    Terminal,  // its settings: ioctl and the tc... functions
    Status,    // fstat, fcntl, poll
    Allocate,  // malloc, calloc, realloc
    LogOpen,   // of the log files
    LogWrite,  // to them
    Print,     // to the console
    OpenIconv, // iconv_open
    Iconv,     // iconv
    Count
};

enum class How {
    Fail,      // with an error of its kind
    Interrupt, // EINTR, nothing done
    Short      // a write takes one byte, a read gives one
};

const char* nameOf(Site site);
const char* nameOf(How how);

namespace failing_calls {

// From now on the n-th call at this place fails (counted from 1); forGood: and every one after it.
void arm(Site site, How how, int n, bool forGood = false);

// Nothing fails any more. True when a call did fail.
bool disarm();

// How often the library was at this place since the last `arm`.
int callsSinceArmed(Site site);

// Allocations cannot be made to fail where a sanitizer has taken their place.
bool allocationsFail();

} // namespace failing_calls
} // namespace vorn::test
