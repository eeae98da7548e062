// SPDX-License-Identifier: Apache-2.0
#include "ifd/lock.h"

// A function of the C library's own since glibc 2.34, with a version of then. Older terminals have this one in the
// library for threads, which their daemon brings along; newer ones keep it.
#if defined(__aarch64__)
__asm__(".symver pthread_mutex_trylock,pthread_mutex_trylock@GLIBC_2.17");
#endif

namespace vorn::ifd {

bool Mutex::tryLock() { return pthread_mutex_trylock(&mutex_) == 0; }

} // namespace vorn::ifd
