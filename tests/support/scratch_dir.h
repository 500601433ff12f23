// SPDX-License-Identifier: Apache-2.0
// A directory for one test, removed with everything in it.
#ifndef TARNUTIL_TESTS_SUPPORT_SCRATCH_DIR_H
#define TARNUTIL_TESTS_SUPPORT_SCRATCH_DIR_H

#include <sys/types.h>

#include <string>

namespace tarnutil_test {

class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::string& path() const { return directory; }
    // The path of `name` in it.
    std::string operator/(const std::string& name) const { return directory + "/" + name; }
    // Writes a file of that name and returns its path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string directory;
};

// The content of a file; fails the test if it cannot be read.
std::string readFile(const std::string& path);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_SCRATCH_DIR_H
