// SPDX-License-Identifier: Apache-2.0
// What a process holds: for tests that count before and after.
#ifndef TARNUTIL_TESTS_SUPPORT_LEAKS_H
#define TARNUTIL_TESTS_SUPPORT_LEAKS_H

#include <cstddef>
#include <functional>
#include <set>

namespace tarnutil_test {

// The descriptors that this process has open.
std::set<int> openDescriptors();

// The bytes that are allocated and not freed; always 0 in a sanitized build, whose allocator keeps
// no such count and finds leaks itself. Exact because the test programs run without per-thread
// caches (see main.cpp).
std::size_t liveBytes();

// Whether every one of several runs leaves more bytes behind: a leak does. What is built once and
// kept does not, and the allocator, which hands out a little more than it was asked for where that
// leaves less over, settles after some runs. Always false in a sanitized build.
bool growsEachTime(const std::function<void()>& run);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_LEAKS_H
