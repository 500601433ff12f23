// SPDX-License-Identifier: Apache-2.0
// Text helpers beside what a program would use instead.
#include <absl/strings/ascii.h>
#include <absl/strings/escaping.h>
#include <absl/strings/str_join.h>
#include <absl/strings/str_replace.h>
#include <absl/strings/str_split.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <re2/re2.h>

#include <Poco/DigestEngine.h>
#include <boost/algorithm/string.hpp>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <tarnutil/StringUtil.h>

#include "bench.h"
#include "numbers.h"

using tarnutil::StringUtil;
using tarnutil::tarnstring;
using tarnutil_bench::Numbers;
using tarnutil_bench::someBytes;

namespace {

using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;
using Map = std::map<std::string, std::string>;

// One row of the report: what `work` does with an input of that size.
template <class Work>
void row(const std::string& operation, std::size_t size, const char* who, Work work) {
    tarnutil_bench::addWork("StringUtil/" + operation + "/" + std::to_string(size) + "/" + who,
                            size, std::move(work));
}

constexpr std::size_t kSizes[] = {8, 64, 1000, 4096, 65536, 1 << 20};

// `size` bytes of words of 1 to `longest` letters with `separators` between them.
std::string words(std::size_t size, std::size_t longest, const std::string& separators) {
    Numbers numbers;
    std::string text;
    while (text.size() < size) {
        text.append(1 + numbers.below(longest), static_cast<char>('a' + numbers.below(26)));
        text += separators[numbers.below(separators.size())];
    }
    text.resize(size);
    return text;
}

void addSplit(std::size_t size, const std::string& kind, std::size_t longest) {
    const std::string text = words(size, longest, ",");
    const std::string operation = "split_" + kind;
    row(operation, size, "tarnutil", [text] {
        Strings out;
        StringUtil::split(text, ',', out);
        return out;
    });
    row(operation, size, "absl::StrSplit", [text] {
        const Strings out = absl::StrSplit(text, ',');
        return out;
    });
    row(operation, size, "boost::split", [text] {
        Strings out;
        boost::split(out, text, [](char c) { return c == ','; });
        return out;
    });
    row(operation, size, "std::getline", [text] {
        Strings out;
        std::istringstream in(text);
        for (std::string piece; std::getline(in, piece, ',');) out.push_back(piece);
        return out;
    });
}

// A quarter of the text is white space at either end.
void addTrim(std::size_t size) {
    const std::string chars = " \t\n\v\f\r";
    std::string text(size, 'x');
    Numbers numbers;
    for (std::size_t i = 0; i < size / 4; ++i) {
        text[i] = chars[numbers.below(chars.size())];
        text[size - 1 - i] = chars[numbers.below(chars.size())];
    }
    row("trim", size, "tarnutil", [text, chars] {
        std::string copy = text;
        StringUtil::trim(copy, chars);
        return copy;
    });
    row("trim", size, "absl::StripAsciiWhitespace", [text] {
        std::string copy = text;
        absl::StripAsciiWhitespace(&copy);
        return copy;
    });
    row("trim", size, "boost::trim_if", [text, chars] {
        std::string copy = text;
        boost::trim_if(copy, boost::is_any_of(chars));
        return copy;
    });
}

void addHex(std::size_t size) {
    const Bytes bytes = someBytes(size);
    const std::string text(bytes.begin(), bytes.end());
    row("hex", size, "tarnutil", [bytes] { return StringUtil::toHexString(bytes); });
    row("hex", size, "absl::BytesToHexString", [text] { return absl::BytesToHexString(text); });
    row("hex", size, "Poco::DigestEngine",
        [bytes] { return Poco::DigestEngine::digestToHex(bytes); });
}

void addNormalize(std::size_t size) {
    const std::string text = words(size, 8, " \t\n ");
    std::string runs;
    Numbers numbers;
    for (const char c : words(size, 8, " \t\n ")) {
        runs.append(c < 'a' ? 1 + numbers.below(3) : 1, c);
    }
    runs.resize(size);
    for (const auto& [operation, input] :
         {std::pair("normalize", text), {"normalize_runs", runs}}) {
        row(operation, size, "tarnutil", [input = input] { return StringUtil::normalize(input); });
        row(operation, size, "absl::RemoveExtraAsciiWhitespace", [input = input] {
            std::string copy = input;
            absl::RemoveExtraAsciiWhitespace(&copy);
            return copy;
        });
    }
}

// What a program writes for itself.
std::string escapedByHand(const std::string& text, const std::string& set) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        if (set.find(c) != std::string::npos) escaped += '\\';
        escaped += c;
    }
    return escaped;
}

