// SPDX-License-Identifier: Apache-2.0
// Candidate lists that go with the call that made them.
#pragma once

#include "vorn/card.h"

namespace vorn {

// Release what hangs on a list's first record (the record itself is its owner's).
void freeCandidates(alist& head);
void freeCandidates(flist& head);

template <class List>
class Candidates {
public:
    Candidates() = default;
    ~Candidates() { freeCandidates(head_); }
    Candidates(const Candidates&) = delete;
    Candidates& operator=(const Candidates&) = delete;

    List& head() { return head_; }

private:
    List head_{};
};

} // namespace vorn
