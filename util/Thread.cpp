// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Thread.h>

#include <atomic>
#include <string>
#include <utility>

#include <tarnutil/Exception.h>
#include <tarnutil/Mutex.h>

#include "boundary.h"
#include "callback.h"

namespace tarnutil {
namespace {

// Throws an Exception with `what` and the system's text for `rc`, unless that is 0.
void check(int rc, const char* what) {
    if (rc != 0) throw Exception(what + Exception::getStrerror(rc));
}

// Owner of the attributes that a thread is created with.
class ThreadAttributes {
public:
    ThreadAttributes() {
        check(pthread_attr_init(&native), "Could not create pthread init attribute: ");
    }
    ~ThreadAttributes() { (void)pthread_attr_destroy(&native); }
    ThreadAttributes(const ThreadAttributes&) = delete;
    ThreadAttributes& operator=(const ThreadAttributes&) = delete;

    pthread_attr_t* get() { return &native; }

private:
    pthread_attr_t native;
};

}  // namespace

Runnable::~Runnable() = default;

// What a Thread shares with the thread that it started.
//
// Two sides let go of it: the thread at the end of its work, and its owner in detach() or, by
// building the thread detached, from the beginning. Each exchanges `mark` for its own value. The
// one that finds the other's there came second, and deletes the record. If the owner joins instead,
// the thread is gone by then, and the owner deletes the record.
struct Thread::ThreadRecord {
    enum class Mark { none, detached, exited };

    explicit ThreadRecord(Thread& thread)
        : runnable(std::move(thread.runnable)),
          mark(thread.detached ? Mark::detached : Mark::none),
          startup{thread.startupHandler, thread.startupArg},
          cleanup{thread.cleanupHandler, thread.cleanupArg} {}
    ~ThreadRecord() { runnable.reset(); }  // before the mutex

    // Takes the mutex and releases it.
    //
    // Quirk: both sides do so before they exchange `mark`, though that is atomic and needs no
    // guard: as the header promises, a mutex that fails here calls abort(). Pinned by
    // ThreadTest.EndOfTheWorkAndDetachEachPassTheMutexOnce.
    void passMutex() { const Mutex::LockHolder lock(mutex); }

    std::unique_ptr<Runnable> runnable;
    std::atomic<Mark> mark;
    Mutex mutex{/*abort=*/true, Mutex::NORMAL};
    const Callback startup;
    const Callback cleanup;
};

Thread::Thread(std::unique_ptr<Runnable> work, bool startDetached)
    : detached(startDetached), runnable(std::move(work)) {
    admitOnly<Exception>([this] {
        if (runnable == nullptr) throw Exception("runnable is null");
    });
}

void Thread::setStartupHandler(void (*handler)(void*), void* arg) {
    startupHandler = handler;
    startupArg = arg;
}

void Thread::setCleanupHandler(void (*handler)(void*), void* arg) {
    cleanupHandler = handler;
    cleanupArg = arg;
}

void Thread::start() {
    admitOnly<Exception>([this] {
        if (started) throw Exception("Can not start thread: thread already started.");
        std::unique_ptr<ThreadRecord> shared;
        const int rc = create(shared);
        if (rc != 0) runnable = std::move(shared->runnable);
        check(rc, "Could not create pthread: ");
        ThreadRecord* const running = shared.release();
        if (!detached) record = running;  // the thread may have freed it otherwise
        started = true;
    });
}

// Hands the runnable to a new record, and the record to a new thread: the result of pthread_create.
int Thread::create(std::unique_ptr<ThreadRecord>& shared) {
    ThreadAttributes attributes;
    if (detached) {
        check(pthread_attr_setdetachstate(attributes.get(), PTHREAD_CREATE_DETACHED),
              "Could not set detached stated for thread: ");
    }
    shared = std::make_unique<ThreadRecord>(*this);
    return pthread_create(&id, attributes.get(), threadStartup, shared.get());
}

bool Thread::getHasExited() {
    return admitOnly<Exception>([this] {
        if (detached) {
            throw Exception("Can not determine if thread has exited: thread is detached.");
        }
        if (!started) throw Exception("Thread not started yet");
        if (joined) return true;
        const Mutex::LockHolder lock(record->mutex);
        return record->mark == ThreadRecord::Mark::exited;
    });
}

Runnable* Thread::join() {
    return admitOnly<Exception>([this] {
        if (!started) throw Exception("Can not join with thread: thread not started.");
        if (joined) throw Exception("Can not join with thread: thread already joined.");
        void* result = nullptr;
        check(pthread_join(id, &result), "Could not join with thread: ");
        if (result == nullptr) {
            throw Exception("Could not join with thread: no runnable object returned");
        }
        const std::unique_ptr<ThreadRecord> done(std::exchange(record, nullptr));
        joined = true;
        return done->runnable.release();
    });
}

void Thread::detach() {
    admitOnly<Exception>([this] {
        if (detached) throw Exception("Can not detach thread: already detached.");
        if (!started) throw Exception("Can not detach thread: thread not started.");
        if (joined) throw Exception("Can not detach thread: thread already joined.");
        check(pthread_detach(id), "Could not detach thread: ");
        record->passMutex();
        ThreadRecord* const left = std::exchange(record, nullptr);
        detached = true;
        const auto found = left->mark.exchange(ThreadRecord::Mark::detached);
        if (found == ThreadRecord::Mark::exited) delete left;
    });
}

void* Thread::threadStartup(void* argument) {
    auto* const shared = static_cast<ThreadRecord*>(argument);
    shared->startup.call();
    shared->runnable->run();
    shared->cleanup.call();
    shared->passMutex();
    Runnable* const result = shared->runnable.get();
    const auto found = shared->mark.exchange(ThreadRecord::Mark::exited);
    if (found != ThreadRecord::Mark::detached) return result;
    delete shared;
    return nullptr;
}

}  // namespace tarnutil
