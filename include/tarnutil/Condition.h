// SPDX-License-Identifier: Apache-2.0
// A condition variable: threads wait on it for a change to the state that a Mutex guards.
//
// Errors:  every failure throws tarnutil::Exception with the text that stands with the member,
//          followed by the system's text where it ends in ": ", or, if the object was built with
//          `abort` true, calls abort() and writes nothing anywhere. A failed allocation ends the
//          process (std::terminate). Reaching a deadline is a result, not a failure.
// Threads: any thread may call any member. wait and timedWait need the mutex held, and may return
//          without a signal: test your predicate again after each.
#ifndef TARNUTIL_CONDITION_H
#define TARNUTIL_CONDITION_H

#include <pthread.h>

#include <tarnutil/Mutex.h>
#include <tarnutil/export.h>

namespace tarnutil {

class TARNUTIL_API Condition {
public:
    // Builds a condition that nobody waits on. With `abort`, every failure calls abort(), in all
    // members.
    // Throws "Could not initialize condition: ".
    explicit Condition(bool abort);

    // Destroys the condition, on which nobody may wait. Never throws: unless failures abort, "Could
    // not destroy condition: " is dropped, and so is a failed allocation for it.
    ~Condition();

    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    // Wakes one waiter; the caller may hold the mutex or not. With nobody waiting, it is lost.
    // Throws "Could not signal on condition.".
    void signal();

    // Wakes all waiters; the caller may hold the mutex or not. With nobody waiting, it is lost.
    // Throws "Could not broadcast on condition.".
    void broadcast();

    // Releases `mutex`, waits for a wake-up, and holds `mutex` again on return.
    // Throws "Could not wait on condition.".
    void wait(Mutex& mutex) TARNUTIL_REQUIRES(mutex);

    // As wait, but gives up at a deadline: true if woken before it, false if it passed.
    //
    // `timeoutMs` is in milliseconds of the realtime clock, of which only the whole seconds count:
    // 1500 waits one second, 999 hardly at all. Setting that clock moves the deadline.
    // Throws "Could not get time: " or "Could not perform condition timedwait operation: ".
    bool timedWait(Mutex& mutex, unsigned long timeoutMs) TARNUTIL_REQUIRES(mutex);

private:
    bool abortOnError;
    pthread_cond_t native;
};

}  // namespace tarnutil
#endif  // TARNUTIL_CONDITION_H
