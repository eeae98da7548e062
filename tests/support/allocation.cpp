// SPDX-License-Identifier: Apache-2.0
#include "support/allocation.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstddef>

namespace {

using Calloc = void* (*)(std::size_t, std::size_t);

Calloc libcs = nullptr;
bool looking = false;
int callsLeft = 0; // until the one that is refused; 0: none is

// What looks for libc's calloc may ask for memory itself; it copes without.
Calloc libcsCalloc()
{
    if (libcs == nullptr && !looking) {
        looking = true;
        libcs = reinterpret_cast<Calloc>(dlsym(RTLD_NEXT, "calloc"));
        looking = false;
    }
    return libcs;
}

} // namespace

namespace vorn::test {

RefusedBlock::RefusedBlock(int number) { callsLeft = number; }

RefusedBlock::~RefusedBlock() { callsLeft = 0; }

bool RefusedBlock::met() const { return callsLeft == 0; }

} // namespace vorn::test

extern "C" void* calloc(std::size_t count, std::size_t size)
{
    if (callsLeft > 0 && --callsLeft == 0) {
        errno = ENOMEM;
        return nullptr;
    }
    const Calloc real = libcsCalloc();
    return real == nullptr ? nullptr : real(count, size);
}
