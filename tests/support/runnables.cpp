// SPDX-License-Identifier: Apache-2.0
#include "runnables.h"

#include <gtest/gtest.h>

#include <utility>

namespace tarnutil_test {

class Census::Counted : public tarnutil::Runnable {
public:
    Counted(Census& owner, std::function<void()> toDo) : census(owner), work(std::move(toDo)) {
        const std::lock_guard<std::mutex> lock(census.mutex);
        ++census.everConstructed;
        census.alive.insert(this);
    }
    ~Counted() override {
        const std::lock_guard<std::mutex> lock(census.mutex);
        EXPECT_EQ(census.alive.erase(this), 1U) << "a runnable is destroyed twice";
        ++census.everDestroyed;
        census.lastDestroyer = std::this_thread::get_id();
        census.changed.notify_all();
    }
    void run() override { work(); }

private:
    Census& census;
    std::function<void()> work;
};

Census::~Census() {
    const std::lock_guard<std::mutex> lock(mutex);
    EXPECT_TRUE(alive.empty()) << alive.size() << " runnables were never destroyed";
}

std::unique_ptr<tarnutil::Runnable> Census::runnable(std::function<void()> work) {
    return std::make_unique<Counted>(*this, std::move(work));
}

long Census::constructed() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return everConstructed;
}

long Census::destroyed() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return everDestroyed;
}

std::thread::id Census::destroyer() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return lastDestroyer;
}

void Census::awaitNone() {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return alive.empty(); });
}

}  // namespace tarnutil_test
