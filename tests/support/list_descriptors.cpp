// SPDX-License-Identifier: Apache-2.0
// Prints what this program inherited: for each open descriptor its number, a blank and what it
// refers to, one per line.
#include <dirent.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::string target(const std::string& descriptor) {
    std::array<char, 4096> text;
    const ssize_t size =
        readlink(("/proc/self/fd/" + descriptor).c_str(), text.data(), text.size());
    return size < 0 ? "?" : std::string(text.data(), static_cast<std::size_t>(size));
}

}  // namespace

int main() {
    DIR* directory = opendir("/proc/self/fd");
    if (directory == nullptr) return 1;
    while (const dirent* entry = readdir(directory)) {
        const std::string descriptor = entry->d_name;
        if (descriptor[0] == '.' || std::atoi(descriptor.c_str()) == dirfd(directory)) continue;
        std::printf("%s %s\n", descriptor.c_str(), target(descriptor).c_str());
    }
    closedir(directory);
    return 0;
}
