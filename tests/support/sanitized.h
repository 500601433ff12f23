// SPDX-License-Identifier: Apache-2.0
// Which sanitizer the test program is built with, for what one of them does not let be: each is 1
// or 0.
//
// None follows a cancellation up the stack. The address sanitizer goes on guarding the frames that
// are gone, and reports the next thread that uses the memory; the thread sanitizer takes a join
// that was cancelled for unfinished.
#ifndef TARNUTIL_TESTS_SUPPORT_SANITIZED_H
#define TARNUTIL_TESTS_SUPPORT_SANITIZED_H

// g++ says it by a macro of its own, clang by a question.
#ifdef __has_feature
#define TARNUTIL_TEST_HAS_FEATURE(feature) __has_feature(feature)
#else
#define TARNUTIL_TEST_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || TARNUTIL_TEST_HAS_FEATURE(address_sanitizer)
#define TARNUTIL_TEST_ASAN 1
#else
#define TARNUTIL_TEST_ASAN 0
#endif

#if defined(__SANITIZE_THREAD__) || TARNUTIL_TEST_HAS_FEATURE(thread_sanitizer)
#define TARNUTIL_TEST_TSAN 1
#else
#define TARNUTIL_TEST_TSAN 0
#endif

#define TARNUTIL_TEST_SANITIZED (TARNUTIL_TEST_ASAN || TARNUTIL_TEST_TSAN)

#endif  // TARNUTIL_TESTS_SUPPORT_SANITIZED_H
