// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Condition.h>

#include <sys/time.h>

#include <cerrno>
#include <ctime>

#include <tarnutil/Exception.h>

#include "boundary.h"
#include "handle_error.h"

namespace tarnutil {
namespace {

// When a wait of `timeoutMs` that begins at `now` gives up.
//
// Quirk: milliseconds beyond the whole seconds are added as nanoseconds, unscaled, as the header
// promises; so there is never a second to carry. Pinned by
// ConditionTest.OnlyWholeSecondsLengthenTheWait.
timespec deadline(const timeval& now, unsigned long timeoutMs) {
    timespec at;
    at.tv_sec = now.tv_sec + static_cast<time_t>(timeoutMs / 1000);
    at.tv_nsec = now.tv_usec * 1000 + static_cast<long>(timeoutMs % 1000);
    return at;
}

}  // namespace

Condition::Condition(bool abort) : abortOnError(abort) {
    admitOnly<Exception>([this] {
        const int rc = pthread_cond_init(&native, nullptr);
        if (rc != 0) handleError(abortOnError, "Could not initialize condition: ", rc);
    });
}

Condition::~Condition() {
    dropExceptions([this] {
        const int rc = pthread_cond_destroy(&native);
        if (rc != 0) handleError(abortOnError, "Could not destroy condition: ", rc);
    });
}

void Condition::signal() {
    admitOnly<Exception>([this] {
        const int rc = pthread_cond_signal(&native);
        if (rc != 0) handleError(abortOnError, "Could not signal on condition.");
    });
}

void Condition::broadcast() {
    admitOnly<Exception>([this] {
        const int rc = pthread_cond_broadcast(&native);
        if (rc != 0) handleError(abortOnError, "Could not broadcast on condition.");
    });
}

void Condition::wait(Mutex& mutex) {
    admitOnly<Exception>([&] {
        const int rc = pthread_cond_wait(&native, &mutex.native);
        if (rc != 0) handleError(abortOnError, "Could not wait on condition.");
    });
}

bool Condition::timedWait(Mutex& mutex, unsigned long timeoutMs) {
    return admitOnly<Exception>([&] {
        timeval now;
        if (gettimeofday(&now, nullptr) != 0) {
            handleError(abortOnError, "Could not get time: ", errno);
        }
        const timespec at = deadline(now, timeoutMs);
        const int rc = pthread_cond_timedwait(&native, &mutex.native, &at);
        if (rc != 0 && rc != ETIMEDOUT) {
            handleError(abortOnError, "Could not perform condition timedwait operation: ", rc);
        }
        return rc == 0;
    });
}

}  // namespace tarnutil
