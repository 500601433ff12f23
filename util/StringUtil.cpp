// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/StringUtil.h>

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

#include "block.h"
#include "boundary.h"
#include "ip_text.h"
#include "key_value.h"

namespace tarnutil {
namespace {

using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;
using Map = std::map<std::string, std::string>;

// As many bytes as a string holds without an allocation.
constexpr std::size_t kShort = 15;

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

    // The space is filled up to `end`.
    void filledTo(const char* end) { used = static_cast<std::size_t>(end - buffer); }

    // Leaves in `out` what was built. What the buffer holds is allocated at its size, or goes where
    // `out` has room for it.
    void moveTo(std::string& out) {
        if (text.empty() && used <= out.capacity()) {
            out.assign(buffer, used);
        } else if (text.empty()) {
            out = std::string(buffer, used);
        } else {
            flush();
            out = std::move(text);
        }
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

// How many bytes at either end of a text are to go: Block::size says that more may follow.
struct Ends {
    unsigned leading;
    unsigned trailing;
};

// Looks at the first and the last block of `text` for bytes in `chars`.
Ends membersAtEnds(std::string_view text, std::string_view chars) {
    const Block first = Block::at(text.data());
    const Block last = Block::at(text.data() + text.size() - Block::size);
    Block inFirst = Block::of(0);
    Block inLast = Block::of(0);
    for (const char c : chars) {
        const Block wanted = Block::of(c);
        inFirst = inFirst | (first == wanted);
        inLast = inLast | (last == wanted);
    }
    const unsigned stopLeading = ~inFirst.mask();
    const unsigned stopTrailing = ~(inLast.mask() << Block::size);
    return {static_cast<unsigned>(__builtin_ctz(stopLeading)),
            static_cast<unsigned>(__builtin_clz(stopTrailing))};
}

std::string_view trimmed(std::string_view text, std::string_view chars) {
    while (text.size() >= Block::size) {
        const Ends ends = membersAtEnds(text, chars);
        text.remove_prefix(ends.leading);
        text.remove_suffix(std::min<std::size_t>(ends.trailing, text.size()));
        if (ends.leading < Block::size && ends.trailing < Block::size) return text;
    }
    const auto isMember = [&](char c) { return chars.find(c) != std::string_view::npos; };
    while (!text.empty() && isMember(text.front())) text.remove_prefix(1);
    while (!text.empty() && isMember(text.back())) text.remove_suffix(1);
    return text;
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
        char* out = escaped.space(2 * block.size());
        for (const char c : block) {
            const std::size_t isMember = set.contains(c);
            *out = escapeChar;  // to be overwritten by a byte that needs none: no branch to predict
            out[isMember] = c;
            out += isMember + 1;
        }
        escaped.filledTo(out);
        rest.remove_prefix(block.size());
    }
    escaped.moveTo(text);
}

// White space of the "C" locale.
constexpr ByteSet kWhitespace(" \t\n\v\f\r");

// Writes those of the eight `bytes` whose bit in `kept` is set; returns the end of what was
// written. There has to be room for all eight.
char* writeKept(std::uint64_t bytes, unsigned kept, char* out) {
    if ((kept & 0xFF) == 0xFF) {
        std::memcpy(out, &bytes, sizeof bytes);
        return out + sizeof bytes;
    }
    for (std::size_t i = 0; i < sizeof bytes; ++i) {
        *out = static_cast<char>(bytes);  // to be overwritten unless kept: no branch to predict
        out += kept & 1;
        bytes >>= 8;
        kept >>= 1;
    }
    return out;
}

// Writes a text normalised, byte by byte or many at once. What is written may lie up to the place
// of what is read, but not beyond.
struct Normalizer {
    char* out;           // the end of what was kept
    bool inRun = false;  // whether the byte in front of the next one is white space

    void add(char c) {
        const bool space = kWhitespace.contains(c);
        *out = c == '\n' || c == '\t' ? ' ' : c;
        out += !(space && inRun);
        inRun = space;
    }

