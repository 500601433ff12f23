#include <tarnutil/StringUtil.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>

#include <tarnutil/Exception.h>

#include "boundary.h"
#include "ip_text.h"

namespace tarnutil {
namespace {

using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;
using Map = std::map<std::string, std::string>;

// A set of byte values, made and asked in constant time.
class ByteSet {
public:
    constexpr explicit ByteSet(std::string_view members) : words{} {
        for (const char member : members) insert(member);
    }

    constexpr void insert(char member) { words[word(member)] |= bit(member); }
    constexpr bool contains(char c) const { return (words[word(c)] & bit(c)) != 0; }

private:
    static constexpr std::size_t word(char c) { return static_cast<unsigned char>(c) / 64; }
    static constexpr std::uint64_t bit(char c) {
        return std::uint64_t{1} << (static_cast<unsigned char>(c) % 64);
    }

    std::uint64_t words[4];
};

constexpr char kEscapeChar = '\\';

// Quirk: two control bytes are in the shell's set; tab, line feed and carriage return are not.
// Pinned by EscapeTest.ShellSetIsExactlyThese.
constexpr ByteSet kShellSet(
    "\"'`"       // quotes
    "\\"         // the escape character
    "<>|;&"      // redirection, pipes, lists
    " \x14\x0E"  // blank and control bytes
    "()[]{}"     // groups
    "?*^~"       // patterns
    "#$!=,:");   // comment, expansions, assignment, lists

// Quirk: the closing bracket and brace are not in the set. Pinned by
// EscapeTest.RegexSetIsExactlyThese.
constexpr ByteSet kRegexSet(".^$*+?()[{\\|");

// `text` becomes the same with `escapeChar` in front of each byte of `set`. Nothing is allocated if
// there is none.
void escapeMembers(std::string& text, char escapeChar, const ByteSet& set) {
    std::size_t members = 0;
    for (const char c : text) members += set.contains(c);
    if (members == 0) return;

    std::string escaped(text.size() + members, '\0');
    char* out = escaped.data();
    for (const char c : text) {
        *out = escapeChar;  // to be overwritten by a byte that needs none
        out += set.contains(c);
        *out++ = c;
    }
    text.swap(escaped);
}

// White space of the "C" locale.
constexpr ByteSet kWhitespace(" \t\n\v\f\r");

constexpr auto kNoLimit = std::numeric_limits<std::size_t>::max();

// Calls visit(piece) for each piece of `text` between separators, empty ones included, but after
// `limit` of them takes the rest for one piece.
template <class Visit>
void forEachPiece(std::string_view text, char separator, std::size_t limit, Visit visit) {
    std::size_t start = 0;
    for (; limit != 0; --limit) {
        const std::size_t found = text.find(separator, start);
        if (found == std::string_view::npos) break;
        visit(text.substr(start, found - start));
        start = found + 1;
    }
    visit(text.substr(start));
}

// Makes room for `more` elements. Room at least doubles, so that many calls that each add a few
// take linear time.
void reserveMore(Strings& out, std::size_t more) {
    const std::size_t needed = out.size() + more;
    if (needed > out.capacity()) out.reserve(std::max(needed, 2 * out.size()));
}

// Quirk: the limit is compared with the whole of `out`, after each piece: one that `out` has
// reached before the first piece is never met. Pinned by SplitTest.AppendsThePieces.
void splitText(std::string_view text, char separator, Strings& out, unsigned max) {
    const std::size_t limit = max > out.size() ? max - out.size() : kNoLimit;
    const auto separators =
        static_cast<std::size_t>(std::count(text.begin(), text.end(), separator));
    reserveMore(out, std::min(separators, limit) + 1);
    forEachPiece(text, separator, limit, [&](std::string_view piece) { out.emplace_back(piece); });
}

constexpr char kHexDigits[] = "0123456789abcdef";

// More than the text of any address needs.
constexpr std::uint32_t kIpTextSize = 256;

}  // namespace

std::string& StringUtil::trim(std::string& s, const std::string& chars) {
    const ByteSet set(chars);
    const auto stays = [&](char c) { return !set.contains(c); };
    s.erase(std::find_if(s.rbegin(), s.rend(), stays).base(), s.end());
    s.erase(s.begin(), std::find_if(s.begin(), s.end(), stays));
    return s;
}

char StringUtil::toHexChar(unsigned char value) { return value < 16 ? kHexDigits[value] : '0'; }

std::string StringUtil::toHexString(const Bytes& bytes) {
    std::string text(2 * bytes.size(), '\0');
    char* out = text.data();
    for (const unsigned char byte : bytes) {
        *out++ = kHexDigits[byte >> 4];
        *out++ = kHexDigits[byte & 0xF];
    }
    return text;
}

std::string StringUtil::normalize(const std::string& text) {
    std::string kept(text.size(), '\0');
    char* out = kept.data();
    bool inRun = false;
    for (const char c : text) {
        const bool space = kWhitespace.contains(c);
        *out = c == '\n' || c == '\t' ? ' ' : c;
        out += !(space && inRun);
        inRun = space;
    }
    kept.resize(static_cast<std::size_t>(out - kept.data()));
    return kept;
}

bool StringUtil::bothWhitespace(char a, char b) {
    return std::isspace(static_cast<signed char>(a)) != 0 &&
           std::isspace(static_cast<signed char>(b)) != 0;
}

void StringUtil::split(const std::string& s, char separator, Strings& out, unsigned max) {
    splitText(s, separator, out, max);
}

void StringUtil::split(const Bytes& data, char separator, Strings& out, unsigned max) {
    splitText({reinterpret_cast<const char*>(data.data()), data.size()}, separator, out, max);
}

template <>
std::string StringUtil::toString(const std::string& value) {
    return value;
}

template <>
std::string StringUtil::fromString(const std::string& text) {
    return text;
}

template <>
std::string StringUtil::toString(const Map& value) {
    std::string text;
    for (const auto& [key, entry] : value) {
        if (!text.empty()) text += ' ';
        text.append(key).append(1, '=').append(entry);
    }
    return text;
}

// Quirk: an empty word is an entry too, and so is the empty text. Pinned by
// MapTextTest.ReadsTheWords.
template <>
Map StringUtil::fromString(const std::string& text) {
    Map map;
    forEachPiece(text, ' ', kNoLimit, [&](std::string_view word) {
        const std::string_view key = word.substr(0, word.find('='));
        const std::string_view value = word.substr(std::min(key.size() + 1, word.size()));
        map.insert_or_assign(map.end(), std::string(key), value);  // in order as toString wrote it
    });
    return map;
}

ip_addr_t StringUtil::stringToIp(const std::string& text) {
    return admitOnly<Exception>([&] {
        ip_addr_t addr;
        if (!parseIp(text.c_str(), addr)) {
            throw Exception("Could not convert string to IP address: \"" + text + "\"");
        }
        return addr;
    });
}

std::string StringUtil::ipToString(const ip_addr_t& addr) {
    return admitOnly<Exception>([&] {
        const auto buffer = std::make_unique<char[]>(kIpTextSize);
        if (printIp(addr, buffer.get(), kIpTextSize) == nullptr) {
            const int error = errno;
            throw Exception("Could not convert IP address to string: " +
                            Exception::getStrerror(error));
        }
        return std::string(buffer.get());
    });
}

void tarnstring::escape(char escapeChar, std::string set) {
    ByteSet members(set);
    members.insert(escapeChar);
    escapeMembers(*this, escapeChar, members);
}

void tarnstring::shell_escape() { escapeMembers(*this, kEscapeChar, kShellSet); }

void tarnstring::regex_escape() { escapeMembers(*this, kEscapeChar, kRegexSet); }

}  // namespace tarnutil
