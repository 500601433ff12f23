#include <tarnutil/StringUtil.h>

#include <emmintrin.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

#include <tarnutil/Exception.h>

#include "boundary.h"
#include "ip_text.h"

namespace tarnutil {
namespace {

using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;
using Map = std::map<std::string, std::string>;

// Sixteen bytes at a time, with what every x86-64 processor has: the bytes at `at`, and one bit for
// each byte of a comparison's result.
constexpr std::size_t kBlock = sizeof(__m128i);

__m128i load(const char* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); }

unsigned maskOf(__m128i comparison) { return static_cast<unsigned>(_mm_movemask_epi8(comparison)); }

// A set of byte values.
class ByteSet {
public:
    constexpr explicit ByteSet(std::string_view bytes) {
        for (const char byte : bytes) insert(byte);
    }

    constexpr void insert(char c) { members[static_cast<unsigned char>(c)] = true; }
    constexpr bool contains(char c) const { return members[static_cast<unsigned char>(c)]; }

private:
    bool members[256] = {};
};

// Builds a string from many small parts: they are collected in a buffer that costs no allocation
// and stays in the processor's nearest cache.
class Builder {
public:
    // Space for the next `length` bytes, which may be no more than kSpace.
    char* space(std::size_t length) {
        if (length > kSpace - used) flush();
        return buffer + used;
    }

    // That many bytes of the space are filled.
    void filled(std::size_t length) { used += length; }

    void append(std::string_view part) {
        if (part.size() > kSpace) {
            flush();
            text.append(part);
            return;
        }
        std::memcpy(space(part.size()), part.data(), part.size());
        filled(part.size());
    }

    std::string take() {
        flush();
        return std::move(text);
    }

    static constexpr std::size_t kSpace = 1024;

private:
    void flush() {
        text.append(buffer, used);
        used = 0;
    }

    std::string text;
    std::size_t used = 0;
    char buffer[kSpace];
};

// One bit for each of the sixteen bytes at `at` that is in `chars`.
unsigned membersAt(const char* at, std::string_view chars) {
    const __m128i bytes = load(at);
    __m128i members = _mm_setzero_si128();
    for (const char c : chars) {
        members = _mm_or_si128(members, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)));
    }
    return maskOf(members);
}

bool isMember(char c, std::string_view chars) { return chars.find(c) != std::string_view::npos; }

constexpr unsigned kWholeBlock = 0xFFFF;

// How many bytes in front of the first one that is not in `chars`.
std::size_t leadingMembers(std::string_view text, std::string_view chars) {
    std::size_t count = 0;
    for (; text.size() - count >= kBlock; count += kBlock) {
        const unsigned others = membersAt(text.data() + count, chars) ^ kWholeBlock;
        if (others != 0) return count + static_cast<unsigned>(__builtin_ctz(others));
    }
    while (count < text.size() && isMember(text[count], chars)) ++count;
    return count;
}

// How many bytes there are up to the last one that is not in `chars`.
std::size_t lengthWithoutTrailingMembers(std::string_view text, std::string_view chars) {
    std::size_t length = text.size();
    for (; length >= kBlock; length -= kBlock) {
        const unsigned others = membersAt(text.data() + length - kBlock, chars) ^ kWholeBlock;
        if (others != 0) {
            return length - kBlock + 32 - static_cast<unsigned>(__builtin_clz(others));
        }
    }
    while (length > 0 && isMember(text[length - 1], chars)) --length;
    return length;
}

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

// Puts `escapeChar` in front of each byte of `text` that is in `set`. Nothing is allocated if there
// is none.
void escapeMembers(std::string& text, char escapeChar, const ByteSet& set) {
    const auto isInSet = [&](char c) { return set.contains(c); };
    if (std::none_of(text.begin(), text.end(), isInSet)) return;

    Builder escaped;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::string_view block = rest.substr(0, Builder::kSpace / 2);
        char* const begin = escaped.space(2 * block.size());
        char* out = begin;
        for (const char c : block) {
            *out = escapeChar;  // to be overwritten by a byte that needs none: no branch to predict
            out += set.contains(c);
            *out++ = c;
        }
        escaped.filled(static_cast<std::size_t>(out - begin));
        rest.remove_prefix(block.size());
    }
    text = escaped.take();
}

// White space of the "C" locale.
constexpr ByteSet kWhitespace(" \t\n\v\f\r");

// `c` as normalize keeps it.
char normalized(char c) { return c == '\n' || c == '\t' ? ' ' : c; }

// All ones for each byte that, as an unsigned number, is no more than `limit`.
__m128i isAtMost(__m128i bytes, char limit) {
    return _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(limit)), bytes);
}

