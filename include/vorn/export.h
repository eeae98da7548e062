/* SPDX-License-Identifier: Apache-2.0 */
#ifndef VORN_EXPORT_H
#define VORN_EXPORT_H

/* Marks a declaration as part of the library's binary interface. */
#define VORN_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define VORN_BEGIN_C extern "C" {
#define VORN_END_C   }
#else
#define VORN_BEGIN_C
#define VORN_END_C
#endif

#endif
