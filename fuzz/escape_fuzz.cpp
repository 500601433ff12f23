// SPDX-License-Identifier: Apache-2.0
// Arbitrary bytes escaped and made plain again. The first byte of an input is the escape character,
// the second the size of the set, which follows; the rest is the text.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <tarnutil/StringUtil.h>

using tarnutil::StringUtil;
using tarnutil::tarnstring;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

std::string model(const std::string& text, char escapeChar, const std::string& set) {
    std::string escaped;
    for (const char c : text) {
        if (c == escapeChar || set.find(c) != std::string::npos) escaped += escapeChar;
        escaped += c;
    }
    return escaped;
}

void requireEscaped(const tarnstring& escaped, const std::string& text, char escapeChar,
                    const std::string& set) {
    require(escaped == model(text, escapeChar, set));
    require(escaped.size() <= 2 * text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const char escapeChar = static_cast<char>(data[0]);
    const std::size_t setSize = std::min<std::size_t>(data[1], size - 2);
    const std::string set(data + 2, data + 2 + setSize);
    const std::string text(data + 2 + setSize, data + size);

    tarnstring escaped(text);
    escaped.escape(escapeChar, set);
    requireEscaped(escaped, text, escapeChar, set);

    tarnstring forRegex(text);
    forRegex.regex_escape();
    requireEscaped(forRegex, text, '\\', ".^$*+?()[{\\|");

    tarnstring forShell(text);
    forShell.shell_escape();
    requireEscaped(forShell, text, '\\', "\"\\'`<>|; \x14\x0E()[]?#$^&*=,:!{}~");

    std::string trimmed = text;
    StringUtil::trim(trimmed, set);
    require(text.find(trimmed) != std::string::npos);
    require(trimmed.empty() || (set.find(trimmed.front()) == std::string::npos &&
                                set.find(trimmed.back()) == std::string::npos));
    return 0;
}