// Normalises the sixteen bytes at `in` to `out`, which has room for as many; returns the end of
// what was kept. `inRun` says whether the byte in front of them is white space, and then whether
// their last one is.
char* normalizeBlock(const char* in, char* out, bool& inRun) {
    const __m128i bytes = load(in);
    const __m128i blank = _mm_set1_epi8(' ');
    const __m128i fromTab = _mm_sub_epi8(bytes, _mm_set1_epi8('\t'));
    const __m128i toReplace = isAtMost(fromTab, '\n' - '\t');
    const __m128i space =
        _mm_or_si128(isAtMost(fromTab, '\r' - '\t'), _mm_cmpeq_epi8(bytes, blank));
    const __m128i replaced =
        _mm_or_si128(_mm_andnot_si128(toReplace, bytes), _mm_and_si128(toReplace, blank));

    const unsigned spaces = maskOf(space);
    const unsigned dropped = spaces & (spaces << 1 | unsigned{inRun});
    inRun = (spaces & 0x8000) != 0;
    if (dropped == 0) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), replaced);
        return out + kBlock;
    }
    char block[kBlock];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(block), replaced);
    for (unsigned i = 0; i < kBlock; ++i) {
        *out = block[i];  // to be overwritten if it is to be dropped: no branch to predict
        out += (~dropped >> i) & 1;
    }
    return out;
}

constexpr auto kNoLimit = std::numeric_limits<std::size_t>::max();

// Calls visit(piece) for each piece of `text` between separators, empty ones included, but after
// `limit` of them takes the rest for one piece.
template <class Visit>
void forEachPiece(std::string_view text, char separator, std::size_t limit, Visit visit) {
    std::size_t start = 0;
    const auto visitUpTo = [&](std::size_t found) {
        visit(text.substr(start, found - start));
        start = found + 1;
        --limit;
    };
    const __m128i wanted = _mm_set1_epi8(separator);
    std::size_t at = 0;
    for (; limit != 0 && text.size() - at >= kBlock; at += kBlock) {
        unsigned found = maskOf(_mm_cmpeq_epi8(load(text.data() + at), wanted));
        for (; found != 0 && limit != 0; found &= found - 1) {
            visitUpTo(at + static_cast<unsigned>(__builtin_ctz(found)));
        }
    }
    for (; limit != 0 && at < text.size(); ++at) {
        if (text[at] == separator) visitUpTo(at);
    }
    visit(text.substr(start));
}

// How many bytes of `text` are `wanted`. Counted in bytes, block by block, which the compiler makes
// sixteen counts at a time.
std::size_t countOf(char wanted, std::string_view text) {
    constexpr std::size_t kCountable = 240;
    std::size_t total = 0;
    while (!text.empty()) {
        const std::string_view block = text.substr(0, kCountable);
        unsigned char count = 0;
        for (const char c : block) count = static_cast<unsigned char>(count + (c == wanted));
        total += count;
        text.remove_prefix(block.size());
    }
    return total;
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
    reserveMore(out, std::min(countOf(separator, text), limit) + 1);
    forEachPiece(text, separator, limit, [&](std::string_view piece) { out.emplace_back(piece); });
}

// Arithmetic instead of a table: the compiler makes it sixteen digits at a time.
char hexDigit(unsigned char value) {
    return static_cast<char>(value + '0' + (value > 9 ? 'a' - '9' - 1 : 0));
}

// More than the text of any address needs.
constexpr std::uint32_t kIpTextSize = 256;

}  // namespace

std::string& StringUtil::trim(std::string& s, const std::string& chars) {
    const std::size_t length = lengthWithoutTrailingMembers(s, chars);
    const std::size_t leading = leadingMembers({s.data(), length}, chars);
    if (leading != 0) std::memmove(s.data(), s.data() + leading, length - leading);
    s.resize(length - leading);
    return s;
}

char StringUtil::toHexChar(unsigned char value) { return value < 16 ? hexDigit(value) : '0'; }

std::string StringUtil::toHexString(const Bytes& bytes) {
    const std::size_t size = bytes.size();
    std::string text(2 * size, '\0');
    const unsigned char* const in = bytes.data();
    char* const out = text.data();
    for (std::size_t i = 0; i < size; ++i) {
        out[2 * i] = hexDigit(static_cast<unsigned char>(in[i] >> 4));
        out[2 * i + 1] = hexDigit(in[i] & 0xF);
    }
    return text;
}

std::string StringUtil::normalize(const std::string& text) {
    std::string kept(text.size(), '\0');
    char* out = kept.data();
    bool inRun = false;
    std::size_t at = 0;
    for (; text.size() - at >= kBlock; at += kBlock) {
        out = normalizeBlock(text.data() + at, out, inRun);
    }
    for (; at < text.size(); ++at) {
        const bool space = kWhitespace.contains(text[at]);
        *out = normalized(text[at]);
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
    Builder text;
    const char* gap = "";
    for (const auto& [key, entry] : value) {
        text.append(gap);
        text.append(key);
        text.append("=");
        text.append(entry);
        gap = " ";
    }
    return text.take();
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

// The set comes by value because callers link against that signature.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void tarnstring::escape(char escapeChar, std::string set) {
    ByteSet members(set);
    members.insert(escapeChar);
    escapeMembers(*this, escapeChar, members);
}

void tarnstring::shell_escape() { escapeMembers(*this, kEscapeChar, kShellSet); }

void tarnstring::regex_escape() { escapeMembers(*this, kEscapeChar, kRegexSet); }

}  // namespace tarnutil
