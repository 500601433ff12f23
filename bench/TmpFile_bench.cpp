// SPDX-License-Identifier: Apache-2.0
// Temporary files and trees, and the listing of a directory, beside the calls they are made of and
// two libraries.
#include <Poco/TemporaryFile.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include <tarnutil/File.h>
#include <tarnutil/TmpFile.h>

#include "bench.h"

namespace {

using tarnutil::File;
using tarnutil::TmpFile;

constexpr int kEntries = 10000;

// --- one file ---

void withTmpFile() {
    TmpFile file;
    file.create(/*directory=*/false);
}

// The calls that TmpFile promises, with nothing around them.
void withMkstemp() {
    char path[] = "/tmp/tmpXXXXXX";
    const int fd = mkstemp(path);
    struct stat status;
    if (fd == -1 || lstat(path, &status) != 0) std::abort();
    (void)unlink(path);
    (void)close(fd);
}

void withPoco() {
    Poco::TemporaryFile file;
    (void)file.createFile();
}

template <class Work>
void fileRow(const char* who, Work work) {
    tarnutil_bench::add(std::string("TmpFile/create_remove/1/") + who,
                        [work](benchmark::State& state) {
                            for (auto _ : state) work();
                        })
        ->UseRealTime();
}

// --- trees ---

// Fills `directory` with 100 directories of 99 files each.
void plant(const std::string& directory) {
    for (int i = 0; i < kEntries / 100; ++i) {
        const std::string branch = directory + "/" + std::to_string(i);
        if (mkdir(branch.c_str(), 0700) != 0) std::abort();
        for (int k = 1; k < 100; ++k) {
            const int fd = creat((branch + "/" + std::to_string(k)).c_str(), 0600);
            if (fd == -1) std::abort();
            (void)close(fd);
        }
    }
}

template <class Work>
void treeRow(const char* who, Work removed) {
    tarnutil_bench::add(
        "TmpFile/remove_tree/" + std::to_string(kEntries) + "/" + who,
        [removed](benchmark::State& state) {
            for (auto _ : state) {
                TmpFile tree;
                tree.create(/*directory=*/true);
                plant(tree.getPath());
                const auto start = std::chrono::steady_clock::now();
                if (!removed(tree.getPath())) state.SkipWithError("not removed");
                const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
                state.SetIterationTime(time.count());
            }
        },
        /*iterations=*/1)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

// --- listing ---

// A directory of kEntries files, made once.
const std::string& fullDirectory() {
    static TmpFile directory;
    static const std::string path = [] {
        directory.create(/*directory=*/true);
        for (int i = 0; i < kEntries; ++i) {
            const int fd = creat((directory.getPath() + "/" + std::to_string(i)).c_str(), 0600);
            if (fd == -1) std::abort();
            (void)close(fd);
        }
        return directory.getPath();
    }();
    return path;
}

std::set<std::string> listed(const std::string& path) {
    std::set<std::string> names;
    (void)File::list(path, names, /*recursive=*/false);
    return names;
}

std::set<std::string> iterated(const std::string& path) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

template <class Work>
void listRow(const char* who, Work names) {
    tarnutil_bench::add("TmpFile/list/" + std::to_string(kEntries) + "/" + who,
                        [names](benchmark::State& state) {
                            const std::string& path = fullDirectory();
                            for (auto _ : state) {
                                if (names(path).size() != kEntries) state.SkipWithError("lost");
                            }
                        })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

void addAll() {
    fileRow("tarnutil", withTmpFile);
    fileRow("mkstemp", withMkstemp);
    fileRow("Poco::TemporaryFile", withPoco);
    treeRow("tarnutil",
            [](const std::string& path) { return File::remove(path, /*recursive=*/true); });
    treeRow("std::filesystem",
            [](const std::string& path) { return std::filesystem::remove_all(path) != 0; });
    listRow("tarnutil", listed);
    listRow("std::filesystem", iterated);
}

const tarnutil_bench::Added added(addAll);

}  // namespace
