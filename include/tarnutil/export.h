/* SPDX-License-Identifier: Apache-2.0 */
/* TARNUTIL_API, the mark of an exported name. */
#ifndef TARNUTIL_EXPORT_H
#define TARNUTIL_EXPORT_H

/* Everything else is hidden. What carries the mark is also listed in cmake/libtarnutil.map. */
#define TARNUTIL_API __attribute__((visibility("default")))

#endif /* TARNUTIL_EXPORT_H */
