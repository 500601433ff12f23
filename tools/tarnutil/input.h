// SPDX-License-Identifier: Apache-2.0
// What a subcommand is given on standard input or in a file.
#ifndef TARNUTIL_TOOLS_INPUT_H
#define TARNUTIL_TOOLS_INPUT_H

#include <string>

namespace tarnutil_command {

// The whole content of a file, or of standard input for "-". Throws Unusable if it cannot be read.
std::string contentOf(const std::string& file);

// `text` without the line breaks and blanks at its end.
std::string withoutEnd(std::string text);

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_INPUT_H
