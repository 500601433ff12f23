// SPDX-License-Identifier: Apache-2.0
// Passing a ball between two threads, and signals that nobody waits for.
#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include <tarnutil/Condition.h>

#include "bench.h"

namespace {

// The side that has the ball, announced by a condition.
struct Ours {
    tarnutil::Mutex mutex{/*abort=*/false, tarnutil::Mutex::NORMAL};
    tarnutil::Condition changed{/*abort=*/false};
    int side = 0;

    void pass(int from, int to) {
        const tarnutil::Mutex::LockHolder lock(mutex);
        while (side != from) changed.wait(mutex);
        side = to;
        changed.signal();
    }
    void signal() { changed.signal(); }
};
struct Standard {
    std::mutex mutex;
    std::condition_variable changed;
    int side = 0;

    void pass(int from, int to) {
        std::unique_lock<std::mutex> lock(mutex);
        while (side != from) changed.wait(lock);
        side = to;
        changed.notify_one();
    }
    void signal() { changed.notify_one(); }
};
struct Pthread {
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;

    void signal() { (void)pthread_cond_signal(&changed); }
};

constexpr int kMine = 0;
constexpr int kPartners = 1;
constexpr int kNobodys = 2;

// There and back.
template <class Ball>
void pingPong(benchmark::State& state) {
    Ball ball;
    std::thread partner([&] {
        for (auto rounds = state.max_iterations; rounds > 0; --rounds) ball.pass(kPartners, kMine);
    });
    for (auto _ : state) ball.pass(kMine, kPartners);
    ball.pass(kMine, kNobodys);
    partner.join();
}

template <class Announcer>
void signalNobody(benchmark::State& state) {
    Announcer announcer;
    for (auto _ : state) announcer.signal();
}

void addAll() {
    const std::string pingPongs = "Condition/ping_pong/2/";
    tarnutil_bench::add(pingPongs + "tarnutil", pingPong<Ours>)->UseRealTime();
    tarnutil_bench::add(pingPongs + "std::condition_variable", pingPong<Standard>)->UseRealTime();
    const std::string signals = "Condition/signal_nobody/1/";
    tarnutil_bench::add(signals + "tarnutil", signalNobody<Ours>);
    tarnutil_bench::add(signals + "pthread_cond_signal", signalNobody<Pthread>);
    tarnutil_bench::add(signals + "std::condition_variable", signalNobody<Standard>);
}

const tarnutil_bench::Added added(addAll);

}  // namespace
