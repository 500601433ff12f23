// SPDX-License-Identifier: Apache-2.0
// Locking, beside the mutex that the library wraps and the ones that users would pick instead.
#include <Poco/Mutex.h>
#include <absl/synchronization/mutex.h>
#include <pthread.h>

#include <mutex>
#include <string>

#include <tarnutil/Mutex.h>

#include "bench.h"

namespace {

// Every mutex under the same three names, each at the start of a cache line.
struct alignas(64) Ours {
    tarnutil::Mutex mutex{/*abort=*/false, tarnutil::Mutex::NORMAL};
    void lock() { mutex.lock(); }
    bool tryLock() { return mutex.tryLock(); }
    void unlock() { mutex.unlock(); }
    auto hold() { return tarnutil::Mutex::LockHolder(mutex); }
};
struct alignas(64) Pthread {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    void lock() { (void)pthread_mutex_lock(&mutex); }
    bool tryLock() { return pthread_mutex_trylock(&mutex) == 0; }
    void unlock() { (void)pthread_mutex_unlock(&mutex); }
};
struct alignas(64) Standard {
    std::mutex mutex;
    void lock() { mutex.lock(); }
    bool tryLock() { return mutex.try_lock(); }
    void unlock() { mutex.unlock(); }
    auto hold() { return std::lock_guard<std::mutex>(mutex); }
};
struct alignas(64) Abseil {
    absl::Mutex mutex;
    void lock() ABSL_NO_THREAD_SAFETY_ANALYSIS { mutex.Lock(); }
    bool tryLock() ABSL_NO_THREAD_SAFETY_ANALYSIS { return mutex.TryLock(); }
    void unlock() ABSL_NO_THREAD_SAFETY_ANALYSIS { mutex.Unlock(); }
    auto hold() { return absl::MutexLock(&mutex); }
};
struct alignas(64) PocoMutex {
    Poco::Mutex mutex;
    void lock() { mutex.lock(); }
    bool tryLock() { return mutex.tryLock(); }
    void unlock() { mutex.unlock(); }
    auto hold() { return Poco::Mutex::ScopedLock(mutex); }
};

template <class Lock>
void addLocking(const std::string& who) {
    tarnutil_bench::add("Mutex/lock_unlock/1/" + who, [](benchmark::State& state) {
        Lock lock;
        for (auto _ : state) {
            lock.lock();
            benchmark::ClobberMemory();
            lock.unlock();
        }
    });
    tarnutil_bench::add("Mutex/tryLock/1/" + who, [](benchmark::State& state) {
        Lock lock;
        for (auto _ : state) {
            benchmark::DoNotOptimize(lock.tryLock());
            lock.unlock();
        }
    });
    // Two threads take turns at a counter.
    static Lock shared;
    static long counter;
    tarnutil_bench::add("Mutex/lock_unlock/2/" + who,
                        [](benchmark::State& state) {
                            for (auto _ : state) {
                                shared.lock();
                                benchmark::DoNotOptimize(++counter);
                                shared.unlock();
                            }
                        })
        ->Threads(2)
        ->UseRealTime();
}

template <class Lock>
void addHolding(const std::string& who) {
    tarnutil_bench::add("Mutex/LockHolder/1/" + who, [](benchmark::State& state) {
        Lock lock;
        for (auto _ : state) {
            [[maybe_unused]] const auto holder = lock.hold();
            benchmark::ClobberMemory();
        }
    });
}

void addAll() {
    addLocking<Ours>("tarnutil");
    addLocking<Pthread>("pthread_mutex_t");
    addLocking<Standard>("std::mutex");
    addLocking<Abseil>("absl::Mutex");
    addLocking<PocoMutex>("Poco::Mutex");
    addHolding<Ours>("tarnutil");
    addHolding<Standard>("std::lock_guard");
    addHolding<Abseil>("absl::MutexLock");
    addHolding<PocoMutex>("Poco::ScopedLock");
}

const tarnutil_bench::Added added(addAll);

}  // namespace
