// SPDX-License-Identifier: Apache-2.0
// Text helpers: trimming, hex, whitespace, splitting and escaping, and the text form of string maps
// and IP addresses.
//
// Strings are bytes: no encoding is assumed, zero bytes are bytes like others, and white space is
// what isspace() knows in the "C" locale, except where a comment says otherwise.
//
// Errors:  stringToIp and ipToString throw tarnutil::Exception and nothing else. In these two:
//          A failed allocation ends the process (std::terminate). In all others nothing else can
//          fail: A failed allocation throws std::bad_alloc.
// Threads: re-entrant; only the arguments are touched.
#ifndef TARNUTIL_STRINGUTIL_H
#define TARNUTIL_STRINGUTIL_H

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <tarnutil/export.h>
#include <tarnutil/ip.h>

namespace tarnutil {

class TARNUTIL_API StringUtil {
public:
    StringUtil() = delete;

    // Removes the bytes in `chars` from both ends of `s`, in place; returns `s`.
    static std::string& trim(std::string& s, const std::string& chars);

    // The lower-case hex digit of a value below 16, '0' for any other value.
    static char toHexChar(unsigned char value);

    // Two lower-case hex digits for each byte.
    static std::string toHexString(const std::vector<unsigned char>& bytes);

    // `text` with each run of white space shrunk to its first byte, in which a line feed or a tab
    // becomes a space (a carriage return, vertical tab or form feed stays). Neither end is trimmed.
    static std::string normalize(const std::string& text);

    // Whether isspace() holds for both bytes, each taken as a signed char, in the locale that the
    // calling thread was given by uselocale(), or else in that of the process.
    static bool bothWhitespace(char a, char b);

    // Appends the pieces between separators to `out`, which is not cleared first. Neighbouring
    // separators, and one at an end, make empty pieces; an empty text is one empty piece.
    //
    // With `max` other than 0, splitting stops once `out` holds `max` elements, those that it held
    // before included, and the rest follows unsplit as one more piece: "a,b,c,d" with 2 gives "a",
    // "b", "c,d". An `out` that holds `max` or more to begin with is never cut short. The text must
    // not be an element of `out`.
    static void split(const std::string& s, char separator, std::vector<std::string>& out,
                      unsigned max = 0);
    static void split(const std::vector<unsigned char>& data, char separator,
                      std::vector<std::string>& out, unsigned max = 0);

    // The text form of a value, and the value of a text. There is one for
    //
    // std::string: a copy.
    //
    // std::map<std::string, std::string>: "key=value" words in key order, one space between two;
    // nothing is quoted. Reading splits at every space, and a word at its first "="; a word without
    // "=" is a key with an empty value, and of equal keys the last one counts. An empty word is the
    // empty key with an empty value, and the text of an empty map is one empty word. A map comes
    // back as it was if it is not empty and holds no space and, in its keys, no "=".
    template <class T>
    static std::string toString(const T& value) = delete;
    template <class T>
    static T fromString(const std::string& text) = delete;

    // The address that `text`, read up to its first zero byte, stands for: IPv6, or IPv4 as
    // ::ffff:a.b.c.d. For other text throws
    // Exception: Could not convert string to IP address: "<text>"
    static ip_addr_t stringToIp(const std::string& text);

    // The text of an address: a dotted quad for IPv4, also for ::ffff:a.b.c.d. On failure throws
    // Exception: Could not convert IP address to string: <the system's text>
    static std::string ipToString(const ip_addr_t& addr);
};

template <>
TARNUTIL_API std::string StringUtil::toString(const std::string& value);
template <>
TARNUTIL_API std::string StringUtil::fromString(const std::string& text);
template <>
TARNUTIL_API std::string StringUtil::toString(const std::map<std::string, std::string>& value);
template <>
TARNUTIL_API std::map<std::string, std::string> StringUtil::fromString(const std::string& text);

// A string that can escape itself. It holds nothing more than a std::string does.
class TARNUTIL_API tarnstring : public std::string {
public:
    tarnstring() = default;

    // As the constructors of std::string with these arguments.
    explicit tarnstring(const char* text) : std::string(text) {}
    explicit tarnstring(const std::string& text) : std::string(text) {}
    explicit tarnstring(std::string&& text) : std::string(std::move(text)) {}
    tarnstring(const char* text, std::size_t length) : std::string(text, length) {}
    tarnstring(std::size_t count, char c) : std::string(count, c) {}

    using std::string::operator=;

    // Puts `escapeChar` in front of each byte that is in `set`, and of each `escapeChar`.
    void escape(char escapeChar, std::string set);

    // Puts a backslash in front of each of these 28 bytes: the space, 0x14, 0x0E and
    //     " ' ` \ < > | ; ( ) [ ] { } ? # $ ^ & * = , : ! ~
    // Line feed, tab and carriage return are not among them: quoting for display, not a security
    // boundary.
    void shell_escape();

    // Puts a backslash in front of each of . ^ $ * + ? ( ) [ { \ | but not of the closing ] and }:
    // in ECMAScript, POSIX extended and Perl expressions without the flags u, v and x the text then
    // stands for itself. (ECMAScript's u and v refuse a lone ] or }, Perl's x skips blanks and #.)
    void regex_escape();
};

}  // namespace tarnutil
#endif  // TARNUTIL_STRINGUTIL_H
