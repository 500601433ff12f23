// SPDX-License-Identifier: Apache-2.0
// What a process holds: for tests that count before and after.
#ifndef TARNUTIL_TESTS_SUPPORT_LEAKS_H
#define TARNUTIL_TESTS_SUPPORT_LEAKS_H

#include <cstddef>
#include <set>

namespace tarnutil_test {

// The descriptors that this process has open.
std::set<int> openDescriptors();

// The bytes that are allocated and not freed; always 0 in a sanitized build, whose allocator keeps
// no such count and finds leaks itself. Exact because the test programs run without per-thread
// caches (see main.cpp).
std::size_t liveBytes();

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_LEAKS_H
