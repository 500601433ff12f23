// SPDX-License-Identifier: Apache-2.0
// Arbitrary bytes escaped, trimmed and normalised, beside plain loops. The first byte of an input
// is the escape character, the second the size of the set, which follows; the rest is the text.
#include <algorithm>
#include <cstdint>
#include <string>

#include <tarnutil/StringUtil.h>

#include "require.h"
#include "text_model.h"

using tarnutil::StringUtil;
using tarnutil::tarnstring;
using namespace tarnutil_test;

namespace {

void requireEscaped(const tarnstring& escaped, const std::string& text, char escapeChar,
                    const std::string& set) {
    require(escaped == modelEscaped(text, escapeChar, set));
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
    requireEscaped(forRegex, text, '\\', kRegexMembers);

    tarnstring forShell(text);
    forShell.shell_escape();
    requireEscaped(forShell, text, '\\', kShellMembers);

    std::string trimmed = text;
    StringUtil::trim(trimmed, set);
    require(trimmed == modelTrimmed(text, set));
    require(StringUtil::normalize(text) == modelNormalized(text));
    return 0;
}
