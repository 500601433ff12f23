// main of every test program: starts it again without the allocator's per-thread caches, which
// would count freed memory as live (see leaks.h), and runs the tests.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>

int main(int argc, char** argv) {
    if (std::getenv("GLIBC_TUNABLES") == nullptr) {
        setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", /*overwrite=*/1);
        execv("/proc/self/exe", argv);
    }
    testing::InitGoogleMock(&argc, argv);
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    return RUN_ALL_TESTS();
}
