// SPDX-License-Identifier: Apache-2.0
// The functions that stand in front of the real ones: one for each row of calls.h.
//
// Each is defined under a name of its own and given the real one as its symbol, because the
// system's headers declare some of them in ways (noexcept, attributes) that a plain definition
// would repeat.
#include <arpa/inet.h>
#include <dirent.h>
#include <dlfcn.h>
#include <openssl/bio.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <optional>
#include <type_traits>

#include "fault.h"
#include "trail.h"

namespace tarnutil_test {
namespace {

// The next definition of `symbol` in link order: the real one, or a sanitizer's. Looked up once,
// without a guard that could itself take a lock.
template <class Function>
Function* next(std::atomic<void*>& found, const char* symbol) {
    void* definition = found.load(std::memory_order_relaxed);
    if (definition == nullptr) {
        definition = dlsym(RTLD_NEXT, symbol);
        found.store(definition, std::memory_order_relaxed);
    }
    return reinterpret_cast<Function*>(definition);
}

template <class Result>
Result failCode(int number) {
    return number;
}

template <class Result>
Result failErrno(int number) {
    errno = number;
    return -1;
}

template <class Result>
Result failNull(int number) {
    errno = number;
    return nullptr;
}

template <class Result>
Result failResult(int number) {
    if constexpr (std::is_pointer_v<Result>) {
        return number == 0 ? nullptr
                           : reinterpret_cast<Result>(static_cast<std::ptrdiff_t>(number));
    } else {
        return static_cast<Result>(number);
    }
}

}  // namespace
}  // namespace tarnutil_test

#define TARNUTIL_TEST_INTERPOSE(fails, result, name, parameters, arguments) \
    extern "C" result tarnutil_test_##name parameters __asm__(#name);       \
    extern "C" result tarnutil_test_##name parameters {                     \
        using namespace tarnutil_test;                                      \
        static std::atomic<void*> found{nullptr};                           \
        Trail::Note{Call::name} arguments;                                  \
        if (const std::optional<int> number = Fault::due(Call::name)) {     \
            return fail##fails<result>(*number);                            \
        }                                                                   \
        return next<result parameters>(found, #name) arguments;             \
    }

TARNUTIL_TEST_CALLS(TARNUTIL_TEST_INTERPOSE)
