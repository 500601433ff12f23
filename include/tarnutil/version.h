/* SPDX-License-Identifier: Apache-2.0 */
/* The version of the library that a program is compiled against, for the preprocessor. */
#ifndef TARNUTIL_VERSION_H
#define TARNUTIL_VERSION_H

/* The version as numbers, major.minor.patch, and as text. */
#define TARNUTIL_VERSION_MAJOR 1
#define TARNUTIL_VERSION_MINOR 0
#define TARNUTIL_VERSION_PATCH 0
#define TARNUTIL_VERSION "1.0.0"

#endif /* TARNUTIL_VERSION_H */
