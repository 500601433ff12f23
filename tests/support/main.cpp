// SPDX-License-Identifier: Apache-2.0
// main of every test program: starts it again without the allocator's per-thread caches, which
// would count freed memory as live (see leaks.h), and runs the tests.
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "record.h"

#ifdef TARNUTIL_COVERAGE
#include <sys/syscall.h>

// What a process has run counts also where it is made to abort, or leaves at once.
extern "C" void __gcov_dump();

extern "C" void _exit(int status) {
    __gcov_dump();
    for (;;) syscall(SYS_exit_group, status);
}

namespace {

void countBeforeAborting(int) {
    __gcov_dump();
    std::signal(SIGABRT, SIG_DFL);
}

}  // namespace
#endif

int main(int argc, char** argv) {
    if (std::getenv("GLIBC_TUNABLES") == nullptr) {
        tarnutil_test::startRecord();
        setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", /*overwrite=*/1);
        execv("/proc/self/exe", argv);
    }
#ifdef TARNUTIL_COVERAGE
    std::signal(SIGABRT, countBeforeAborting);
#endif
    testing::InitGoogleMock(&argc, argv);
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    return RUN_ALL_TESTS();
}
