// SPDX-License-Identifier: Apache-2.0
// How Mutex and Condition fail: as each object was told when it was built. Functions of their own,
// away from the callers' code: a lock that is taken pays for none of this.
#ifndef TARNUTIL_UTIL_HANDLE_ERROR_H
#define TARNUTIL_UTIL_HANDLE_ERROR_H

#include <cstdlib>

#include <tarnutil/Exception.h>

namespace tarnutil {

// Throws an Exception with `msg`, or calls abort() and writes nothing anywhere.
[[noreturn, gnu::cold, gnu::noinline]] inline void handleError(bool abortOnError, const char* msg) {
    if (abortOnError) std::abort();
    throw Exception(msg);
}

// The same with the system's text for `rc` behind `what`.
[[noreturn, gnu::cold, gnu::noinline]] inline void handleError(bool abortOnError, const char* what,
                                                               int rc) {
    if (abortOnError) std::abort();
    throw Exception(what + Exception::getStrerror(rc));
}

}  // namespace tarnutil
#endif  // TARNUTIL_UTIL_HANDLE_ERROR_H
