// SPDX-License-Identifier: Apache-2.0
// Running a batch of items on a thread each. The rows of rising size show how it grows.
#include <pthread.h>

#include <cstddef>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <tarnutil/Executor.h>

#include "bench.h"

namespace {

struct Idle : tarnutil::Runnable {
    void run() override {}
};

void* runIdle(void* item) {
    static_cast<Idle*>(item)->run();
    return nullptr;
}

void ours(std::vector<Idle>& items) {
    std::vector<tarnutil::Runnable*> batch;
    batch.reserve(items.size());
    for (Idle& item : items) batch.push_back(&item);
    tarnutil::Executor::execute(std::move(batch), nullptr, nullptr, nullptr, nullptr);
}

void byHand(std::vector<Idle>& items) {
    std::vector<pthread_t> threads(items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        (void)pthread_create(&threads[i], nullptr, runIdle, &items[i]);
    }
    for (const pthread_t thread : threads) (void)pthread_join(thread, nullptr);
}

void threads(std::vector<Idle>& items) {
    std::vector<std::thread> all;
    all.reserve(items.size());
    for (Idle& item : items) all.emplace_back([&item] { item.run(); });
    for (std::thread& thread : all) thread.join();
}

void async(std::vector<Idle>& items) {
    std::vector<std::future<void>> all;
    all.reserve(items.size());
    for (Idle& item : items) {
        all.push_back(std::async(std::launch::async, [&item] { item.run(); }));
    }
    for (std::future<void>& future : all) future.get();
}

void row(std::size_t size, const std::string& who, void (*work)(std::vector<Idle>&)) {
    const std::string name = "Executor/execute/" + std::to_string(size) + "/" + who;
    tarnutil_bench::add(name, [size, work](benchmark::State& state) {
        std::vector<Idle> items(size);
        for (auto _ : state) work(items);
        state.SetItemsProcessed(state.iterations() * static_cast<long>(size));
    })->UseRealTime();
}

void addAll() {
    for (const std::size_t size : {1U, 8U, 64U, 512U}) {
        row(size, "tarnutil", ours);
        row(size, "create_and_join", byHand);
        row(size, "std::thread", threads);
        row(size, "std::async", async);
    }
}

const tarnutil_bench::Added added(addAll);

}  // namespace
