// SPDX-License-Identifier: Apache-2.0
// One piece of work, and a thread to run it.
//
// Errors:  every failure throws tarnutil::Exception with the message that stands with the member;
//          those that end in ": " are followed by the system's text. Want of memory ends the
//          process, and so does a mutex that fails between a Thread and its thread, by abort().
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
    // Takes `work` over. With `startDetached`, the thread counts as detached from the beginning,
    // before start() too; only join() then still says that it was not started.
    // "runnable is null".
    Thread(std::unique_ptr<Runnable> work, bool startDetached);

    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // A function that the new thread calls before run(), or after it; null for none. It counts from
    // the next start() on. What it throws is dropped.
    void setStartupHandler(void (*handler)(void*), void* arg);
    void setCleanupHandler(void (*handler)(void*), void* arg);

    // Starts the thread and hands the runnable to it. May be called again if it failed.
    // "Can not start thread: thread already started.", "Could not create pthread init attribute: ",
    // "Could not set detached stated for thread: " or "Could not create pthread: ".
    void start();

    // Whether the work is done, the cleanup handler included, without waiting for it; true after
    // join(). The work of a thread that was cancelled or left by pthread_exit is never done.
    // "Can not determine if thread has exited: thread is detached." or "Thread not started yet".
    bool getHasExited();

    // Waits for the end of the thread and returns its runnable, which the caller owns from then on:
    // the runnable also if the thread was cancelled or left by pthread_exit with any other value
    // than null.
    // "Can not join with thread: thread not started.",
    // "Can not join with thread: thread already joined." or "Could not join with thread: ", the
    // last with "no runnable object returned" for the system's text if the thread left by
    // pthread_exit(NULL): it then counts as not joined, and what it holds is kept.
    // A detached thread is refused by the system, and only while it still runs: do not ask later.
    Runnable* join();

    // Leaves the thread and its runnable to themselves: the runnable is destroyed at the end of the
    // work, by the thread, or at once, by this call, if the work is done; never if the thread was
    // cancelled or left by pthread_exit.
    // "Can not detach thread: already detached.", "Can not detach thread: thread not started.",
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
