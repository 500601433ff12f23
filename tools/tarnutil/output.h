// SPDX-License-Identifier: Apache-2.0
// What subcommands print.
#ifndef TARNUTIL_TOOLS_OUTPUT_H
#define TARNUTIL_TOOLS_OUTPUT_H

#include <cstddef>
#include <exception>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tarnutil_command {

// A stranger's `text` as UTF-8 without control characters: every byte of one (C0, DEL or C1), of a
// backslash and of what is no UTF-8 becomes \xNN, so that nothing steers a terminal or is taken for
// a line of its own, and the bytes can be told from the result.
std::string printable(const std::string& text);

// "1 noun", "2 nouns".
std::string counted(std::size_t count, const std::string& noun);

// Prints the document; bytes in it that are no UTF-8 are replaced by U+FFFD.
void printJson(const nlohmann::ordered_json& json);

// Says on standard error what went wrong. With `withTrace`, the class and the stack trace of the
// library's exception too: of `e`, or of the one nested in it.
void printError(const std::exception& e, bool withTrace);

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_OUTPUT_H
