// SPDX-License-Identifier: Apache-2.0
// Building an exception, beside the calls of libc that it stands on and what others throw.
#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <algorithm>
#include <array>
#include <boost/stacktrace.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <tarnutil/Exception.h>

#include "bench.h"

namespace {

const std::string kMessage = "Could not do what was asked for";

struct Free {
    void operator()(void* block) const { std::free(block); }
};

// The mangled name in a line of backtrace_symbols, or nothing.
std::string mangledName(const char* line) {
    const char* open = std::strchr(line, '(');
    const char* plus = open != nullptr ? std::strchr(open, '+') : nullptr;
    return plus != nullptr ? std::string(open + 1, plus) : std::string();
}

// The frames that the last call of backtrace found, the library's included: those of an exception
// begin with its constructors', whose symbols take libc a walk over another module.
std::array<void*, 64> found_frames;
int found_count = 0;

// Calls `work` with `depth` more frames on the stack.
template <class Work>
[[gnu::noinline]] void below(int depth, Work work) {
    if (depth == 0) {
        work();
    } else {
        below(depth - 1, work);
    }
    __asm__ volatile("" ::: "memory");  // no tail call
}

// What a trace takes at the least: walking the stack, the symbols of `frames`, each name demangled.
std::vector<std::string> traceByHand(const std::array<void*, 64>& frames, int count) {
    std::array<void*, 64> walked;
    (void)backtrace(walked.data(), count);
    const std::unique_ptr<char*, Free> symbols(backtrace_symbols(frames.data(), count));
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const std::string mangled = mangledName(symbols.get()[i]);
        int status = -1;
        const std::unique_ptr<char, Free> readable(
            abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status));
        names.emplace_back(readable ? readable.get() : mangled);
    }
    return names;
}

void addTraceByHand(int depth) {
    tarnutil_bench::add("Exception/construct/" + std::to_string(depth) + "/backtrace_by_hand",
                        [depth](benchmark::State& state) {
                            below(depth,
                                  [] { benchmark::DoNotOptimize(tarnutil::Exception(kMessage)); });
                            const std::array<void*, 64> frames = found_frames;
                            const int count = found_count;
                            below(depth + 3, [&] {  // as many frames as below the constructors
                                for (auto _ : state) {
                                    benchmark::DoNotOptimize(traceByHand(frames, count));
                                }
                            });
                        });
}

template <class Work>
void row(int depth, const char* who, Work work) {
    tarnutil_bench::add("Exception/construct/" + std::to_string(depth) + "/" + who,
                        [depth, work](benchmark::State& state) {
                            below(depth, [&] {
                                for (auto _ : state) benchmark::DoNotOptimize(work());
                            });
                        });
}

void addAll() {
    for (const int depth : {4, 16, 64}) {
        row(depth, "tarnutil", [] { return tarnutil::Exception(kMessage); });
        addTraceByHand(depth);
        row(depth, "boost::stacktrace",
            [] { return boost::stacktrace::to_string(boost::stacktrace::stacktrace()); });
        row(depth, "runtime_error", [] { return std::runtime_error(kMessage); });
        row(depth, "runtime_error+boost::stacktrace", [] {
            return std::make_pair(std::runtime_error(kMessage), boost::stacktrace::stacktrace());
        });
    }
    tarnutil_bench::add("Exception/createMsg/31/tarnutil", [](benchmark::State& state) {
        for (auto _ : state) {
            benchmark::DoNotOptimize(tarnutil::ErrnoException::createMsg(kMessage, ENOENT));
        }
    });
    tarnutil_bench::add("Exception/createMsg/31/system_error", [](benchmark::State& state) {
        for (auto _ : state) {
            benchmark::DoNotOptimize(std::system_error(ENOENT, std::generic_category(), kMessage));
        }
    });
}

const tarnutil_bench::Added added(addAll);

}  // namespace

extern "C" int noted_backtrace(void** frames, int size) __asm__("backtrace");
extern "C" int noted_backtrace(void** frames, int size) {
    using Backtrace = int (*)(void**, int);
    static const auto real = reinterpret_cast<Backtrace>(dlsym(RTLD_NEXT, "backtrace"));
    found_count = real(frames, size);
    std::copy(frames, frames + found_count, found_frames.begin());
    return found_count;
}
