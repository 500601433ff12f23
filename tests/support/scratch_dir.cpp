// SPDX-License-Identifier: Apache-2.0
#include "scratch_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tarnutil_test {
namespace fs = std::filesystem;

ScratchDir::ScratchDir()
    : directory((fs::temp_directory_path() / "tarnutil-test-XXXXXX").string()) {
    if (mkdtemp(directory.data()) == nullptr) throw std::runtime_error("no scratch directory");
}

ScratchDir::~ScratchDir() {
    std::error_code ignored;
    fs::remove_all(directory, ignored);
}

std::string ScratchDir::write(const std::string& name, const std::string& content) const {
    const std::string file = *this / name;
    std::ofstream out(file, std::ios::binary);
    out << content;
    out.close();
    if (!out) throw std::runtime_error("cannot write " + file);
    return file;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.is_open()) << path;
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace tarnutil_test
