// SPDX-License-Identifier: Apache-2.0
// Queries and copies of files, beside the system calls they stand on and what others offer.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <tarnutil/File.h>
#include <tarnutil/TmpFile.h>

#include "bench.h"

namespace {

using tarnutil::File;

// A directory of its own with one file of `size` bytes in it; both go with the object.
class Original {
public:
    explicit Original(std::size_t size) {
        directory.create(/*directory=*/true);
        std::ofstream(path(), std::ios::binary) << std::string(size, 'x');
    }

    std::string path() const { return directory.getPath() + "/original"; }
    std::string copy() const { return directory.getPath() + "/copy"; }

private:
    tarnutil::TmpFile directory;
};

// ---- queries

bool bareStat(const std::string& path, struct stat& found) {
    return stat(path.c_str(), &found) == 0;
}

template <class Query>
void queryRow(const std::string& name, Query query) {
    tarnutil_bench::add("File/" + name, [query](benchmark::State& state) {
        const Original original(/*size=*/1);
        const std::string path = original.path();
        for (auto _ : state) benchmark::DoNotOptimize(query(path));
    });
}

void addQueries() {
    queryRow("exists/1/tarnutil",
             [](const std::string& path) { return File::exists(path, /*followLinks=*/true); });
    queryRow("isDirectory/1/tarnutil",
             [](const std::string& path) { return File::isDirectory(path, /*followLinks=*/true); });
    queryRow("getFileSize/1/tarnutil",
             [](const std::string& path) { return File::getFileSize(path); });
    queryRow("getAllocatedFileSize/1/tarnutil",
             [](const std::string& path) { return File::getAllocatedFileSize(path); });
    for (const char* query : {"exists", "isDirectory", "getFileSize", "getAllocatedFileSize"}) {
        queryRow(std::string(query) + "/1/stat", [](const std::string& path) {
            struct stat found;
            return bareStat(path, found) ? found.st_size : -1;
        });
    }
    queryRow("exists/1/std::filesystem",
             [](const std::string& path) { return std::filesystem::exists(path); });
    queryRow("getFileSize/1/std::filesystem",
             [](const std::string& path) { return std::filesystem::file_size(path); });
}

// ---- copies

// The loop one would write by hand for the same result: contents and permission bits.
void copyByHand(const std::string& source, const std::string& destination) {
    struct stat found;
    if (!bareStat(source, found)) std::abort();
    std::ifstream in(source, std::ios::binary);
    std::ofstream out(destination, std::ios::binary | std::ios::trunc);
    char buffer[4096];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) out.write(buffer, in.gcount());
    in.close();
    out.close();
    if (!out || chmod(destination.c_str(), found.st_mode & 07777) != 0) std::abort();
}

void copyByFilesystem(const std::string& source, const std::string& destination) {
    std::filesystem::copy_file(source, destination,
                               std::filesystem::copy_options::overwrite_existing);
}

using Copy = void (*)(const std::string&, const std::string&);

void copyRow(std::size_t size, const char* who, Copy copy) {
    tarnutil_bench::add(
        "File/copy/" + std::to_string(size) + "/" + who, [size, copy](benchmark::State& state) {
            const Original original(size);
            for (auto _ : state) copy(original.path(), original.copy());
            state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
        });
}

void addAll() {
    addQueries();
    for (const std::size_t size :
         {std::size_t{4096}, std::size_t{1} << 20, std::size_t{16} << 20}) {
        copyRow(size, "tarnutil", File::copy);
        copyRow(size, "stream_loop", copyByHand);
        copyRow(size, "copy_file", copyByFilesystem);
    }
}

const tarnutil_bench::Added added(addAll);

}  // namespace
