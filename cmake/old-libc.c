/* SPDX-License-Identifier: Apache-2.0 */
/* What the C++ runtime looks for, and an older C library does not have. */
#include <sys/random.h>

/* Since 2.32: whether the process has one thread only. Zero is always right, and costs an atomic operation. */
char __libc_single_threaded = 0;

/* Since 2.36. */
unsigned int arc4random(void);
unsigned int arc4random(void)
{
    unsigned int value = 0;
    while (getrandom(&value, sizeof value, 0) != (ssize_t)sizeof value) {}
    return value;
}
