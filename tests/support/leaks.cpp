// SPDX-License-Identifier: Apache-2.0
#include "leaks.h"

#include <dirent.h>
#include <malloc.h>

#include <cstdlib>
#include <memory>

#include "sanitized.h"

namespace tarnutil_test {
namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

std::set<int> openDescriptors() {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir("/proc/self/fd"));
    std::set<int> found;
    while (const dirent* entry = readdir(directory.get())) {
        const int descriptor = std::atoi(entry->d_name);
        if (entry->d_name[0] != '.' && descriptor != dirfd(directory.get()))
            found.insert(descriptor);
    }
    return found;
}

std::size_t liveBytes() {
#if TARNUTIL_TEST_SANITIZED
    return 0;
#else
    return mallinfo2().uordblks;
#endif
}

bool growsEachTime(const std::function<void()>& run) {
    constexpr int kRuns = 40;
    for (int i = 0; i < kRuns; ++i) {
        const std::size_t before = liveBytes();
        run();
        if (liveBytes() <= before) return false;
    }
    return true;
}

}  // namespace tarnutil_test
