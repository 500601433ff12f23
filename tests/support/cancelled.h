// SPDX-License-Identifier: Apache-2.0
// Cancelling threads.
#ifndef TARNUTIL_TESTS_SUPPORT_CANCELLED_H
#define TARNUTIL_TESTS_SUPPORT_CANCELLED_H

#include <functional>

namespace tarnutil_test {

// Runs `work` in a thread of its own, where pthread_cancel(pthread_self()) asks for its end. True
// if that is how the thread ended, false if it returned.
bool endsCancelled(std::function<void()> work);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_CANCELLED_H
