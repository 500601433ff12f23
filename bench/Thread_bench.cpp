// SPDX-License-Identifier: Apache-2.0
// Starting a thread and waiting for its end.
#include <Poco/Runnable.h>
#include <Poco/Thread.h>
#include <pthread.h>

#include <memory>
#include <string>
#include <thread>

#include <tarnutil/Thread.h>

#include "bench.h"

namespace {

struct Idle : tarnutil::Runnable {
    void run() override {}
};
struct PocoIdle : Poco::Runnable {
    void run() override {}
};

void ours() {
    tarnutil::Thread thread(std::make_unique<Idle>(), /*startDetached=*/false);
    thread.start();
    const std::unique_ptr<tarnutil::Runnable> back(thread.join());
}

void byHand() {
    pthread_t thread;
    (void)pthread_create(
        &thread, nullptr, [](void* nothing) { return nothing; }, nullptr);
    (void)pthread_join(thread, nullptr);
}

void standard() {
    std::thread([] {}).join();
}

void poco() {
    PocoIdle idle;
    Poco::Thread thread;
    thread.start(idle);
    thread.join();
}

void row(const std::string& who, void (*work)()) {
    tarnutil_bench::add("Thread/start_join/1/" + who, [work](benchmark::State& state) {
        for (auto _ : state) work();
    })->UseRealTime();
}

void addAll() {
    row("tarnutil", ours);
    row("pthread_create+pthread_join", byHand);
    row("std::thread", standard);
    row("Poco::Thread", poco);
}

const tarnutil_bench::Added added(addAll);

}  // namespace
