// The rule of the class face about what may leave an operation: the class that it documents, and
// nothing else.
#ifndef TARNUTIL_UTIL_BOUNDARY_H
#define TARNUTIL_UTIL_BOUNDARY_H

#include <cxxabi.h>

#include <exception>
#include <utility>

namespace tarnutil {

// Runs `operation` and returns its result. An `Admitted` passes; any other exception, a failed
// allocation included, ends the process. Thread cancellation is no exception in this sense: it
// unwinds the stack like one and has to be let through.
template <class Admitted, class Operation>
auto admitOnly(Operation&& operation) -> decltype(operation()) {
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

}  // namespace tarnutil
#endif  // TARNUTIL_UTIL_BOUNDARY_H
