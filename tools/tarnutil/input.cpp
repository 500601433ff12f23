// SPDX-License-Identifier: Apache-2.0
#include "input.h"

#include <fstream>
#include <iostream>
#include <sstream>

#include "commands.h"

namespace tarnutil_command {
namespace {

std::string rest(std::istream& in, const std::string& name) {
    std::ostringstream content;
    if (in.peek() != std::istream::traits_type::eof()) content << in.rdbuf();
    if (in.bad() || (in.fail() && !in.eof())) throw Unusable("cannot read " + name);
    return content.str();
}

}  // namespace

std::string contentOf(const std::string& file) {
    if (file == "-") return rest(std::cin, "standard input");
    std::ifstream in(file, std::ios::binary);
    if (!in) throw Unusable("cannot read " + file);
    return rest(in, file);
}

std::string withoutEnd(std::string text) {
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    return text;
}

}  // namespace tarnutil_command
