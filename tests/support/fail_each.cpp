// SPDX-License-Identifier: Apache-2.0
#include "fail_each.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <typeinfo>

#include "leaks.h"

namespace tarnutil_test {
namespace {

constexpr unsigned long kMostUses = 100000;

std::exception_ptr thrownBy(const std::function<void()>& run) {
    try {
        run();
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

// Runs once with the `nth` use failing. Whether that use was made.
bool failOnce(Failure failure, const std::function<void()>& run,
              const std::function<void(const Failure&)>& check) {
    bool fired = false;
    {
        const Fault fault(failure.call, failure.number, failure.nth, failure.span);
        failure.thrown = thrownBy(run);
        fired = fault.hasFired();
    }
    if (fired) check(failure);
    EXPECT_TRUE(fired || !failure.thrown) << describe(failure) << ": threw, but nothing failed";
    return fired;
}

// As failOnce, and nothing must be left behind.
bool failAndCount(const Failure& failure, const std::function<void()>& run,
                  const std::function<void(const Failure&)>& check) {
    const std::set<int> before = openDescriptors();
    const bool fired = failOnce(failure, run, check);
    EXPECT_EQ(openDescriptors(), before) << describe(failure) << ": leaves descriptors open";
    const auto failAgain = [&] {
        (void)failOnce(failure, run, check);
        ERR_clear_error();
    };
    EXPECT_FALSE(growsEachTime(failAgain)) << describe(failure) << ": leaks bytes";
    return fired;
}

}  // namespace

std::string describe(const Failure& failure) {
    return std::string(name(failure.call)) +
           (failure.span == Fault::once ? " once" : " from then on") + ", use " +
           std::to_string(failure.nth);
}

void failEachCallInTurn(std::initializer_list<Call> calls, int number,
                        const std::function<void()>& run,
                        const std::function<void(const Failure&)>& check) {
    for (const Call call : calls) {
        for (const Fault::Span span : {Fault::once, Fault::fromThenOn}) {
            unsigned long nth = 1;
            while (nth < kMostUses &&
                   failAndCount({call, number, nth, span, nullptr}, run, check)) {
                ++nth;
            }
            EXPECT_GT(nth, 1u) << name(call) << " is never called";
            EXPECT_LT(nth, kMostUses) << name(call) << " is called without end";
        }
    }
}

namespace detail {

std::string kindOf(const std::exception_ptr& thrown) {
    try {
        std::rethrow_exception(thrown);
    } catch (const std::exception& e) {
        return std::string(typeid(e).name()) + ": " + e.what();
    } catch (...) {
        return "thing of no standard class";
    }
}

}  // namespace detail
}  // namespace tarnutil_test
