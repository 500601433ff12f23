// SPDX-License-Identifier: Apache-2.0
// Keeps a thread's cancellation off while it does what has to be done whole.
#ifndef TARNUTIL_UTIL_UNCANCELLED_H
#define TARNUTIL_UTIL_UNCANCELLED_H

#include <pthread.h>

namespace tarnutil {

// While one lives, a cancellation of the calling thread waits. Operations that never throw need
// this: close() and waitpid() act on a cancellation by unwinding the stack, and in an operation
// that nothing may leave that would end the process. So does one that must not be left half done:
// pthread_join() acts in the same way.
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
