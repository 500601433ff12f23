// SPDX-License-Identifier: Apache-2.0
// What an operation throws, class and number included, as one text to compare.
#ifndef TARNUTIL_TESTS_SUPPORT_THROWN_H
#define TARNUTIL_TESTS_SUPPORT_THROWN_H

#include <functional>
#include <string>

namespace tarnutil_test {

// "tarnutil::Exception: " and the message; "tarnutil::ErrnoException(24): " and the message, with
// the stored number; a text that says so if nothing is thrown.
std::string thrown(const std::function<void()>& operation);

// What `thrown` says of a failed call that returned `number`: `what`, and the system's text for it.
std::string refused(const std::string& what, int number);

// What `thrown` says of a failed system call that left `number` in errno.
std::string errnoThrown(const std::string& message, int number);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_THROWN_H
