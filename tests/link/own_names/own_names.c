/* SPDX-License-Identifier: Apache-2.0 */
void captured(const char *name);

#define OWN(name)                                                                                                      \
    void name(void);                                                                                                   \
    void name(void) { captured(#name); }
#include "own_names.inc"
