// SPDX-License-Identifier: Apache-2.0
// How often a test of chance tries.
#ifndef TARNUTIL_TESTS_SUPPORT_ROUNDS_H
#define TARNUTIL_TESTS_SUPPORT_ROUNDS_H

#include "sanitized.h"

namespace tarnutil_test {

// `count` tries; a fifth of them under a sanitizer, which makes each ten times longer and is after
// the code that runs rather than the values that it meets.
constexpr unsigned inRounds(unsigned count) {
#if TARNUTIL_TEST_SANITIZED
    return count / 5;
#else
    return count;
#endif
}

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_ROUNDS_H
