// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Executor.h>

#include <pthread.h>

#include <cstddef>
#include <memory>

#include <tarnutil/Exception.h>

#include "boundary.h"
#include "callback.h"
#include "uncancelled.h"

namespace tarnutil {
namespace {

// What one thread of a batch is told. The thread frees it.
struct ExecutorRecord {
    Runnable* runnable;  // the caller's
    Callback startup;
    Callback cleanup;
};

// Starts a thread that does as `order` says. Returns the message of what went wrong, or null.
const char* startThread(pthread_t& thread, const ExecutorRecord& order) {
    std::unique_ptr<ExecutorRecord> record;
    dropExceptions([&] { record = std::make_unique<ExecutorRecord>(order); });
    if (record == nullptr) return "Could not execute runnables: Out of memory";
    if (pthread_create(&thread, nullptr, Executor::runnableExecutorStartup, record.get()) != 0) {
        return "Could not execute runnables: Could not create thread.";
    }
    (void)record.release();
    return nullptr;
}

}  // namespace

void Executor::execute(std::vector<Runnable*> runnables, void (*startup)(void*), void* startupArg,
                       void (*cleanup)(void*), void* cleanupArg) {
    admitOnly<Exception>([&] {
        std::vector<pthread_t> threads(runnables.size());
        std::size_t created = 0;
        const char* error = nullptr;
        const Uncancelled uncancelled;  // no thread may outlive the call
        for (Runnable* runnable : runnables) {
            error = startThread(threads[created],
                                {runnable, {startup, startupArg}, {cleanup, cleanupArg}});
            if (error != nullptr) break;
            ++created;
        }
        threads.resize(created);
        for (const pthread_t thread : threads) {
            const int rc = pthread_join(thread, nullptr);
            if (rc != 0 && error == nullptr) {
                error = "Could not execute runnables: Could not join with thread.";
            }
        }
        if (error != nullptr) throw Exception(error);
    });
}

void* Executor::runnableExecutorStartup(void* argument) {
    const std::unique_ptr<const ExecutorRecord> record(static_cast<ExecutorRecord*>(argument));
    record->startup.call();
    record->runnable->run();
    record->cleanup.call();
    return nullptr;
}

}  // namespace tarnutil
