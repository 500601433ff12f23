// SPDX-License-Identifier: Apache-2.0
// A function of the caller's that a new thread calls, and the argument for it.
#ifndef TARNUTIL_UTIL_CALLBACK_H
#define TARNUTIL_UTIL_CALLBACK_H

#include "boundary.h"

namespace tarnutil {

struct Callback {
    void (*function)(void*) = nullptr;  // null: there is none
    void* argument = nullptr;

    // What the function throws is dropped: the work goes on without it.
    void call() const {
        if (function != nullptr) dropExceptions([this] { function(argument); });
    }
};

}  // namespace tarnutil
#endif  // TARNUTIL_UTIL_CALLBACK_H
