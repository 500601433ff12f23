// SPDX-License-Identifier: Apache-2.0
// Loading the library into a fresh process, beside loading what it stands on. A C++ program has the
// C++ runtime before that, a C program gets it with the library.
#include <cstdio>
#include <memory>
#include <string>

#include "bench.h"

namespace {

struct ClosePipe {
    void operator()(FILE* stream) const { (void)pclose(stream); }
};

// The nanoseconds that `command` prints; negative if it does not.
double toldBy(const std::string& command) {
    const std::unique_ptr<FILE, ClosePipe> stream(popen(command.c_str(), "r"));
    double nanoseconds = -1;
    if (stream == nullptr || std::fscanf(stream.get(), "%lf", &nanoseconds) != 1) return -1;
    return nanoseconds;
}

void row(const std::string& name, const std::string& command) {
    tarnutil_bench::add("library/load/" + name, [command](benchmark::State& state) {
        for (auto _ : state) {
            const double nanoseconds = toldBy(command);
            if (nanoseconds < 0) state.SkipWithError("failed");
            state.SetIterationTime(nanoseconds / 1e9);
        }
    })->UseManualTime();
}

void addAll() {
    const std::string intoCxx = TARNUTIL_BENCH_LOAD_CXX;
    const std::string intoC = TARNUTIL_BENCH_LOAD_C;
    const std::string openssl = " libssl.so.3 libcrypto.so.3";
    row("into_C++/tarnutil", intoCxx + " " TARNUTIL_BENCH_LIBRARY);
    row("into_C++/libssl+libcrypto", intoCxx + openssl);
    row("into_C/tarnutil", intoC + " " TARNUTIL_BENCH_LIBRARY);
    row("into_C/libssl+libcrypto", intoC + openssl);
    row("into_C/libssl+libcrypto+libstdc++", intoC + openssl + " libstdc++.so.6");
}

const tarnutil_bench::Added added(addAll);

}  // namespace
