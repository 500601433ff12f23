// SPDX-License-Identifier: Apache-2.0
// Runs many Runnables at once and waits for all of them.
//
// Errors:  a batch that did not run whole throws tarnutil::Exception with one of
//          "Could not execute runnables: Out of memory",
//          "Could not execute runnables: Could not create thread." and
//          "Could not execute runnables: Could not join with thread."; of several errors the first
//          is reported. A thread that leaves by pthread_exit or is cancelled counts as having run.
//          A failed allocation ends the process (std::terminate). Only that of the record of one
//          item is reported, as "Out of memory".
// Threads: re-entrant.
#ifndef TARNUTIL_EXECUTOR_H
#define TARNUTIL_EXECUTOR_H

#include <vector>

#include <tarnutil/Thread.h>
#include <tarnutil/export.h>

namespace tarnutil {

class TARNUTIL_API Executor {
public:
    Executor() = delete;

    // Runs each of `runnables`, which stay the caller's, on a thread of its own and returns when
    // all have run.
    //
    // Each thread calls `startup` before its run() and `cleanup` after it, so they have to bear
    // being called at the same time; null is for none, and what they throw is dropped.
    //
    // If a thread cannot be created, its runnable and those behind it never run; those before it
    // run to their end before the exception is thrown.
    //
    // A cancellation of the calling thread is held back until all have been waited for.
    //
    // "Could not join with thread." is thrown even if every runnable ran. The thread in question
    // may then still run, and its runnable must live on; the others are joined all the same.
    static void execute(std::vector<Runnable*> runnables, void (*startup)(void*), void* startupArg,
                        void (*cleanup)(void*), void* cleanupArg);

    // What each thread runs: the entry function for pthread_create.
    static void* runnableExecutorStartup(void* argument);
};

}  // namespace tarnutil
#endif  // TARNUTIL_EXECUTOR_H
