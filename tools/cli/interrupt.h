// SPDX-License-Identifier: Apache-2.0
// Ctrl-C and other ends. A reader that is left at its fast speed does not understand the next program, so the first
// signal lets the call that is running come to its end, for a while; the second one ends the call, and the reader is
// put to rest; the third one, or a tool that does not come to its end, ends at once.
#pragma once

#include <string>

namespace vorn::tool {

void catchInterrupts();
bool interrupted();
bool interruptedTwice();
void throwIfInterrupted();

// How long the call that is running may go on after the first signal, in seconds.
constexpr unsigned kGraceSeconds = 5;

// Waits, shorter when interrupted.
void pause(int milliseconds);

// The log files in this directory, and the directory, are removed however the tool ends.
void removeInAnyCase(const std::string& directory);
void removedAlready();

} // namespace vorn::tool
