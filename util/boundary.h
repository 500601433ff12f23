// SPDX-License-Identifier: Apache-2.0
// The rule of the class face about what may leave an operation: the class that it documents, and
// nothing else.
#ifndef TARNUTIL_UTIL_BOUNDARY_H
#define TARNUTIL_UTIL_BOUNDARY_H

#include <cxxabi.h>

#include <exception>
#include <utility>

// Always inlined: the boundary then costs an operation that succeeds nothing. A cancellation is
// caught as a reference to nothing, which UndefinedBehaviorSanitizer minds unless it is kept away,
// and what it is kept away from cannot always be inlined.
#ifdef __SANITIZE_ADDRESS__
#define TARNUTIL_BOUNDARY __attribute__((no_sanitize("undefined"))) inline
#else
#define TARNUTIL_BOUNDARY [[gnu::always_inline]] inline
#endif

namespace tarnutil {

// Runs `operation` and returns its result. An `Admitted` passes; any other exception, a failed
// allocation included, ends the process. Thread cancellation is no exception in this sense: it
// unwinds the stack like one and has to be let through.
template <class Admitted, class Operation>
TARNUTIL_BOUNDARY auto admitOnly(Operation&& operation) -> decltype(operation()) {
    try {
        return std::forward<Operation>(operation)();
    } catch (const Admitted&) {
        throw;
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        std::terminate();
    }
}

// Runs `operation` and drops what it throws: for destructors and for functions of the caller's
// whose failure is none of ours. Thread cancellation passes here too.
template <class Operation>
TARNUTIL_BOUNDARY void dropExceptions(Operation&& operation) {
    try {
        std::forward<Operation>(operation)();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
    }
}

}  // namespace tarnutil
#endif  // TARNUTIL_UTIL_BOUNDARY_H
