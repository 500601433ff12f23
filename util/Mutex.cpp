// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Mutex.h>

#include <cerrno>

#include <tarnutil/Exception.h>

#include "boundary.h"
#include "handle_error.h"

namespace tarnutil {
namespace {

// Owner of the attributes that a mutex is built with. A failed init leaves nothing to own.
class MutexAttributes {
public:
    explicit MutexAttributes(bool abortOnError) {
        const int rc = pthread_mutexattr_init(&native);
        if (rc != 0) handleError(abortOnError, "Could not initialize mutex attributes: ", rc);
    }
    ~MutexAttributes() { (void)pthread_mutexattr_destroy(&native); }
    MutexAttributes(const MutexAttributes&) = delete;
    MutexAttributes& operator=(const MutexAttributes&) = delete;

    pthread_mutexattr_t* get() { return &native; }

private:
    pthread_mutexattr_t native;
};

}  // namespace

Mutex::Mutex(bool abort, Kind kind) : abortOnError(abort) {
    admitOnly<Exception>([&] {
        MutexAttributes attributes(abortOnError);
        int rc = pthread_mutexattr_settype(attributes.get(), kind);
        if (rc != 0) handleError(abortOnError, "Could not set mutex type: ", rc);
        rc = pthread_mutex_init(&native, attributes.get());
        if (rc != 0) handleError(abortOnError, "Could not initialize mutex: ", rc);
    });
}

Mutex::~Mutex() {
    dropExceptions([this] {
        const int rc = pthread_mutex_destroy(&native);
        if (rc != 0) handleError(abortOnError, "Could not destroy mutex: ", rc);
    });
}

void Mutex::lock() {
    admitOnly<Exception>([this] {
        const int rc = pthread_mutex_lock(&native);
        if (rc != 0) handleError(abortOnError, "Could not lock mutex: ", rc);
    });
}

bool Mutex::tryLock() {
    return admitOnly<Exception>([this] {
        const int rc = pthread_mutex_trylock(&native);
        if (rc != 0 && rc != EBUSY) {
            handleError(abortOnError, "Could not perform mutex trylock operation: ", rc);
        }
        return rc == 0;
    });
}

void Mutex::unlock() {
    admitOnly<Exception>([this] {
        const int rc = pthread_mutex_unlock(&native);
        if (rc != 0) handleError(abortOnError, "Could not unlock mutex: ", rc);
    });
}

Mutex::LockHolder::LockHolder(Mutex& m) : mutex(m) { mutex.lock(); }

Mutex::LockHolder::~LockHolder() {
    dropExceptions([this] { unlock(); });
}

void Mutex::LockHolder::unlock() {
    if (!locked) return;
    mutex.unlock();
    locked = false;
}

}  // namespace tarnutil
