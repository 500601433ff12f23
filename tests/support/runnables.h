// SPDX-License-Identifier: Apache-2.0
// Runnables made of functions, and a count of what becomes of them.
#ifndef TARNUTIL_TESTS_SUPPORT_RUNNABLES_H
#define TARNUTIL_TESTS_SUPPORT_RUNNABLES_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include <tarnutil/Thread.h>

namespace tarnutil_test {

// Counts the runnables that it made, on any thread. Has to outlive them.
class Census {
public:
    ~Census();  // Fails the test unless every runnable was destroyed.

    std::unique_ptr<tarnutil::Runnable> runnable(std::function<void()> work);

    long constructed() const;
    long destroyed() const;
    // The thread that destroyed the last of them.
    std::thread::id destroyer() const;
    // Waits until all are destroyed.
    void awaitNone();

private:
    class Counted;

    mutable std::mutex mutex;
    std::condition_variable changed;
    std::set<const tarnutil::Runnable*> alive;
    std::thread::id lastDestroyer;
    long everConstructed = 0;
    long everDestroyed = 0;
};

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_RUNNABLES_H
