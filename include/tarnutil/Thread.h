// SPDX-License-Identifier: Apache-2.0
// One piece of work, and a thread to run it.
//
// Errors:  every failure throws tarnutil::Exception with the message that stands with the member;
//          those that end in ": " are followed by the system's text. A failed allocation ends the
//          process (std::terminate). So does, by abort(), a failure of the mutex that a Thread
//          shares with the thread that it started.
// Threads: a Thread belongs to the one thread that controls it.
#ifndef TARNUTIL_THREAD_H
#define TARNUTIL_THREAD_H

#include <pthread.h>

#include <memory>

#include <tarnutil/export.h>

namespace tarnutil {

// The unit of work of Thread and Executor.
class TARNUTIL_API Runnable {
public:
    virtual ~Runnable();

    // Does the work. An exception that leaves it ends the process.
    virtual void run() = 0;
};

// Runs one Runnable on a thread of its own. Created, then started, then joined or detached.
//
// Destroying it destroys a runnable that was never started, and does nothing else: a thread that
// runs goes on, and if it was neither joined nor detached, what it holds is never released.
class TARNUTIL_API Thread {
public:
    // Takes `work` over. With `startDetached`, the thread counts as detached from the beginning:
    // getHasExited() and detach() refuse even before start(), while join() still says that it was
    // not started.
    // Throws "runnable is null".
    Thread(std::unique_ptr<Runnable> work, bool startDetached);

    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Sets the function that the new thread calls with `arg` before run(), or after it; null for
    // none. Takes effect with the next start(). `arg` stays the caller's and must live until the
    // call. What the function throws is dropped.
    void setStartupHandler(void (*handler)(void*), void* arg);
    void setCleanupHandler(void (*handler)(void*), void* arg);

    // Starts the thread and hands the runnable to it. May be called again if it failed.
    // Throws "Can not start thread: thread already started.",
    // "Could not create pthread init attribute: ",
    // "Could not set detached stated for thread: " or "Could not create pthread: ".
    void start();

    // Whether the work is done, the cleanup handler included, without waiting for it; true after
    // join(). The work of a thread that was cancelled or left by pthread_exit is never done.
    // Throws "Can not determine if thread has exited: thread is detached." or
    // "Thread not started yet".
    bool getHasExited();

    // Waits for the end of the thread and returns its runnable, which the caller then owns. A
    // thread that was cancelled, or left by pthread_exit with a value other than null, returns it
    // too.
    // Throws "Can not join with thread: thread not started.",
    // "Can not join with thread: thread already joined." or "Could not join with thread: ".
    //
    // After pthread_exit(NULL) throws "Could not join with thread: no runnable object returned":
    // the runnable is lost. Neither join nor detach again: the system's thread is gone.
    //
    // Do not join a detached thread: while it runs the system refuses, afterwards its id is
    // invalid.
    Runnable* join();

    // Leaves the thread and its runnable to themselves: the runnable is destroyed at the end of the
    // work, by the thread, or at once, by this call, if the work is done; never if the thread was
    // cancelled or left by pthread_exit.
    // Throws "Can not detach thread: already detached.",
    // "Can not detach thread: thread not started.",
    // "Can not detach thread: thread already joined." or "Could not detach thread: ".
    void detach();

    // What the new thread runs: the entry function for pthread_create.
    static void* threadStartup(void* argument);

private:
    struct ThreadRecord;

    int create(std::unique_ptr<ThreadRecord>& shared);

    bool detached;
    bool started = false;
    bool joined = false;
    void (*startupHandler)(void*) = nullptr;
    void* startupArg = nullptr;
    void (*cleanupHandler)(void*) = nullptr;
    void* cleanupArg = nullptr;
    pthread_t id = 0;
    std::unique_ptr<Runnable> runnable;  // until it is started
    ThreadRecord* record = nullptr;      // shared with the running thread
};

}  // namespace tarnutil
#endif  // TARNUTIL_THREAD_H
