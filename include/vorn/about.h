/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the library says about itself and its results, for a host's log or a support person's screen. These functions
 * touch no reader and may be called at any time, in any thread.
 */
#ifndef VORN_ABOUT_H
#define VORN_ABOUT_H

#include "vorn/export.h"

VORN_BEGIN_C

/* The library's version, "major.minor.patch". (The "DllVersion" of DEV_CommCall is a fixed text that hosts compare.) */
VORN_API const char* vorn_version(void);

/* What a result of a call means, one line in English without an end. call: the function's name, for example
 * "IC_GenARQC", since some codes mean something else there; NULL, or a name that is none of the library's: the general
 * meaning. Never NULL: a positive result gives a text about status words, a code that is not known "unknown result". */
VORN_API const char* vorn_result_text(const char* call, int result);

VORN_END_C

#endif
