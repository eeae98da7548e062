// SPDX-License-Identifier: Apache-2.0
// What the library prints, for the person who brings up a terminal. A host whose standard output nobody reads goes on:
// the text is lost, and no signal ends the process, now or when the host exits.
#pragma once

namespace vorn {

// To standard output, at once.
[[gnu::format(printf, 1, 2)]] void print(const char* format, ...);

// To standard error: the text as perror(3) writes it, with what errno says.
void printError(const char* text);

} // namespace vorn
