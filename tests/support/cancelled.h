// SPDX-License-Identifier: Apache-2.0
// Cancelling threads.
#ifndef TARNUTIL_TESTS_SUPPORT_CANCELLED_H
#define TARNUTIL_TESTS_SUPPORT_CANCELLED_H

#include <functional>

namespace tarnutil_test {

// Runs `work` on a thread of its own and tells whether that ended by cancellation, which `work`
// itself requests, by pthread_cancel(pthread_self()).
bool endsCancelled(std::function<void()> work);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_CANCELLED_H
