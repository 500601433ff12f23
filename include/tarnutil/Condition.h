// SPDX-License-Identifier: Apache-2.0
// A condition variable: threads wait on it for a change to the state that a Mutex guards.
//
// Errors:  every failure throws tarnutil::Exception, or, if the object was built with `abort` true,
//          calls abort() and writes nothing anywhere. Want of memory for the message ends the
//          process. Reaching a deadline is a result, not a failure.
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
    // "Could not initialize condition: " and the system's text.
    explicit Condition(bool abort);

    // Nobody may be waiting. Never throws: "Could not destroy condition: " and the system's text
    // is dropped unless failures abort.
    ~Condition();

    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    // Wakes one waiter, or all. A signal that finds nobody waiting is lost.
    // "Could not signal on condition."
    void signal();
    // "Could not broadcast on condition."
    void broadcast();

    // Releases `mutex`, waits for a wake-up, and holds `mutex` again on return.
    // "Could not wait on condition."
    void wait(Mutex& mutex) TARNUTIL_REQUIRES(mutex);

    // As wait, but gives up at a deadline: true if woken before it, false if it passed.
    //
    // `timeoutMs` is in milliseconds of the realtime clock, of which only the whole seconds count:
    // 1500 waits one second, 999 hardly at all. Setting that clock moves the deadline.
    // "Could not get time: " or "Could not perform condition timedwait operation: " and the
    // system's text.
    bool timedWait(Mutex& mutex, unsigned long timeoutMs) TARNUTIL_REQUIRES(mutex);

private:
    bool abortOnError;
    pthread_cond_t native;
};

}  // namespace tarnutil
#endif  // TARNUTIL_CONDITION_H