void addShellEscape(std::size_t size) {
    const std::string set = "\"'`<>|;& \x14\x0E()[]{}?*^~#$!=,:\\";
    const std::string text = words(size, 8, " '$;");
    std::vector<std::pair<std::string, std::string>> replacements;
    for (const char c : set) replacements.emplace_back(std::string(1, c), std::string("\\") + c);
    row("shell_escape", size, "tarnutil", [text] {
        tarnstring copy(text);
        copy.shell_escape();
        return copy;
    });
    row("shell_escape", size, "g_shell_quote", [text] {
        gchar* const quoted = g_shell_quote(text.c_str());
        const char first = quoted[0];
        g_free(quoted);
        return first;
    });
    row("shell_escape", size, "absl::StrReplaceAll",
        [text, replacements] { return absl::StrReplaceAll(text, replacements); });
    row("shell_escape", size, "by_hand", [text, set] { return escapedByHand(text, set); });
}

void addRegexEscape(std::size_t size) {
    const std::string text = words(size, 8, ".*([");
    row("regex_escape", size, "tarnutil", [text] {
        tarnstring copy(text);
        copy.regex_escape();
        return copy;
    });
    row("regex_escape", size, "RE2::QuoteMeta", [text] { return RE2::QuoteMeta(text); });
    row("regex_escape", size, "by_hand", [text] { return escapedByHand(text, ".^$*+?()[{\\|"); });
}

// Nothing to escape: the text is only looked through.
void addEscapeNothing(std::size_t size) {
    const tarnstring text(words(size, 8, "_"));
    row("escape_nothing", size, "tarnutil", [text = text]() mutable {
        text.shell_escape();
        return text.data();
    });
    row("escape_nothing", size, "by_hand",
        [text] { return escapedByHand(text, "\"'`<>|;& \x14\x0E()[]{}?*^~#$!=,:\\"); });
}

// Entries until their text has about `size` bytes.
Map entries(std::size_t size) {
    Map map;
    Numbers numbers;
    for (std::size_t length = 0; length < size; length += 16) {
        map["key" + std::to_string(100000 + map.size())] =
            std::string(1 + numbers.below(10), static_cast<char>('a' + numbers.below(26)));
    }
    return map;
}

void addMap(std::size_t size) {
    const Map map = entries(size);
    const std::string text = StringUtil::toString(map);
    row("map_to_text", size, "tarnutil", [map] { return StringUtil::toString(map); });
    row("map_to_text", size, "absl::StrJoin",
        [map] { return absl::StrJoin(map, " ", absl::PairFormatter("=")); });
    row("map_from_text", size, "tarnutil", [text] { return StringUtil::fromString<Map>(text); });
    row("map_from_text", size, "absl::StrSplit", [text] {
        const Map made = absl::StrSplit(text, absl::ByAnyChar("= "));
        return made;
    });
    row("map_from_text", size, "absl::StrSplit_twice", [text] {
        Map made;
        for (const absl::string_view word : absl::StrSplit(text, ' ')) {
            made.insert(
                std::pair<std::string, std::string>(absl::StrSplit(word, absl::MaxSplits('=', 1))));
        }
        return made;
    });
}

void addAll() {
    for (const std::size_t size : kSizes) {
        addSplit(size, "short", 8);
        addSplit(size, "long", 60);
        addHex(size);
        addNormalize(size);
        addShellEscape(size);
        addRegexEscape(size);
        addEscapeNothing(size);
        addMap(size);
    }
    for (const std::size_t size : {8, 24, 1000, 4096, 65536, 1 << 20}) addTrim(size);
}

const tarnutil_bench::Added added(addAll);

}  // namespace
