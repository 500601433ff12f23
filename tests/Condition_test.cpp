// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Condition.h>

#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "cancelled.h"
#include "fault.h"
#include "sanitized.h"
#include "thrown.h"
#include "trail.h"

using tarnutil::Condition;
using tarnutil::Mutex;
using namespace tarnutil_test;
using testing::KilledBySignal;

namespace {

static_assert(!std::is_copy_constructible_v<Condition> && !std::is_copy_assignable_v<Condition>);
static_assert(!std::is_convertible_v<bool, Condition>);

// ---- Failures ----

// Each does one thing to a condition, with `call` failing in it with EINVAL.
void build(bool abort, Call call) {
    const Fault fault(call, EINVAL);
    const Condition condition(abort);
}
void signal(bool abort, Call call) {
    Condition condition(abort);
    const Fault fault(call, EINVAL);
    condition.signal();
}
void broadcast(bool abort, Call call) {
    Condition condition(abort);
    const Fault fault(call, EINVAL);
    condition.broadcast();
}
void wait(bool abort, Call call) {
    Mutex mutex(/*abort=*/true, Mutex::NORMAL);
    Condition condition(abort);
    const Mutex::LockHolder lock(mutex);
    const Fault fault(call, EINVAL);
    condition.wait(mutex);
}
void timedWait(bool abort, Call call) {
    Mutex mutex(/*abort=*/true, Mutex::NORMAL);
    Condition condition(abort);
    const Mutex::LockHolder lock(mutex);
    const Fault fault(call, EINVAL);
    (void)condition.timedWait(mutex, 0);
}

struct FailureCase {
    const char* says;
    void (*operation)(bool abort, Call call);
    Call call;
    std::string message;
};
std::ostream& operator<<(std::ostream& out, const FailureCase& row) { return out << row.says; }

const std::string kInvalid = std::strerror(EINVAL);
const FailureCase kFailureCases[] = {
    // clang-format off
    // says                   operation  call                          message
    {"no condition",          build,     Call::pthread_cond_init,      "Could not initialize condition: " + kInvalid},
    {"no signal",             signal,    Call::pthread_cond_signal,    "Could not signal on condition."},
    {"no broadcast",          broadcast, Call::pthread_cond_broadcast, "Could not broadcast on condition."},
    {"no wait",               wait,      Call::pthread_cond_wait,      "Could not wait on condition."},
    {"no time",               timedWait, Call::gettimeofday,           "Could not get time: " + kInvalid},
    {"no wait to a deadline", timedWait, Call::pthread_cond_timedwait, "Could not perform condition timedwait operation: " + kInvalid},
    // clang-format on
};

class ConditionFailureTest : public testing::TestWithParam<FailureCase> {};
INSTANTIATE_TEST_SUITE_P(All, ConditionFailureTest, testing::ValuesIn(kFailureCases));

TEST_P(ConditionFailureTest, ThrowsItsMessage) {
    const FailureCase& row = GetParam();
    EXPECT_EQ(thrown([&] { row.operation(/*abort=*/false, row.call); }),
              "tarnutil::Exception: " + row.message);
}

TEST_P(ConditionFailureTest, AbortsWithoutAWord) {
    const FailureCase& row = GetParam();
    EXPECT_EXIT(row.operation(/*abort=*/true, row.call), KilledBySignal(SIGABRT), testing::Eq(""));
}

TEST(ConditionTest, FailedDestructionIsSilent) {
    auto condition = std::make_unique<Condition>(/*abort=*/false);
    const Fault fault(Call::pthread_cond_destroy, EBUSY);
    condition.reset();
    EXPECT_TRUE(fault.hasFired());
}

TEST(ConditionTest, FailedDestructionIsSilentEvenWithoutMemoryForItsMessage) {
    auto condition = std::make_unique<Condition>(/*abort=*/false);
    const Fault fault(Call::pthread_cond_destroy, EBUSY);
    const Fault noMemory(Call::operator_new);
    condition.reset();
    EXPECT_TRUE(noMemory.hasFired());
}

TEST(ConditionTest, FailedDestructionAbortsAConditionThatWasToldTo) {
    const auto destroy = [] {
        const Fault fault(Call::pthread_cond_destroy, EBUSY);
        const Condition condition(/*abort=*/true);
    };
    EXPECT_EXIT(destroy(), KilledBySignal(SIGABRT), testing::Eq(""));
}

// ---- Waiting ----

// A mutex, a condition, and the number that they guard and announce.
struct Counter {
    Mutex mutex{/*abort=*/true, Mutex::NORMAL};
    Condition changed{/*abort=*/true};
    int value TARNUTIL_GUARDED_BY(mutex) = 0;

    void add(int amount, void (Condition::*wake)()) {
        const Mutex::LockHolder lock(mutex);
        value += amount;
        (changed.*wake)();
    }
    void await(int atLeast) {
        const Mutex::LockHolder lock(mutex);
        while (value < atLeast) changed.wait(mutex);
    }
};

TEST(ConditionTest, SignalWakesAWaiter) {
    Counter ping, pong;
    std::thread partner([&] {
        for (int i = 1; i <= 1000; ++i) {
            ping.await(i);
            pong.add(1, &Condition::signal);
        }
    });
    for (int i = 1; i <= 1000; ++i) {
        ping.add(1, &Condition::signal);
        pong.await(i);
    }
    partner.join();
}

TEST(ConditionTest, BroadcastWakesAll) {
    Counter waiting, go;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            waiting.add(1, &Condition::signal);
            go.await(1);
        });
    }
    waiting.await(4);
    go.add(1, &Condition::broadcast);
    for (std::thread& thread : threads) thread.join();
}

