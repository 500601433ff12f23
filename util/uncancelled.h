// SPDX-License-Identifier: Apache-2.0
// Keeps a thread's cancellation off while it does what has to be done whole.
#ifndef TARNUTIL_UTIL_UNCANCELLED_H
#define TARNUTIL_UTIL_UNCANCELLED_H

#include <pthread.h>

namespace tarnutil {

// While one lives, a cancellation of the calling thread is held back. A cancellation unwinds the
// stack from calls like close(), waitpid() and pthread_join(). In an operation that never throws
// this would end the process; in one that must be done whole it would leave half of it undone.
class Uncancelled {
public:
    Uncancelled() noexcept { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    ~Uncancelled() { (void)pthread_setcancelstate(before, nullptr); }

    Uncancelled(const Uncancelled&) = delete;
    Uncancelled& operator=(const Uncancelled&) = delete;

private:
    int before = PTHREAD_CANCEL_ENABLE;
};

}  // namespace tarnutil
#endif  // TARNUTIL_UTIL_UNCANCELLED_H
