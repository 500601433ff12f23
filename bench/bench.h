// SPDX-License-Identifier: Apache-2.0
// How a benchmark is added: under a name that tells the report which rows belong together.
#ifndef TARNUTIL_BENCH_BENCH_H
#define TARNUTIL_BENCH_BENCH_H

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>

namespace tarnutil_bench {

// Adds the benchmark `<module>/<operation>/<size>/<who>`, where `who` is "tarnutil" or a peer: rows
// that differ in their last part only are compared with each other. A repetition runs `iterations`
// times; 0 is as often as fills the time asked for. With TARNUTIL_BENCH_ITERATIONS in the
// environment it runs exactly so often, for counting instructions.
template <class Function>
benchmark::internal::Benchmark* add(const std::string& name, Function&& function,
                                    std::int64_t iterations = 0) {
    auto* added = benchmark::RegisterBenchmark(name.c_str(), std::forward<Function>(function));
    if (const char* counted = std::getenv("TARNUTIL_BENCH_ITERATIONS")) {
        iterations = std::atol(counted);
    }
    if (iterations != 0) added->Iterations(iterations);
    return added;
}

// As `add`, for a function that is called once for each iteration and returns what it made, so that
// nothing of it is optimised away. `bytes`, if not 0, is how much each call works on.
template <class Work>
benchmark::internal::Benchmark* addWork(const std::string& name, std::size_t bytes, Work work) {
    return add(name, [work, bytes](benchmark::State& state) mutable {
        for (auto _ : state) {
            auto result = work();
            benchmark::DoNotOptimize(result);
        }
        if (bytes != 0) {
            state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
        }
    });
}

// Adds the rows of a file before main: `const Added added(addAll);`.
struct Added {
    explicit Added(void (*addAll)()) { addAll(); }
};

}  // namespace tarnutil_bench
#endif  // TARNUTIL_BENCH_BENCH_H
