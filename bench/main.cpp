// SPDX-License-Identifier: Apache-2.0
// Runs the benchmarks beside one thread that sleeps: a process that never had a second thread locks
// without atomics, which no server does.
#include <benchmark/benchmark.h>

#include <future>
#include <thread>

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;

    std::promise<void> done;
    std::thread sleeper([&] { done.get_future().wait(); });
    benchmark::RunSpecifiedBenchmarks();
    done.set_value();
    sleeper.join();
}
