// SPDX-License-Identifier: Apache-2.0
#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>

namespace tarnutil_command {
namespace {

constexpr std::uint64_t kWorthABar = 64ULL << 20;
constexpr std::chrono::milliseconds kStep(50);
constexpr std::size_t kWidth = 40;

// How many bytes this process has read so far: the kernel's own count, as the library reads a file
// in one call.
std::uint64_t bytesRead() {
    std::ifstream counters("/proc/self/io");
    std::string name;
    std::uint64_t count = 0;
    counters >> name >> count;
    return count;
}

}  // namespace

Progress::Progress(const std::string& shownName, std::uint64_t wholeSize)
    : name(shownName), size(wholeSize), start(bytesRead()) {
    if (size >= kWorthABar && isatty(STDERR_FILENO) != 0) display = std::thread([this] { show(); });
}

Progress::~Progress() {
    if (!display.joinable()) return;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stop = true;
    }
    stopped.notify_one();
    display.join();
    std::fputs("\r\033[K", stderr);
}

void Progress::show() {
    std::unique_lock<std::mutex> lock(mutex);
    do {
        const std::uint64_t done = std::min(bytesRead() - start, size);
        const std::string bar(static_cast<std::size_t>(done * kWidth / size), '#');
        std::fprintf(stderr, "\r[%-*s] %3u %% %s", static_cast<int>(kWidth), bar.c_str(),
                     static_cast<unsigned>(done * 100 / size), name.c_str());
    } while (!stopped.wait_for(lock, kStep, [this] { return stop; }));
}

}  // namespace tarnutil_command
