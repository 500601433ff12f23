// SPDX-License-Identifier: Apache-2.0
#include "trace_line.h"

#include <cxxabi.h>

namespace tarnutil {

std::unique_ptr<char, Free> demangled(const char* mangled) {
    int status = -1;
    return std::unique_ptr<char, Free>(abi::__cxa_demangle(mangled, nullptr, nullptr, &status));
}

std::optional<TraceLine> parseTraceLine(std::string_view line) {
    constexpr auto npos = std::string_view::npos;
    const auto start = line.find_first_not_of(" \t");
    if (start == npos) return std::nullopt;
    line.remove_prefix(start);

    const auto open = line.find('(');
    if (open == npos) return std::nullopt;
    const auto functionEnd = line.find_first_of(")+", open + 1);
    if (functionEnd == npos) return std::nullopt;
    const auto function = line.substr(open + 1, functionEnd - open - 1);
    if (line[functionEnd] == ')') return TraceLine{line.substr(0, open), function, {}};

    const auto close = line.find(')', functionEnd + 1);
    if (close == npos) return std::nullopt;
    return TraceLine{line.substr(0, open), function,
                     line.substr(functionEnd + 1, close - functionEnd - 1)};
}

// Quirk: the "+" is written even where there is no offset. Pinned by
// TraceLineTest.LinesAreTakenApartAndPutTogether.
std::string formatTraceLine(const TraceLine& line) {
    const std::string mangled(line.function);
    const auto readable = demangled(mangled.c_str());
    const std::string_view function = readable ? std::string_view(readable.get()) : mangled;

    std::string text;
    text.reserve(line.module.size() + function.size() + line.offset.size() + 3);
    text.append(line.module).append("(").append(function);
    text.append("+").append(line.offset).append(")");
    return text;
}

}  // namespace tarnutil