    // Adds the first `size` bytes, a whole block or half of one.
    template <unsigned size>
    void add(Block bytes) {
        const Block fromTab = bytes - Block::of('\t');
        const Block space = (fromTab <= Block::of('\r' - '\t')) | (bytes == Block::of(' '));
        const Block replaced = bytes.replacedWhere(fromTab <= Block::of('\n' - '\t'), ' ');

        const unsigned spaces = space.mask();
        const unsigned kept = ~(spaces & (spaces << 1 | unsigned{inRun}));
        inRun = (spaces >> (size - 1) & 1) != 0;
        out = writeKept(replaced.firstHalf(), kept, out);
        if (size == Block::size) out = writeKept(replaced.lastHalf(), kept >> Block::half, out);
    }
};

constexpr auto kNoLimit = std::numeric_limits<std::size_t>::max();

// Calls visit(piece) for each piece of `text` between separators, empty ones included, but after
// `limit` of them takes the rest for one piece.
template <class Visit>
void forEachPiece(std::string_view text, char separator, std::size_t limit, Visit visit) {
    std::size_t start = 0;
    for (std::size_t at = 0; limit != 0 && at < text.size(); at += kWindow) {
        std::uint64_t places = placesOf(separator, text.substr(at, kWindow));
        for (; places != 0 && limit != 0; places &= places - 1) {
            const std::size_t found = at + static_cast<std::size_t>(__builtin_ctzll(places));
            visit(text.substr(start, found - start));
            start = found + 1;
            --limit;
        }
    }
    visit(text.substr(start));
}

// Makes room for `more` elements. Room at least doubles, so that many calls that each add a few
// take linear time.
void reserveMore(Strings& out, std::size_t more) {
    const std::size_t needed = out.size() + more;
    if (needed > out.capacity()) out.reserve(std::max(needed, 2 * out.size()));
}

// Appends `piece` of a text that goes on to `end`. A short piece is copied along with what follows
// it and then cut: copying does not have to wait for, or guess, its length.
void appendPiece(Strings& out, std::string_view piece, const char* end) {
    if (piece.size() <= kShort && end - piece.data() >= std::ptrdiff_t{kShort}) {
        out.emplace_back(piece.data(), kShort);
        out.back().erase(piece.size());
    } else {
        out.emplace_back(piece);
    }
}

// Quirk: the limit is compared with the whole of `out`, after each piece: one that `out` has
// reached before the first piece is never met. Pinned by SplitTest.AppendsThePieces.
void splitText(std::string_view text, char separator, Strings& out, unsigned max) {
    const std::size_t limit = max > out.size() ? max - out.size() : kNoLimit;
    reserveMore(out, std::min(countOf(separator, text), limit) + 1);
    const char* const end = text.data() + text.size();
    forEachPiece(text, separator, limit,
                 [&](std::string_view piece) { appendPiece(out, piece, end); });
}

// From the byte behind '9' to 'a'.
constexpr char kAfterNine = 'a' - '9' - 1;

char hexDigit(unsigned value) {
    return static_cast<char>(value + '0' + (value > 9 ? kAfterNine : 0));
}

Block hexDigits(Block values) {
    const Block isLetter = Block::of(10) <= values;
    return values + Block::of('0') + (isLetter & Block::of(kAfterNine));
}

// The entries of a map in order, and the length of their text. Whoever goes through a map waits at
// each node for where the next one is: from both ends at once, half as long. Knowing the length
// saves growing the text.
class EntryList {
public:
    using Entry = Map::value_type;

    explicit EntryList(const Map& map)
        : many(map.size() > kFew ? map.size() : 0),
          first(many.empty() ? few : many.data()),
          last(first + map.size()) {
        auto front = map.begin();
        auto back = map.end();
        for (const Entry **low = first, **high = last; low != high;) {
            *low++ = counted(*front++);
            if (low != high) *--high = counted(*--back);
        }
    }
    EntryList(const EntryList&) = delete;
    EntryList& operator=(const EntryList&) = delete;

    const Entry* const* begin() const { return first; }
    const Entry* const* end() const { return last; }
    std::size_t textLength() const { return length - (first != last ? 1 : 0); }

private:
    const Entry* counted(const Entry& entry) {
        length += entry.first.size() + entry.second.size() + 2;
        return &entry;
    }

    static constexpr std::size_t kFew = 16;

    const Entry* few[kFew];          // an allocation would show beside so few entries
    std::vector<const Entry*> many;  // used for more
    const Entry** const first;
    const Entry** const last;
    std::size_t length = 0;  // with a separator behind each entry
};

char* copied(const std::string& text, char* out) {
    // What follows overwrites where a terminating zero would be.
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result)
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

}  // namespace

std::string& StringUtil::trim(std::string& s, const std::string& chars) {
    const std::string_view kept = trimmed(s, chars);
    if (kept.data() != s.data()) std::memmove(s.data(), kept.data(), kept.size());
    s.erase(kept.size());
    return s;
}

char StringUtil::toHexChar(unsigned char value) { return value < 16 ? hexDigit(value) : '0'; }

std::string StringUtil::toHexString(const Bytes& bytes) {
    std::string text(2 * bytes.size(), '\0');
    char* out = text.data();
    std::size_t at = 0;
    for (; at + Block::half <= bytes.size(); at += Block::half, out += Block::size) {
        const Block digits = Block::halfAt(bytes.data() + at);
        hexDigits(Block::interleave(digits.highNibbles(), digits & Block::of(0x0F))).storeTo(out);
    }
    for (; at < bytes.size(); ++at) {
        *out++ = hexDigit(bytes[at] >> 4);
        *out++ = hexDigit(bytes[at] & 0x0F);
    }
    return text;
}

std::string StringUtil::normalize(const std::string& text) {
    std::string kept(text.size(), '\0');
    Normalizer normalizer{kept.data()};
    std::size_t at = 0;
    for (; at + Block::size <= text.size(); at += Block::size) {
        normalizer.add<Block::size>(Block::at(text.data() + at));
    }
    if (at + Block::half <= text.size()) {
        normalizer.add<Block::half>(Block::halfAt(text.data() + at));
        at += Block::half;
    }
    for (; at < text.size(); ++at) normalizer.add(text[at]);
    kept.erase(static_cast<std::size_t>(normalizer.out - kept.data()));
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
    const EntryList entries(value);
    std::string text(entries.textLength(), '\0');
    char* out = text.data();
    for (const EntryList::Entry* const entry : entries) {
        if (out != text.data()) *out++ = ' ';
        out = copied(entry->first, out);
        *out++ = '=';
        out = copied(entry->second, out);
    }
    return text;
}

// Quirk: an empty word is an entry too, and so is the empty text. Pinned by
// MapTextTest.ReadsTheWords.
template <>
Map StringUtil::fromString(const std::string& text) {
    Map map;
    forEachPiece(text, ' ', kNoLimit, [&](std::string_view word) { store(map, word); });
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
