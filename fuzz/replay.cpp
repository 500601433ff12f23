// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target over the files of the folders in its arguments, without a fuzzer. Fails if
// there was no file to run.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::string content(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void replay(const std::string& input) {
    // A copy of exactly that size, so that a sanitizer sees a read past its end.
    const std::vector<std::uint8_t> bytes(input.begin(), input.end());
    (void)LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    unsigned long count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            if (!entry.is_regular_file()) continue;
            replay(content(entry.path()));
            ++count;
        }
    }
    std::printf("%lu inputs replayed\n", count);
    return count > 0 ? 0 : 1;
}
