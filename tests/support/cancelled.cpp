// SPDX-License-Identifier: Apache-2.0
#include "cancelled.h"

#include <pthread.h>

#include <cstdlib>

namespace tarnutil_test {

bool endsCancelled(std::function<void()> work) {
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    pthread_t thread;
    void* result = nullptr;
    if (pthread_create(&thread, nullptr, run, &work) != 0) std::abort();
    if (pthread_join(thread, &result) != 0) std::abort();
    return result == PTHREAD_CANCELED;
}

}  // namespace tarnutil_test
