// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Executor.h>

#include <gmock/gmock.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "cancelled.h"
#include "fault.h"
#include "leaks.h"
#include "runnables.h"
#include "thrown.h"

using tarnutil::Executor;
using tarnutil::Runnable;
using namespace tarnutil_test;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::KilledBySignal;

namespace {

static_assert(!std::is_default_constructible_v<Executor>);

const std::string kOutOfMemory = "tarnutil::Exception: Could not execute runnables: Out of memory";
const std::string kNotCreated =
    "tarnutil::Exception: Could not execute runnables: Could not create thread.";
const std::string kNotJoined =
    "tarnutil::Exception: Could not execute runnables: Could not join with thread.";

// Work that notes the thread it ran on.
class Item : public Runnable {
public:
    void run() override {
        runner = pthread_self();
        ++runs;
    }

    // Waits for the end of a thread that nobody joined.
    void join() const {
        while (runs == 0) std::this_thread::yield();
        EXPECT_EQ(pthread_join(runner, nullptr), 0);
    }

    std::atomic<int> runs{0};
    std::atomic<pthread_t> runner{};
};

// A batch of `kSize` items, and the callers' side of running it.
constexpr std::size_t kSize = 5;
struct Batch {
    std::array<Item, kSize> items;

    std::vector<Runnable*> runnables() {
        std::vector<Runnable*> all;
        for (Item& item : items) all.push_back(&item);
        return all;
    }
    void execute() { Executor::execute(runnables(), nullptr, nullptr, nullptr, nullptr); }
    std::vector<int> runs() const {
        std::vector<int> counts;
        for (const Item& item : items) counts.push_back(item.runs);
        return counts;
    }
};

// What `runs` says of a batch of which only the first items ran.
std::vector<int> onlyTheFirst(std::size_t count) {
    std::vector<int> counts(kSize, 0);
    std::fill_n(counts.begin(), count, 1);
    return counts;
}

TEST(ExecutorTest, EveryItemRunsOnAThreadOfItsOwn) {
    Batch batch;
    batch.execute();
    EXPECT_THAT(batch.runs(), Each(1));
    for (const Item& item : batch.items) {
        EXPECT_EQ(pthread_equal(item.runner, pthread_self()), 0);
    }
}

TEST(ExecutorTest, ItemsRunAtTheSameTime) {
    std::atomic<std::size_t> waiting{0};
    Census census;
    std::vector<std::unique_ptr<Runnable>> owners;
    std::vector<Runnable*> runnables;
    for (std::size_t i = 0; i < kSize; ++i) {
        owners.push_back(census.runnable([&] {  // ends when all are there
            ++waiting;
            while (waiting < kSize) std::this_thread::yield();
        }));
        runnables.push_back(owners.back().get());
    }
    Executor::execute(runnables, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(waiting, kSize);
    EXPECT_EQ(census.destroyed(), 0) << "the items stay the caller's";
}

// The steps of all threads of a batch.
struct Steps {
    std::mutex mutex;
    std::vector<std::string> names;
    std::vector<std::thread::id> threads;

    void add(const std::string& name) {
        const std::lock_guard<std::mutex> lock(mutex);
        names.push_back(name);
        threads.push_back(std::this_thread::get_id());
    }
    // Those of each thread, in order.
    std::vector<std::string> perThread() const {
        std::vector<std::string> all;
        for (const std::thread::id& id :
             std::set<std::thread::id>(threads.begin(), threads.end())) {
            std::string line;
            for (std::size_t i = 0; i < names.size(); ++i) {
                if (threads[i] == id) line += names[i] + " ";
            }
            all.push_back(line);
        }
        return all;
    }
};

void startup(void* steps) { static_cast<Steps*>(steps)->add("startup"); }
void cleanup(void* steps) { static_cast<Steps*>(steps)->add("cleanup"); }
void startupThatThrows(void* steps) {
    startup(steps);
    throw std::runtime_error("not for anybody");
}
void cleanupThatThrows(void* steps) {
    cleanup(steps);
    throw 1;
}

// What three threads do, each between the callbacks. They run at the same time, so that no two of
// them can have the same identity.
std::vector<std::string> stepsOfThree(void (*before)(void*), void (*after)(void*)) {
    Steps steps;
    std::atomic<int> arrived{0};
    Census census;
    std::vector<std::unique_ptr<Runnable>> owners;
    std::vector<Runnable*> runnables;
    for (int i = 0; i < 3; ++i) {
        owners.push_back(census.runnable([&] {
            ++arrived;
            while (arrived < 3) std::this_thread::yield();
            steps.add("run");
        }));
        runnables.push_back(owners.back().get());
    }
    Executor::execute(runnables, before, &steps, after, &steps);
    return steps.perThread();
}

TEST(ExecutorTest, CallbacksBracketEachItemOnItsThread) {
    EXPECT_THAT(stepsOfThree(nullptr, nullptr), ElementsAre("run ", "run ", "run "));
    EXPECT_THAT(stepsOfThree(startup, nullptr),
                ElementsAre("startup run ", "startup run ", "startup run "));
    EXPECT_THAT(stepsOfThree(nullptr, cleanup),
                ElementsAre("run cleanup ", "run cleanup ", "run cleanup "));
    EXPECT_THAT(
        stepsOfThree(startup, cleanup),
        ElementsAre("startup run cleanup ", "startup run cleanup ", "startup run cleanup "));
}

TEST(ExecutorTest, EachCallbackGetsItsOwnArgument) {
    Steps before;
    Steps after;
    Batch batch;
    Executor::execute(batch.runnables(), startup, &before, cleanup, &after);
    EXPECT_EQ(before.names, std::vector<std::string>(kSize, "startup"));
    EXPECT_EQ(after.names, std::vector<std::string>(kSize, "cleanup"));
}

TEST(ExecutorTest, WhatCallbacksThrowIsDropped) {
    EXPECT_THAT(
        stepsOfThree(startupThatThrows, cleanupThatThrows),
        ElementsAre("startup run cleanup ", "startup run cleanup ", "startup run cleanup "));
}

// Leaving the thread is no exception to be dropped.
TEST(ExecutorTest, ACallbackMayEndItsThread) {
    const auto leave = [](void*) { pthread_exit(nullptr); };
    Item kept, done;
    Executor::execute({&kept}, leave, nullptr, nullptr, nullptr);
    EXPECT_EQ(kept.runs, 0);
    Executor::execute({&done}, nullptr, nullptr, leave, nullptr);
    EXPECT_EQ(done.runs, 1);
}

TEST(ExecutorTest, EmptyBatchCreatesNoThreadAndCallsNobody) {
    Steps steps;
    const unsigned long before = Fault::calls(Call::pthread_create);
    Executor::execute({}, startup, &steps, cleanup, &steps);
    EXPECT_EQ(Fault::calls(Call::pthread_create), before);
    EXPECT_THAT(steps.names, IsEmpty());
}

TEST(ExecutorTest, FailedCreationLetsTheItemsBeforeItRun) {
    for (std::size_t nth = 1; nth <= kSize; ++nth) {
        SCOPED_TRACE(nth);
        Batch batch;
        const unsigned long joins = Fault::calls(Call::pthread_join);
        const Fault fault(Call::pthread_create, EAGAIN, nth);
        EXPECT_EQ(thrown([&] { batch.execute(); }), kNotCreated);
        EXPECT_EQ(batch.runs(), onlyTheFirst(nth - 1));
        EXPECT_EQ(Fault::calls(Call::pthread_join), joins + nth - 1);
    }
}

TEST(ExecutorTest, FailedCreationFreesTheRecordOfItsItem) {
    Batch batch;
    EXPECT_FALSE(growsEachTime([&] {
        const Fault fault(Call::pthread_create, EAGAIN);
        EXPECT_EQ(thrown([&] { batch.execute(); }), kNotCreated);
    }));
}

TEST(ExecutorTest, NoMemoryForAnItemIsAFailure) {
    for (std::size_t nth = 1; nth <= kSize; ++nth) {
        SCOPED_TRACE(nth);
        Batch batch;
        std::vector<Runnable*> runnables = batch.runnables();
        const unsigned long joins = Fault::calls(Call::pthread_join);
        const std::string text = thrown([&] {
            // Behind the table of threads.
            const Fault fault(Call::operator_new, 0, nth + 1);
            Executor::execute(std::move(runnables), nullptr, nullptr, nullptr, nullptr);
        });
        EXPECT_EQ(text, kOutOfMemory);
        EXPECT_EQ(batch.runs(), onlyTheFirst(nth - 1));
        EXPECT_EQ(Fault::calls(Call::pthread_join), joins + nth - 1);
    }
}

TEST(ExecutorTest, FailedJoinStillJoinsTheOthers) {
    for (std::size_t nth = 1; nth <= kSize; ++nth) {
        SCOPED_TRACE(nth);
        Batch batch;
        const unsigned long joins = Fault::calls(Call::pthread_join);
        {
            const Fault fault(Call::pthread_join, EINVAL, nth);
            EXPECT_EQ(thrown([&] { batch.execute(); }), kNotJoined);
        }
        EXPECT_EQ(Fault::calls(Call::pthread_join), joins + kSize);
        batch.items[nth - 1].join();
        EXPECT_THAT(batch.runs(), Each(1));
    }
}

TEST(ExecutorTest, FirstErrorWins) {
    Batch batch;
    const Fault create(Call::pthread_create, EAGAIN, 3);
    const Fault join(Call::pthread_join, EINVAL, 1);
    EXPECT_EQ(thrown([&] { batch.execute(); }), kNotCreated);
    EXPECT_TRUE(join.hasFired());
    batch.items[0].join();
}

TEST(ExecutorTest, CancelledCallerStillJoinsEveryThread) {
    const unsigned long joins = Fault::calls(Call::pthread_join);
    std::atomic<int> ended{0};
    int endedInside = 0;
    Census census;
    std::vector<std::unique_ptr<Runnable>> owners;
    std::vector<Runnable*> runnables;
    for (int i = 0; i < 3; ++i) {
        owners.push_back(census.runnable([&] {  // lasts until the caller waits for it
            while (Fault::calls(Call::pthread_join) < joins + 2) std::this_thread::yield();
            ++ended;
        }));
        runnables.push_back(owners.back().get());
    }
    EXPECT_TRUE(endsCancelled([&] {
        pthread_cancel(pthread_self());
        Executor::execute(runnables, nullptr, nullptr, nullptr, nullptr);
        endedInside = ended;
        pthread_testcancel();
    })) << "the cancellation comes once the batch has run";
    EXPECT_EQ(endedInside, 3);
}

TEST(ExecutorTest, ExceptionOfAnItemEndsTheProcess) {
    const auto runThrowing = [] {
        Census census;
        const auto item = census.runnable([] { throw std::runtime_error("out of run"); });
        Executor::execute({item.get()}, nullptr, nullptr, nullptr, nullptr);
    };
    EXPECT_EXIT(runThrowing(), KilledBySignal(SIGABRT), HasSubstr("out of run"));
}

TEST(ExecutorTest, BatchesLeaveNothingBehind) {
    constexpr std::size_t kLibcsOwn = 4096;  // what libc keeps of threads comes and goes
    Batch batch;
    batch.execute();
    const std::size_t before = liveBytes();
    for (int i = 0; i < 200; ++i) batch.execute();
    EXPECT_LT(liveBytes(), before + kLibcsOwn) << "a thousand records are more than that";
}

}  // namespace
