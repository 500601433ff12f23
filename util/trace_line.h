// SPDX-License-Identifier: Apache-2.0
// One line of a stack trace, taken apart and put together.
#ifndef TARNUTIL_UTIL_TRACE_LINE_H
#define TARNUTIL_UTIL_TRACE_LINE_H

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarnutil {

// What the platform prints of a frame: module(function+offset) [address].
struct TraceLine {
    std::string_view module;
    std::string_view function;  // mangled, plain, or empty
    std::string_view offset;    // empty where the platform gave none
};

struct Free {
    void operator()(void* block) const { std::free(block); }
};

// The readable form of a mangled name; null if `mangled` is no such name.
std::unique_ptr<char, Free> demangled(const char* mangled);

// Blanks and tabs before the module are skipped, and what follows the closing parenthesis is
// dropped. Nothing if the line has another form.
std::optional<TraceLine> parseTraceLine(std::string_view line);

// module(function+offset), the function demangled where it can be. The "+" is always there.
std::string formatTraceLine(const TraceLine& line);

}  // namespace tarnutil
#endif  // TARNUTIL_UTIL_TRACE_LINE_H
