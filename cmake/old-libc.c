/* SPDX-License-Identifier: Apache-2.0 */
/* What the C++ runtime looks for and a C library before 2.32 does not have: whether the process has one thread only.
 * Zero is always right, and costs an atomic operation. */
char __libc_single_threaded = 0;
