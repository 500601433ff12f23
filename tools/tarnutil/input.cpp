// SPDX-License-Identifier: Apache-2.0
#include "input.h"

#include <cstdio>

#include <tarnutil/File.h>

#include "commands.h"

namespace tarnutil_command {
namespace {

// C streams, unlike the iostreams of standard input, tell a failed read from the end.
std::string rest(std::FILE* in, const std::string& name) {
    std::string content;
    char piece[16384];
    while (const std::size_t count = std::fread(piece, 1, sizeof piece, in))
        content.append(piece, count);
    if (std::ferror(in) != 0) throw Unusable("cannot read " + name);
    return content;
}

}  // namespace

std::string contentOf(const std::string& file) {
    if (file == "-") return rest(stdin, "standard input");
    std::FILE* const in = std::fopen(file.c_str(), "rb");
    if (in == nullptr) throw Unusable("cannot read " + file);
    const tarnutil::FileCloser closer(in);
    return rest(in, file);
}

std::string withoutEnd(std::string text) {
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    return text;
}

}  // namespace tarnutil_command
