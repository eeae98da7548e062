// SPDX-License-Identifier: Apache-2.0
// Ctrl-C. A reader that is left at its fast speed does not understand the next program, so the first signal lets the
// call that is running come to its end; the second one ends the tool at once.
#pragma once

#include <string>

namespace vorn::tool {

void catchInterrupts();
bool interrupted();
void throwIfInterrupted();

// Waits, shorter when interrupted.
void pause(int milliseconds);

// The log files in this directory, and the directory, are removed also when the second signal comes.
void removeOnSecondInterrupt(const std::string& directory);
void keepOnSecondInterrupt();

} // namespace vorn::tool
