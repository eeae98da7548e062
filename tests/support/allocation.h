// SPDX-License-Identifier: Apache-2.0
// Memory that runs out. A program that uses this defines calloc, which the dynamic linker then finds before libc's, so
// that a test can refuse one block to the library.
#pragma once

namespace vorn::test {

// While it lives, the call of calloc with this number (from 1 on) gets nothing.
class RefusedBlock {
public:
    explicit RefusedBlock(int number);
    ~RefusedBlock();
    RefusedBlock(const RefusedBlock&) = delete;
    RefusedBlock& operator=(const RefusedBlock&) = delete;

    bool met() const; // Was that call made?
};

} // namespace vorn::test