TEST(ConditionTest, TimedWaitIsTrueWhenWokenBeforeTheDeadline) {
    Counter counter;
    std::thread waker;
    {
        const Mutex::LockHolder lock(counter.mutex);
        waker = std::thread([&] { counter.add(1, &Condition::signal); });
        while (counter.value == 0) EXPECT_TRUE(counter.changed.timedWait(counter.mutex, 60000));
    }
    waker.join();
}

TEST(ConditionTest, SignalWithNobodyWaitingIsLost) {
    Counter counter;
    counter.changed.signal();
    counter.changed.broadcast();
    const Mutex::LockHolder lock(counter.mutex);
    EXPECT_FALSE(counter.changed.timedWait(counter.mutex, 0));
}

TEST(ConditionTest, MutexIsHeldAgainAfterAWait) {
    Mutex mutex(/*abort=*/true, Mutex::NORMAL);
    Condition condition(/*abort=*/true);
    const Mutex::LockHolder lock(mutex);
    EXPECT_FALSE(condition.timedWait(mutex, 0));
    std::thread([&] { EXPECT_FALSE(mutex.tryLock()); }).join();
}

#if !TARNUTIL_TEST_ASAN
void waitCancelled(Condition& condition, Mutex& mutex) {
    const Mutex::LockHolder lock(mutex);
    pthread_cancel(pthread_self());
    condition.wait(mutex);
}
void timedWaitCancelled(Condition& condition, Mutex& mutex) {
    const Mutex::LockHolder lock(mutex);
    pthread_cancel(pthread_self());
    (void)condition.timedWait(mutex, 60000);
}

TEST(ConditionTest, CancelledWaiterGivesTheMutexBack) {
    for (auto* const waiting : {waitCancelled, timedWaitCancelled}) {
        Mutex mutex(/*abort=*/true, Mutex::NORMAL);
        Condition condition(/*abort=*/true);
        EXPECT_TRUE(endsCancelled([&] { waiting(condition, mutex); }));
        const bool taken = mutex.tryLock();
        EXPECT_TRUE(taken);
        if (taken) mutex.unlock();
    }
}
#endif

// ---- Deadlines ----

TEST(ConditionTest, DeadlineThatPassesIsFalse) {
    for (const unsigned long timeout : {0UL, 999UL}) {
        Mutex mutex(/*abort=*/true, Mutex::NORMAL);
        Condition condition(/*abort=*/true);
        const Mutex::LockHolder lock(mutex);
        EXPECT_FALSE(condition.timedWait(mutex, timeout)) << timeout;
    }
}

TEST(ConditionTest, OneAndAHalfSecondsAreOne) {
    Mutex mutex(/*abort=*/true, Mutex::NORMAL);
    Condition condition(/*abort=*/true);
    const Mutex::LockHolder lock(mutex);
    const auto begin = std::chrono::system_clock::now();
    EXPECT_FALSE(condition.timedWait(mutex, 1500));
    EXPECT_GE(std::chrono::system_clock::now() - begin, std::chrono::seconds(1));
}

long long microseconds(const timeval& at) { return at.tv_sec * 1000000LL + at.tv_usec; }

long long currentMicroseconds() {
    timeval now;
    gettimeofday(&now, nullptr);
    return microseconds(now);
}

// The point of time that reached the system in a timedWait of `timeoutMs`, which lets none pass.
timespec deadlineOf(unsigned long timeoutMs) {
    Mutex mutex(/*abort=*/true, Mutex::NORMAL);
    Condition condition(/*abort=*/true);
    const Mutex::LockHolder lock(mutex);
    const Trail trail({Call::pthread_cond_timedwait});
    const Fault fault(Call::pthread_cond_timedwait, ETIMEDOUT);
    EXPECT_FALSE(condition.timedWait(mutex, timeoutMs));
    timespec at{};
    EXPECT_EQ(std::sscanf(trail.ofParent().at(0).c_str(), "pthread_cond_timedwait(%ld, %ld)",
                          &at.tv_sec, &at.tv_nsec),
              2);
    return at;
}

struct DeadlineCase {
    unsigned long timeoutMs;
    long long seconds;
    long nanoseconds;
};

const DeadlineCase kDeadlineCases[] = {
    // clang-format off
    // timeout in ms  s later                       ns later
    {0,               0,                            0},
    {1,               0,                            1},
    {999,             0,                            999},
    {1000,            1,                            0},
    {1500,            1,                            500},
    {2999,            2,                            999},
    {3600000,         3600,                         0},
    {UINT_MAX,        4294967,                      295},
    {ULONG_MAX,       18446744073709551LL,          615},
    // clang-format on
};

TEST(ConditionTest, OnlyWholeSecondsLengthenTheWait) {
    for (const DeadlineCase& row : kDeadlineCases) {
        SCOPED_TRACE(row.timeoutMs);
        const long long earliest = currentMicroseconds();
        const timespec at = deadlineOf(row.timeoutMs);
        const long long latest = currentMicroseconds();
        EXPECT_EQ(at.tv_nsec % 1000, row.nanoseconds) << "the clock gives whole microseconds";
        EXPECT_LT(at.tv_nsec, 1000000000);
        const timeval began{at.tv_sec - static_cast<time_t>(row.seconds), at.tv_nsec / 1000};
        EXPECT_GE(microseconds(began), earliest);
        EXPECT_LE(microseconds(began), latest);
    }
}

}  // namespace
