// SPDX-License-Identifier: Apache-2.0
// A bar on the terminal while a file is read.
#ifndef TARNUTIL_TOOLS_PROGRESS_H
#define TARNUTIL_TOOLS_PROGRESS_H

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace tarnutil_command {

// From here until the object dies, shows on standard error how much of `size` bytes the process has
// read. Shows nothing if standard error is no terminal or the file is small.
class Progress {
public:
    Progress(const std::string& name, std::uint64_t size);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    void show();

    const std::string name;
    const std::uint64_t size;
    const std::uint64_t start;
    std::mutex mutex;
    std::condition_variable stopped;
    bool stop = false;  // guarded by mutex
    std::thread display;
};

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_PROGRESS_H
