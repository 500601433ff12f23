// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/Mutex.h>

#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "fault.h"
#include "sanitized.h"
#include "thrown.h"
#include "trail.h"

using tarnutil::Mutex;
using namespace tarnutil_test;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::KilledBySignal;

namespace {

static_assert(int{Mutex::NORMAL} == PTHREAD_MUTEX_NORMAL);
static_assert(int{Mutex::RECURSIVE} == PTHREAD_MUTEX_RECURSIVE);
static_assert(int{Mutex::ERRORCHECK} == PTHREAD_MUTEX_ERRORCHECK);
static_assert(!std::is_copy_constructible_v<Mutex> && !std::is_copy_assignable_v<Mutex>);
static_assert(!std::is_copy_constructible_v<Mutex::LockHolder> &&
              !std::is_copy_assignable_v<Mutex::LockHolder>);
static_assert(!std::is_convertible_v<Mutex&, Mutex::LockHolder>, "taking a lock is said aloud");

// The number of live attribute objects that the mutexes built so far have left.
long attributesAlive() {
    return static_cast<long>(Fault::calls(Call::pthread_mutexattr_init)) -
           static_cast<long>(Fault::calls(Call::pthread_mutexattr_destroy));
}

// ---- Failures ----

// Each does one thing to a mutex, with `call` failing in it with ENOMEM.
void build(bool abort, Call call) {
    const Fault fault(call, ENOMEM);
    const Mutex mutex(abort, Mutex::NORMAL);
}
void lock(bool abort, Call call) {
    Mutex mutex(abort, Mutex::NORMAL);
    const Fault fault(call, ENOMEM);
    mutex.lock();
}
void tryLock(bool abort, Call call) {
    Mutex mutex(abort, Mutex::NORMAL);
    const Fault fault(call, ENOMEM);
    (void)mutex.tryLock();
}
void unlock(bool abort, Call call) {
    Mutex mutex(abort, Mutex::RECURSIVE);
    mutex.lock();
    struct Released {  // whatever happens, the mutex is not destroyed while it is held
        Mutex& mutex;
        ~Released() { mutex.unlock(); }
    } const released{mutex};
    const Fault fault(call, ENOMEM);
    mutex.unlock();
}
void hold(bool abort, Call call) {
    Mutex mutex(abort, Mutex::NORMAL);
    const Fault fault(call, ENOMEM);
    const Mutex::LockHolder holder(mutex);
}

struct FailureCase {
    const char* says;
    void (*operation)(bool abort, Call call);
    Call call;
    const char* message;
};
std::ostream& operator<<(std::ostream& out, const FailureCase& row) { return out << row.says; }

const FailureCase kFailureCases[] = {
    // clang-format off
    // says                        operation call                             message
    {"no attributes",              build,    Call::pthread_mutexattr_init,    "Could not initialize mutex attributes: "},
    {"a kind that is refused",     build,    Call::pthread_mutexattr_settype, "Could not set mutex type: "},
    {"no mutex",                   build,    Call::pthread_mutex_init,        "Could not initialize mutex: "},
    {"no lock",                    lock,     Call::pthread_mutex_lock,        "Could not lock mutex: "},
    {"no lock for a holder",       hold,     Call::pthread_mutex_lock,        "Could not lock mutex: "},
    {"no attempt",                 tryLock,  Call::pthread_mutex_trylock,     "Could not perform mutex trylock operation: "},
    {"no release",                 unlock,   Call::pthread_mutex_unlock,      "Could not unlock mutex: "},
    // clang-format on
};

class MutexFailureTest : public testing::TestWithParam<FailureCase> {};
INSTANTIATE_TEST_SUITE_P(All, MutexFailureTest, testing::ValuesIn(kFailureCases));

TEST_P(MutexFailureTest, ThrowsItsMessageAndTheSystemsText) {
    const FailureCase& row = GetParam();
    EXPECT_EQ(thrown([&] { row.operation(/*abort=*/false, row.call); }),
              refused(row.message, ENOMEM));
}

TEST_P(MutexFailureTest, DestroysTheAttributesThatItBuilt) {
    const FailureCase& row = GetParam();
    const bool neverBuilt = row.call == Call::pthread_mutexattr_init;
    const long before = attributesAlive();
    EXPECT_NE(thrown([&] { row.operation(/*abort=*/false, row.call); }), "(nothing was thrown)");
    EXPECT_EQ(attributesAlive(), before + (neverBuilt ? 1 : 0));
}

TEST_P(MutexFailureTest, AbortsWithoutAWord) {
    const FailureCase& row = GetParam();
    EXPECT_EXIT(row.operation(/*abort=*/true, row.call), KilledBySignal(SIGABRT), testing::Eq(""));
}

// What the process has destroyed, and what it may have when it aborts.
unsigned long destructions() {
    return Fault::calls(Call::pthread_mutexattr_destroy) +
           Fault::calls(Call::pthread_mutex_destroy);
}
unsigned long allowed_destructions;

void exitAtAbort(int) { _exit(destructions() == allowed_destructions ? 0 : 1); }

TEST_P(MutexFailureTest, DestroysNothingBeforeItAborts) {
    const FailureCase& row = GetParam();
    const auto abortInstead = [&] {
        (void)std::signal(SIGABRT, exitAtAbort);
        const bool builtBefore = row.operation != build;  // and its attributes destroyed
        allowed_destructions = destructions() + (builtBefore ? 1 : 0);
        row.operation(/*abort=*/true, row.call);
    };
    EXPECT_EXIT(abortInstead(), ExitedWithCode(0), testing::Eq(""));
}

TEST(MutexTest, FailedDestructionIsSilent) {
    auto mutex = std::make_unique<Mutex>(/*abort=*/false, Mutex::NORMAL);
    const Fault fault(Call::pthread_mutex_destroy, EBUSY);
    mutex.reset();
    EXPECT_TRUE(fault.hasFired());
}

TEST(MutexTest, FailedDestructionIsSilentEvenWithoutMemoryForItsMessage) {
    auto mutex = std::make_unique<Mutex>(/*abort=*/false, Mutex::NORMAL);
    const Fault fault(Call::pthread_mutex_destroy, EBUSY);
    const Fault noMemory(Call::operator_new);
    mutex.reset();
    EXPECT_TRUE(noMemory.hasFired());
}

TEST(MutexTest, FailedDestructionAbortsAMutexThatWasToldTo) {
    const auto destroy = [] {
        const Fault fault(Call::pthread_mutex_destroy, EBUSY);
        const Mutex mutex(/*abort=*/true, Mutex::NORMAL);
    };
    EXPECT_EXIT(destroy(), KilledBySignal(SIGABRT), testing::Eq(""));
}

// TSan calls it an error of the program, which it is.
#if !TARNUTIL_TEST_TSAN
TEST(MutexTest, DestroyingAHeldMutexThrowsNothing) {
    for (const Mutex::Kind kind : {Mutex::NORMAL, Mutex::ERRORCHECK}) {
        Mutex mutex(/*abort=*/false, kind);
        mutex.lock();
    }
}
#endif

// ---- Building ----

TEST(MutexTest, IsBuiltInFourStepsWithTheKindItWasGiven) {
    for (const int kind : {Mutex::NORMAL, Mutex::RECURSIVE, Mutex::ERRORCHECK}) {
        const Trail trail({Call::pthread_mutexattr_init, Call::pthread_mutexattr_settype,
                           Call::pthread_mutex_init, Call::pthread_mutexattr_destroy});
        const Mutex mutex(/*abort=*/false, static_cast<Mutex::Kind>(kind));
        EXPECT_THAT(trail.ofParent(),
                    ElementsAre("pthread_mutexattr_init()",
                                "pthread_mutexattr_settype(" + std::to_string(kind) + ")",
                                "pthread_mutex_init()", "pthread_mutexattr_destroy()"));
    }
}

// ---- Locking ----

// Whether another thread could have the lock; gives it back.
bool othersCanTake(Mutex& mutex) {
    bool taken = false;
    std::thread([&] {
        taken = mutex.tryLock();
        if (taken) mutex.unlock();
    }).join();
    return taken;
}

TEST(MutexTest, TryLockSaysWhetherItTookTheLock) {
    Mutex mutex(/*abort=*/true, Mutex::NORMAL);
    const bool taken = mutex.tryLock();
    EXPECT_TRUE(taken);
    EXPECT_FALSE(othersCanTake(mutex));
    EXPECT_FALSE(mutex.tryLock());
    mutex.unlock();
    EXPECT_TRUE(othersCanTake(mutex));
}

TEST(MutexTest, RecursiveMutexIsHeldAsOftenAsItWasLocked) {
    Mutex mutex(/*abort=*/false, Mutex::RECURSIVE);
    mutex.lock();
    mutex.lock();
    mutex.unlock();
    EXPECT_FALSE(othersCanTake(mutex));
    mutex.unlock();
    EXPECT_TRUE(othersCanTake(mutex));
}

TEST(MutexTest, ErrorCheckingMutexReportsMisuse) {
    Mutex mutex(/*abort=*/false, Mutex::ERRORCHECK);
    mutex.lock();
    EXPECT_EQ(thrown([&] { mutex.lock(); }), refused("Could not lock mutex: ", EDEADLK));
    mutex.unlock();
// TSan calls it an error of the program, which it is.
#if !TARNUTIL_TEST_TSAN
    EXPECT_EQ(thrown([&] { mutex.unlock(); }), refused("Could not unlock mutex: ", EPERM));
#endif
}

TEST(MutexTest, HoldersKeepThreadsApart) {
    Mutex mutex(/*abort=*/true, Mutex::NORMAL);
    long sum = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 5000; ++n) {
                const Mutex::LockHolder holder(mutex);
                ++sum;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(sum, 20000);
}

// ---- LockHolder ----

const std::initializer_list<Call> kLocking = {Call::pthread_mutex_lock, Call::pthread_mutex_unlock};

TEST(LockHolderTest, HoldsForItsLife) {
    Mutex mutex(/*abort=*/false, Mutex::ERRORCHECK);
    const Trail trail(kLocking);
    {
        const Mutex::LockHolder holder(mutex);
        EXPECT_THAT(trail.ofParent(), ElementsAre("pthread_mutex_lock()"));
    }
    EXPECT_THAT(trail.ofParent(), ElementsAre("pthread_mutex_lock()", "pthread_mutex_unlock()"));
}

TEST(LockHolderTest, EarlyReleaseCountsOnce) {
    Mutex mutex(/*abort=*/false, Mutex::ERRORCHECK);
    const Trail trail(kLocking);
    {
        Mutex::LockHolder holder(mutex);
        holder.unlock();
        holder.unlock();
    }
    EXPECT_THAT(trail.ofParent(), ElementsAre("pthread_mutex_lock()", "pthread_mutex_unlock()"));
}

TEST(LockHolderTest, FailedLockLeavesNoHolder) {
    Mutex mutex(/*abort=*/false, Mutex::ERRORCHECK);
    const Fault fault(Call::pthread_mutex_lock, EAGAIN);
    const Trail trail(kLocking);
    EXPECT_EQ(thrown([&] { const Mutex::LockHolder holder(mutex); }),
              refused("Could not lock mutex: ", EAGAIN));
    EXPECT_THAT(trail.ofParent(), ElementsAre("pthread_mutex_lock()"));
}

TEST(LockHolderTest, FailedReleaseIsTriedAgain) {
    Mutex mutex(/*abort=*/false, Mutex::ERRORCHECK);
    {
        Mutex::LockHolder holder(mutex);
        {
            const Fault fault(Call::pthread_mutex_unlock, EPERM);
            EXPECT_EQ(thrown([&] { holder.unlock(); }), refused("Could not unlock mutex: ", EPERM));
        }
        EXPECT_FALSE(mutex.tryLock());
    }
    const bool released = mutex.tryLock();
    EXPECT_TRUE(released);
    if (released) mutex.unlock();
}

TEST(LockHolderTest, FailedReleaseAtItsEndIsDropped) {
    Mutex mutex(/*abort=*/false, Mutex::NORMAL);
    {
        const Fault fault(Call::pthread_mutex_unlock, EPERM);
        { const Mutex::LockHolder holder(mutex); }
        EXPECT_TRUE(fault.hasFired());
    }
    mutex.unlock();
}

TEST(LockHolderTest, FailedReleaseAtItsEndAbortsAMutexThatWasToldTo) {
    const auto release = [] {
        Mutex mutex(/*abort=*/true, Mutex::NORMAL);
        const Fault fault(Call::pthread_mutex_unlock, EPERM);
        const Mutex::LockHolder holder(mutex);
    };
    EXPECT_EXIT(release(), KilledBySignal(SIGABRT), testing::Eq(""));
}

}  // namespace
