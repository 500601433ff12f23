// How a benchmark is added: under a name that tells the report which rows belong together.
#ifndef TARNUTIL_BENCH_BENCH_H
#define TARNUTIL_BENCH_BENCH_H

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <utility>

namespace tarnutil_bench {

// Adds the benchmark `<module>/<operation>/<size>/<who>`, where `who` is "tarnutil" or a peer: rows
// that differ in their last part only are compared with each other. With TARNUTIL_BENCH_ITERATIONS
// in the environment it runs exactly so often, for counting instructions.
template <class Function>
benchmark::internal::Benchmark* add(const std::string& name, Function&& function) {
    auto* added = benchmark::RegisterBenchmark(name.c_str(), std::forward<Function>(function));
    if (const char* iterations = std::getenv("TARNUTIL_BENCH_ITERATIONS")) {
        added->Iterations(std::atol(iterations));
    }
    return added;
}

}  // namespace tarnutil_bench
#endif  // TARNUTIL_BENCH_BENCH_H
