// SPDX-License-Identifier: Apache-2.0
// A program without a standard input.
#ifndef TARNUTIL_TESTS_SUPPORT_STDIN_CLOSED_H
#define TARNUTIL_TESTS_SUPPORT_STDIN_CLOSED_H

#include <unistd.h>

namespace tarnutil_test {

// While one lives, descriptor 0 is free: the next to be opened.
class StdinClosed {
public:
    StdinClosed() { close(STDIN_FILENO); }
    ~StdinClosed() {
        dup2(kept, STDIN_FILENO);
        close(kept);
    }
    StdinClosed(const StdinClosed&) = delete;
    StdinClosed& operator=(const StdinClosed&) = delete;

private:
    const int kept = dup(STDIN_FILENO);
};

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_STDIN_CLOSED_H
