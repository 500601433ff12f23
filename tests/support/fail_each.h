// SPDX-License-Identifier: Apache-2.0
// Fails every call of an operation in turn, until it succeeds because there was none left to fail.
#ifndef TARNUTIL_TESTS_SUPPORT_FAIL_EACH_H
#define TARNUTIL_TESTS_SUPPORT_FAIL_EACH_H

#include <exception>
#include <functional>
#include <initializer_list>
#include <string>
#include <typeinfo>

#include "fault.h"

namespace tarnutil_test {

// One failed run.
struct Failure {
    Call call;
    int number;
    unsigned long nth;
    Fault::Span span;
    std::exception_ptr thrown;  // null if the operation did not mind

    // what() of the exception if it is exactly an `E` (no class derived from it); otherwise a text
    // that says what was thrown instead, for use in EXPECT_EQ with the promised message.
    template <class E>
    std::string messageOf() const;
};
std::string describe(const Failure& failure);

// Runs `run` again and again: for each of `calls` with the first, the second, ... use of it failing
// with `number` (that use only, then from it on), until a run makes fewer uses than that. After
// each failed run the process must hold no more descriptors and bytes than before it, and `check`
// looks at what was thrown. Reports a call that `run` never makes.
void failEachCallInTurn(std::initializer_list<Call> calls, int number,
                        const std::function<void()>& run,
                        const std::function<void(const Failure&)>& check);

namespace detail {
std::string kindOf(const std::exception_ptr& thrown);
}

template <class E>
std::string Failure::messageOf() const {
    if (thrown == nullptr) return "(nothing was thrown)";
    try {
        std::rethrow_exception(thrown);
    } catch (const E& e) {
        if (typeid(e) == typeid(E)) return e.what();
    } catch (...) {
    }
    return "(thrown was a " + detail::kindOf(thrown) + ")";
}

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_FAIL_EACH_H
