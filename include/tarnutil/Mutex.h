// SPDX-License-Identifier: Apache-2.0
// A mutex of the platform, and the scoped lock over it.
//
// Errors:  every failure throws tarnutil::Exception with the text that stands with the member and
//          the system's text behind it, or, if the mutex was built with `abort` true, calls abort()
//          and writes nothing anywhere. A failed allocation ends the process (std::terminate).
// Threads: any thread may call any member. Nobody may hold a mutex that is destroyed, and only its
//          holder may unlock it; ERRORCHECK reports the latter.
//
// Clang's -Wthread-safety follows these locks: mark what a mutex guards with TARNUTIL_GUARDED_BY.
#ifndef TARNUTIL_MUTEX_H
#define TARNUTIL_MUTEX_H

#include <pthread.h>

#include <tarnutil/export.h>

// An attribute of clang's thread-safety analysis; nothing for other compilers.
#ifdef __clang__
#define TARNUTIL_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define TARNUTIL_THREAD_SAFETY(attribute)
#endif

// On data: may be touched only while `mutex` is held.
#define TARNUTIL_GUARDED_BY(mutex) TARNUTIL_THREAD_SAFETY(guarded_by(mutex))
// On a function: may be called only while `mutex` is held, or while it is not.
#define TARNUTIL_REQUIRES(mutex) TARNUTIL_THREAD_SAFETY(requires_capability(mutex))
#define TARNUTIL_EXCLUDES(mutex) TARNUTIL_THREAD_SAFETY(locks_excluded(mutex))

namespace tarnutil {

class TARNUTIL_API TARNUTIL_THREAD_SAFETY(capability("mutex")) Mutex {
public:
    class LockHolder;

    // What a second lock() by the holder does.
    enum Kind {
        NORMAL = PTHREAD_MUTEX_NORMAL,         // waits for ever
        RECURSIVE = PTHREAD_MUTEX_RECURSIVE,   // succeeds, and takes one more unlock()
        ERRORCHECK = PTHREAD_MUTEX_ERRORCHECK  // fails, as does unlock() by anyone else
    };

    // Builds a mutex that nobody holds. With `abort`, every failure calls abort(), in all members.
    // Throws "Could not initialize mutex attributes: ", "Could not set mutex type: " or
    // "Could not initialize mutex: ".
    Mutex(bool abort, Kind kind);

    // Destroys the mutex, which nobody may hold. Never throws: unless failures abort, "Could not
    // destroy mutex: " is dropped, and so is a failed allocation for it.
    ~Mutex();

    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Waits until the mutex is held.
    // Throws "Could not lock mutex: ".
    void lock() TARNUTIL_THREAD_SAFETY(acquire_capability());

    // Takes the mutex if that needs no waiting: false if it is held already, unless by the caller
    // and RECURSIVE.
    // Throws "Could not perform mutex trylock operation: ".
    bool tryLock() TARNUTIL_THREAD_SAFETY(try_acquire_capability(true));

    // Releases the mutex, which the caller holds.
    // Throws "Could not unlock mutex: ".
    void unlock() TARNUTIL_THREAD_SAFETY(release_capability());

private:
    friend class Condition;

    bool abortOnError;
    pthread_mutex_t native;
};

// Holds a mutex, which has to outlive it, from its construction to its end or an early unlock().
//
// Threads: belongs to the thread that built it.
class TARNUTIL_API TARNUTIL_THREAD_SAFETY(scoped_lockable) Mutex::LockHolder {
public:
    // Waits until `m` is held. Throws as Mutex::lock does; then there is no holder.
    explicit LockHolder(Mutex& m) TARNUTIL_THREAD_SAFETY(acquire_capability(m));

    // Releases the mutex, unless that was done before. Never throws: unless failures of the mutex
    // abort, "Could not unlock mutex: " is dropped. But a failed allocation for that message ends
    // the process, as in Mutex::unlock.
    ~LockHolder() TARNUTIL_THREAD_SAFETY(release_capability());

    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

    // Releases the mutex early; does nothing if that was done before. Throws as Mutex::unlock does
    // and counts as not done then.
    void unlock() TARNUTIL_THREAD_SAFETY(release_capability());

private:
    bool locked = true;
    Mutex& mutex;
};

}  // namespace tarnutil
#endif  // TARNUTIL_MUTEX_H
