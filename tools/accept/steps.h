// SPDX-License-Identifier: Apache-2.0
// What an acceptance run does, step by step, from harmless to thorough.
#pragma once

#include "tools/accept/findings.h"
#include "tools/accept/reader_line.h"

#include <functional>
#include <optional>
#include <vector>

namespace vorn::tool::accept {

// Who puts cards into the reader's contact slot.
class Person {
public:
    Person() = default;
    virtual ~Person() = default;
    Person(const Person&) = delete;
    Person& operator=(const Person&) = delete;

    enum class Wish { PutIn, TakeOut };
    // Returns when it is done; false: the person would rather not.
    virtual bool please(Wish wish) = 0;
};

struct Bench {
    ReaderLine& line;
    Findings& findings;
    Person* person; // none: nobody is there to be asked
};

struct Step {
    enum class On { Any, Tty, Usb };
    const char* name;
    const char* announces;
    On on;
    bool needsPerson;
    void (*run)(Bench& bench);
};

const std::vector<Step>& steps();

// The steps' own functions, by subject.
void findLine(Bench& bench);
void readVersion(Bench& bench);
void trySwitching(Bench& bench);
void shortenPauses(Bench& bench);
void lookIntoSlots(Bench& bench);
void moveCard(Bench& bench);
void powerCards(Bench& bench);
void useField(Bench& bench);
void timeReplies(Bench& bench);
void readTestCard(Bench& bench);
void tryFrameSizes(Bench& bench);
void sendUnknown(Bench& bench);
void sendWrongCheck(Bench& bench);
void cutFrame(Bench& bench);
void sendTwoFrames(Bench& bench);
void describeUsb(Bench& bench);
void countPackets(Bench& bench);

// The shortest of a few tries. A long time is believed when three tries agree on it: a busy machine makes times longer,
// and each time by another bit. Nothing: the first try gave nothing.
std::optional<Time> believedTime(const std::function<std::optional<Time>()>& measure);

} // namespace vorn::tool::accept
