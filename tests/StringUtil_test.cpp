// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/StringUtil.h>

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <regex.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <functional>
#include <new>
#include <regex>
#include <thread>
#include <type_traits>

#include <tarnutil/Exception.h>

#include "fail_each.h"
#include "fault.h"
#include "ip_texts.h"
#include "random.h"
#include "text_model.h"
#include "trail.h"

using namespace tarnutil;
using namespace tarnutil_test;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::ThrowsMessage;

namespace {

using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;
using Map = std::map<std::string, std::string>;

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

// A text of every byte value in order.
std::string everyByte() {
    std::string all(256, '\0');
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<char>(i);
    return all;
}

constexpr int kRandomRounds = 20000;

}  // namespace

static_assert(!std::is_default_constructible_v<StringUtil>, "StringUtil is only static members");
static_assert(sizeof(tarnstring) == sizeof(std::string), "tarnstring carries no data of its own");
static_assert(!std::is_convertible_v<const char*, tarnstring>, "its constructors are explicit");

// ---- Trim ----

struct TrimCase {
    const char* says;
    std::string text;
    std::string chars;
    std::string trimmed;
};

// clang-format off
const TrimCase kTrimCases[] = {
    // says                                  text              chars     trimmed
    {"both ends",                            "  x  ",          " ",      "x"},
    {"only the front",                       "  x",            " ",      "x"},
    {"only the back",                        "x  ",            " ",      "x"},
    {"nothing to remove",                    "x",              " ",      "x"},
    {"what is inside stays",                 " a b ",          " ",      "a b"},
    {"a text of nothing else",               "    ",           " ",      ""},
    {"an empty text",                        "",               " ",      ""},
    {"no characters remove nothing",         " x ",            "",       " x "},
    {"no characters, an empty text",         "",               "",       ""},
    {"several characters in any order",      "-+ x +-",        "+- ",    "x"},
    {"one byte that goes",                   "x",              "x",      ""},
    {"a zero byte in the characters",        "\0x\0"s,         "\0"s,    "x"},
    {"a zero byte in the text stays",        " \0x\0 "s,       " ",      "\0x\0"s},
    {"bytes above 7F",                       "\xFF\x80x\xFF",  "\xFF\x80", "x"},
    {"a byte and the one 64 above differ",   "!a!",            "\x61\xE1", "!a!"},
};
// clang-format on

class TrimTest : public testing::TestWithParam<TrimCase> {};
INSTANTIATE_TEST_SUITE_P(All, TrimTest, testing::ValuesIn(kTrimCases));

TEST_P(TrimTest, RemovesTheCharactersFromBothEnds) {
    std::string text = GetParam().text;
    std::string& result = StringUtil::trim(text, GetParam().chars);
    EXPECT_EQ(text, GetParam().trimmed) << GetParam().says;
    EXPECT_EQ(&result, &text);
}

TEST(TrimOfItselfTest, LeavesNothing) {
    std::string text = "abc";
    EXPECT_EQ(StringUtil::trim(text, text), "");
}

TEST(TrimRandomTest, RemovesOneByteAfterTheOther) {
    Random random;
    for (int i = 0; i < kRandomRounds; ++i) {
        const std::string alphabet = random.bytes(4) + "ab\0"s;
        const std::string chars = random.text(3, alphabet);
        std::string text = random.text(70, random.upTo(1) == 0 ? alphabet : chars + "a");
        const std::string expected = modelTrimmed(text, chars);
        ASSERT_EQ(StringUtil::trim(text, chars), expected);
    }
}

// ---- Hex ----

TEST(HexTest, EachValueHasItsDigitAndOthersHaveZero) {
    const std::string digits = "0123456789abcdef";
    for (unsigned value = 0; value < 256; ++value) {
        EXPECT_EQ(StringUtil::toHexChar(static_cast<unsigned char>(value)),
                  value < 16 ? digits[value] : '0')
            << value;
    }
}

TEST(HexTest, BytesAreTwoLowerCaseDigitsEach) {
    EXPECT_EQ(StringUtil::toHexString({}), "");
    EXPECT_EQ(StringUtil::toHexString({0x00, 0xAB, 0xFF}), "00abff");
    for (unsigned value = 0; value < 256; ++value) {
        char expected[3];
        std::snprintf(expected, sizeof expected, "%02x", value);
        EXPECT_EQ(StringUtil::toHexString({static_cast<unsigned char>(value)}), expected);
    }
}

TEST(HexRandomTest, IsWhatPrintfWrites) {
    Random random;
    for (int i = 0; i < kRandomRounds / 10; ++i) {
        const Bytes bytes = bytesOf(random.bytes(200));
        std::string expected;
        for (const unsigned byte : bytes) {
            char digits[3];
            std::snprintf(digits, sizeof digits, "%02x", byte);
            expected += digits;
        }
        ASSERT_EQ(StringUtil::toHexString(bytes), expected);
    }
}

// ---- White space ----

struct NormalizeCase {
    const char* says;
    std::string text;
    std::string normalized;
};

// clang-format off
const NormalizeCase kNormalizeCases[] = {
    // says                                          text             normalized
    {"an empty text",                                "",              ""},
    {"nothing to do",                                "a b",           "a b"},
    {"runs of tabs and line feeds become a space",   "a\t\tb\n\nc",   "a b c"},
    {"one tab, one line feed",                       "a\tb\nc",       "a b c"},
    {"runs at the ends shrink and stay",             "  a  ",         " a "},
    {"nothing but space",                            "   ",           " "},
    {"one space",                                    " ",             " "},
    {"a run that starts with a space is a space",    "a \r b",        "a b"},
    {"a carriage return that starts a run stays",    "a\r\n b",       "a\rb"},
    {"so does a vertical tab",                       "a\v \tb",       "a\vb"},
    {"and a form feed",                              "a\f\fb",        "a\fb"},
    {"and each of them alone",                       "a\rb\vc\fd",    "a\rb\vc\fd"},
    {"a tab that starts a run is a space",           "a\t\r\v\fb",    "a b"},
    {"letter case stays",                            "aA  Bb",        "aA Bb"},
    {"other repeated bytes stay",                    "aa..bb",        "aa..bb"},
    {"zero bytes are no white space",                "\0\0 \0"s,      "\0\0 \0"s},
    {"bytes above 7F are no white space",            "\xA0\xA0\x85\x85\xFF\xFF", "\xA0\xA0\x85\x85\xFF\xFF"},
    {"control bytes around white space stay",        "\x08\x08\x0E\x0E\x1F\x1F", "\x08\x08\x0E\x0E\x1F\x1F"},
};
// clang-format on

class NormalizeTest : public testing::TestWithParam<NormalizeCase> {};
INSTANTIATE_TEST_SUITE_P(All, NormalizeTest, testing::ValuesIn(kNormalizeCases));

TEST_P(NormalizeTest, ShrinksRunsOfWhiteSpace) {
    EXPECT_EQ(StringUtil::normalize(GetParam().text), GetParam().normalized) << GetParam().says;
}

TEST(NormalizeRandomTest, IsReplacingAndUniqueCopying) {
    Random random;
    for (int i = 0; i < kRandomRounds; ++i) {
        const std::string text =
            i % 2 == 0 ? random.bytes(100) : random.text(100, "ab\xFF \t\n\v\f\r");
        ASSERT_EQ(StringUtil::normalize(text), modelNormalized(text));
    }
}

TEST(BothWhitespaceTest, HoldsForSixBytesInAllPairs) {
    const std::string space = " \t\n\v\f\r";
    for (const char a : everyByte()) {
        for (const char b : everyByte()) {
            const bool both =
                space.find(a) != std::string::npos && space.find(b) != std::string::npos;
            ASSERT_EQ(StringUtil::bothWhitespace(a, b), both) << int{a} << ", " << int{b};
        }
    }
}

// ---- Split ----

struct SplitCase {
    const char* says;
    Strings already;
    std::string text;
    unsigned max;
    Strings pieces;
};

// clang-format off
const SplitCase kSplitCases[] = {
    // says                                          already       text            max  pieces
    {"an empty text is one empty piece",             {},           "",             0,   {""}},
    {"a text without separators is one piece",       {},           "abc",          0,   {"abc"}},
    {"neighbours and ends make empty pieces",        {},           "a,,b,",        0,   {"a", "", "b", ""}},
    {"a separator alone makes two",                  {},           ",",            0,   {"", ""}},
    {"pieces are appended",                          {"x", "y"},   "a,b",          0,   {"x", "y", "a", "b"}},
    {"zero bytes are bytes like others",             {},           "a\0b,\0"s,     0,   {"a\0b"s, "\0"s}},
    {"the rest stays whole at the limit",            {},           "a,b,c,d",      2,   {"a", "b", "c,d"}},
    {"a limit of one",                               {},           "a,b,c",        1,   {"a", "b,c"}},
    {"the rest may be empty",                        {},           "a,",           1,   {"a", ""}},
    {"a limit of as many pieces as there are",       {},           "a,b,c",        3,   {"a", "b", "c"}},
    {"a limit that the last separator reaches",      {},           "a,b,c",        2,   {"a", "b", "c"}},
    {"a limit beyond all pieces",                    {},           "a,b",          9,   {"a", "b"}},
    {"an empty text with a limit",                   {},           "",             1,   {""}},
    {"the limit counts what was there before",       {"x"},        "a,b,c,d",      3,   {"x", "a", "b", "c,d"}},
    {"one that is reached already never triggers",   {"x"},        "a,b,c",        1,   {"x", "a", "b", "c"}},
    {"nor one that is exceeded already",             {"x", "y"},   "a,b,c",        1,   {"x", "y", "a", "b", "c"}},
    {"the highest limit",                            {"x"},        "a,b,c",        ~0U, {"x", "a", "b", "c"}},
    {"long pieces come whole",                       {},           std::string(100, 'a') + "," + std::string(1000, 'b'), 0,
                                                                   {std::string(100, 'a'), std::string(1000, 'b')}},
};
// clang-format on

class SplitTest : public testing::TestWithParam<SplitCase> {};
INSTANTIATE_TEST_SUITE_P(All, SplitTest, testing::ValuesIn(kSplitCases));

TEST_P(SplitTest, AppendsThePieces) {
    Strings out = GetParam().already;
    StringUtil::split(GetParam().text, ',', out, GetParam().max);
    EXPECT_EQ(out, GetParam().pieces) << GetParam().says;
}

TEST_P(SplitTest, AppendsThePiecesOfBytes) {
    Strings out = GetParam().already;
    StringUtil::split(bytesOf(GetParam().text), ',', out, GetParam().max);
    EXPECT_EQ(out, GetParam().pieces) << GetParam().says;
}

TEST(SplitSeparatorTest, MayBeAnyByte) {
    for (const char separator : everyByte()) {
        const std::string text = "-"s + separator + "+";
        const Strings expected = separator == '-'   ? Strings{"", "", "+"}
                                 : separator == '+' ? Strings{"-", "", ""}
                                                    : Strings{"-", "+"};
        Strings out;
        StringUtil::split(text, separator, out);
        EXPECT_EQ(out, expected) << int{separator};
        Strings out_of_bytes;
        StringUtil::split(bytesOf(text), separator, out_of_bytes);
        EXPECT_EQ(out_of_bytes, expected) << int{separator};
    }
}

TEST(SplitRandomTest, AppendsWhatTheRulesSay) {
    Random random;
    for (int i = 0; i < kRandomRounds; ++i) {
        const char separator = random.upTo(1) == 0 ? ',' : '\0';
        const std::string text = random.text(i % 2 == 0 ? 40 : 300, "ab,\0\xFF"s);
        const auto max = static_cast<unsigned>(random.upTo(8));
        Strings expected(random.upTo(5), "x");
        Strings out = expected;
        Strings out_of_bytes = expected;
        modelSplit(text, separator, expected, max);
        StringUtil::split(text, separator, out, max);
        StringUtil::split(bytesOf(text), separator, out_of_bytes, max);
        ASSERT_EQ(out, expected) << "max " << max;
        ASSERT_EQ(out_of_bytes, expected) << "max " << max;
    }
}

TEST(SplitGrowthTest, RepeatedCallsMoveTheElementsFewTimes) {
    Strings out;
    int moves = 0;
    for (int i = 0; i < 100000; ++i) {
        const std::string* const before = out.data();
        StringUtil::split("a,b", ',', out);
        moves += out.data() != before;
    }
    EXPECT_EQ(out.size(), 200000U);
    EXPECT_LE(moves, 20);
}

TEST(SplitGrowthTest, RoomIsMadeOnceForAllPieces) {
    Strings out;
    StringUtil::split(std::string(100000, ','), ',', out);
    EXPECT_EQ(out.size(), 100001U);
    EXPECT_EQ(out.capacity(), 100001U);
}

TEST(SplitGrowthTest, RoomIsUsedUpThenDoubled) {
    Strings out = {"x", "y", "z"};
    out.reserve(4);
    ASSERT_EQ(out.capacity(), 4U);
    StringUtil::split("a", ',', out);
    EXPECT_EQ(out.capacity(), 4U);
    StringUtil::split("b", ',', out);
    EXPECT_EQ(out.capacity(), 8U);
}

TEST(SplitGrowthTest, ShortPiecesTakeNoMemoryOfTheirOwn) {
    const std::string text = "a,bc,,123456789012345,a,bc,,123456789012345";
    Strings out;
    out.reserve(8);
    const unsigned long before = Fault::calls(Call::operator_new);
    StringUtil::split(text, ',', out);
    EXPECT_EQ(Fault::calls(Call::operator_new), before);
    EXPECT_EQ(out.size(), 8U);
}

TEST(SplitGrowthTest, ALimitLimitsTheRoomThatIsMade) {
    Strings out;
    StringUtil::split(std::string(1000000, ','), ',', out, 2);
    EXPECT_THAT(out, ElementsAre("", "", std::string(999998, ',')));
    EXPECT_LE(out.capacity(), 3U);
}

// ---- Escaping ----

namespace {

tarnstring shellEscaped(const std::string& text) {
    tarnstring escaped(text);
    escaped.shell_escape();
    return escaped;
}

tarnstring regexEscaped(const std::string& text) {
    tarnstring escaped(text);
    escaped.regex_escape();
    return escaped;
}

tarnstring escaped(const std::string& text, char escapeChar, const std::string& set) {
    tarnstring made(text);
    made.escape(escapeChar, set);
    return made;
}

// Every byte that `escape` puts a backslash in front of.
std::string membersOf(const std::function<tarnstring(const std::string&)>& escape) {
    std::string members;
    for (const char c : everyByte()) {
        const tarnstring result = escape(std::string(1, c));
        if (result == "\\"s + c) {
            members += c;
        } else {
            EXPECT_EQ(result, std::string(1, c));
        }
    }
    return members;
}

std::string sorted(std::string text) {
    std::sort(text.begin(), text.end(), [](unsigned char a, unsigned char b) { return a < b; });
    return text;
}

}  // namespace

struct EscapeCase {
    const char* says;
    std::string text;
    char escapeChar;
    std::string set;
    std::string escaped;
};

// clang-format off
const EscapeCase kEscapeCases[] = {
    // says                                     text          escape  set      escaped
    {"an empty text",                           "",           '\\',   "a",     ""},
    {"members are escaped",                     "abab",       '\\',   "a",     "\\ab\\ab"},
    {"the escape character escapes itself",     "a\\b",       '\\',   "",      "a\\\\b"},
    {"it may be in the set too",                "%a",         '%',    "%a",    "%%%a"},
    {"it may be any byte",                      "a\xFF",      '\xFF', "a",     "\xFF""a\xFF\xFF"},
    {"it may be a zero byte",                   "a\0b"s,      '\0',   "b",     "a\0\0\0b"s},
    {"a zero byte may be in the set",           "a\0b"s,      '\\',   "\0"s,   "a\\\0b"s},
    {"bytes above 7F may be in the set",        "\x80\x7F",   '\\',   "\x80",  "\\\x80\x7F"},
    {"every byte escaped doubles the text",     "aaa",        '\\',   "a",     "\\a\\a\\a"},
    {"nothing escaped leaves the text",         "xyz",        '\\',   "abc",   "xyz"},
};
// clang-format on

class EscapeWithTest : public testing::TestWithParam<EscapeCase> {};
INSTANTIATE_TEST_SUITE_P(All, EscapeWithTest, testing::ValuesIn(kEscapeCases));

TEST_P(EscapeWithTest, PutsTheEscapeCharacterInFront) {
    const EscapeCase& row = GetParam();
    EXPECT_EQ(escaped(row.text, row.escapeChar, row.set), row.escaped) << row.says;
}

TEST(EscapeTest, ShellSetIsExactlyThese) {
    EXPECT_EQ(std::strlen(kShellMembers), 28U);
    EXPECT_EQ(membersOf(shellEscaped), sorted(kShellMembers));
}

TEST(EscapeTest, RegexSetIsExactlyThese) {
    EXPECT_EQ(std::strlen(kRegexMembers), 12U);
    EXPECT_EQ(membersOf(regexEscaped), sorted(kRegexMembers));
}

TEST(EscapeTest, ShellTextsAreEscaped) {
    EXPECT_EQ(shellEscaped("it's a $HOME"), "it\\'s\\ a\\ \\$HOME");
    EXPECT_EQ(shellEscaped("a\tb\nc\rd"), "a\tb\nc\rd");
    EXPECT_EQ(shellEscaped("a\x14\x0E"), "a\\\x14\\\x0E");
    EXPECT_EQ(shellEscaped(""), "");
}

TEST(EscapeTest, RegexTextsAreEscaped) {
    EXPECT_EQ(regexEscaped("a.b]"), "a\\.b]");
    EXPECT_EQ(regexEscaped("x\\y"), "x\\\\y");
    EXPECT_EQ(regexEscaped("{1}"), "\\{1}");
}

TEST(EscapeRandomTest, IsByteByByteWhatTheSetSays) {
    Random random;
    for (int i = 0; i < kRandomRounds; ++i) {
        const std::string text = random.bytes(60);
        const std::string set = random.bytes(60);
        const std::string escapeChar = random.bytes(1) + "\\";
        ASSERT_EQ(escaped(text, escapeChar[0], set), modelEscaped(text, escapeChar[0], set));
        ASSERT_EQ(shellEscaped(text), modelEscaped(text, '\\', kShellMembers));
        ASSERT_EQ(regexEscaped(text), modelEscaped(text, '\\', kRegexMembers));
    }
}

TEST(EscapeRandomTest, LongTextsAreEscapedToo) {
    Random random;
    for (int i = 0; i < 300; ++i) {
        const std::string text = random.bytes(5000);
        ASSERT_EQ(shellEscaped(text), modelEscaped(text, '\\', kShellMembers));
        ASSERT_EQ(escaped(text, 'x', everyByte()), modelEscaped(text, 'x', everyByte()));
    }
}

TEST(EscapeTest, AllocatesNothingWhereTheRoomIsThere) {
    tarnstring text(std::string(20, '?'));
    text.reserve(40);
    ASSERT_EQ(text.capacity(), 40U);
    const unsigned long before = Fault::calls(Call::operator_new);
    text.shell_escape();
    EXPECT_EQ(Fault::calls(Call::operator_new), before);
    EXPECT_EQ(text.size(), 40U);
}

TEST(EscapeTest, AllocatesNothingWhereNothingIsEscaped) {
    tarnstring text(std::string(1000, 'x'));
    const char* const data = text.data();
    const unsigned long before = Fault::calls(Call::operator_new);
    text.shell_escape();
    text.regex_escape();
    text.escape('\\', "abc");
    EXPECT_EQ(Fault::calls(Call::operator_new), before);
    EXPECT_EQ(text.data(), data);
}

TEST(EscapeTest, ASetOfItsOwnIsNotTouched) {
    tarnstring text("ab");
    const std::string set = "a";
    text.escape('\\', set);
    EXPECT_EQ(set, "a");
    tarnstring itself("ab");
    itself.escape('\\', itself);
    EXPECT_EQ(itself, "\\a\\b");
}

TEST(TarnstringTest, IsBuiltAndUsedLikeAString) {
    EXPECT_EQ(tarnstring(), "");
    EXPECT_EQ(tarnstring("a"), "a");
    EXPECT_EQ(tarnstring("a\0b", 3), "a\0b"s);
    EXPECT_EQ(tarnstring(3, 'x'), "xxx");
    EXPECT_EQ(tarnstring("a"s), "a");
    tarnstring text;
    text = "b c";
    text += 'd';
    text.shell_escape();
    const std::string& base = text;
    EXPECT_EQ(base, "b\\ cd");
}

// ---- Escaped texts in their dialects ----

namespace {

bool posixMatches(const std::string& pattern, const std::string& text) {
    regex_t compiled;
    const int rc = regcomp(&compiled, ("^" + pattern + "$").c_str(), REG_EXTENDED);
    if (rc != 0) {
        ADD_FAILURE() << "regcomp refuses " << pattern;
        return false;
    }
    regmatch_t match;
    const int result = regexec(&compiled, text.c_str(), 1, &match, 0);
    regfree(&compiled);
    return result == 0 && match.rm_so == 0 && match.rm_eo == static_cast<regoff_t>(text.size());
}

std::string printableBytes() {
    std::string all;
    for (char c = ' '; c <= '~'; ++c) all += c;
    return all;
}

}  // namespace

TEST(RegexDialectTest, EscapedTextStandsForItselfInEcmaScriptAndPosixExtended) {
    Random random;
    const std::string alphabet = printableBytes() + ".^$*+?()[]{}\\|-\t";
    for (int i = 0; i < 2000; ++i) {
        const std::string text = "a" + random.text(12, alphabet);
        const std::string other = "a" + random.text(12, alphabet);
        const std::string pattern = regexEscaped(text);
        const std::regex ecma(pattern, std::regex::ECMAScript);
        ASSERT_TRUE(std::regex_match(text, ecma)) << pattern;
        ASSERT_EQ(std::regex_match(other, ecma), other == text) << pattern;
        ASSERT_TRUE(posixMatches(pattern, text)) << pattern;
        ASSERT_EQ(posixMatches(pattern, other), other == text) << pattern;
    }
}

TEST(RegexDialectTest, EachPrintableByteStandsForItselfAlone) {
    for (const char c : printableBytes()) {
        const std::string text(1, c);
        const std::regex ecma(std::string(regexEscaped(text)), std::regex::ECMAScript);
        for (const char other : printableBytes()) {
            const std::string candidate(1, other);
            ASSERT_EQ(std::regex_match(candidate, ecma), c == other) << c << other;
            ASSERT_EQ(posixMatches(regexEscaped(text), candidate), c == other) << c << other;
        }
    }
}

// In a basic expression a backslash gives some of these bytes the meaning that it takes from them
// elsewhere.
TEST(RegexDialectTest, PosixBasicExpressionsAreNotCovered) {
    regex_t compiled;
    EXPECT_NE(regcomp(&compiled, regexEscaped("(").c_str(), 0), 0);
    ASSERT_EQ(regcomp(&compiled, regexEscaped("a+").c_str(), 0), 0);
    EXPECT_EQ(regexec(&compiled, "aa", 0, nullptr, 0), 0);
    regfree(&compiled);
}

// Inside a bracket expression the set is not enough: "]" and "-" keep their meaning.
TEST(RegexDialectTest, BracketExpressionsAreNotCovered) {
    const std::regex bracket("[" + regexEscaped("a-c") + "]");
    EXPECT_TRUE(std::regex_match("b", bracket));
}

namespace {

// What a shell makes of `text` as one word, printed back.
std::string echoedByShell(const std::string& word) {
    const std::string command = "printf %s " + word;
    FILE* const out = popen(command.c_str(), "r");
    if (out == nullptr) return "(no shell)";
    std::string printed;
    for (int c = std::fgetc(out); c != EOF; c = std::fgetc(out)) printed += static_cast<char>(c);
    pclose(out);
    return printed;
}

}  // namespace

TEST(ShellTest, PrintableTextsComeBackAsOneWord) {
    EXPECT_EQ(echoedByShell(shellEscaped("x" + printableBytes())), "x" + printableBytes());
    EXPECT_EQ(echoedByShell(shellEscaped("$(echo no) `echo no` ; echo no # no")),
              "$(echo no) `echo no` ; echo no # no");
}

TEST(ShellTest, ALineFeedOrTabStillSeparates) {
    EXPECT_EQ(echoedByShell(shellEscaped("a\tb")), "ab");
    EXPECT_EQ(echoedByShell(shellEscaped("a\ntrue")), "a");
}

// ---- Text of strings and maps ----

TEST(StringTextTest, IsACopy) {
    const std::string text = "a b\0c"s;
    EXPECT_EQ(StringUtil::toString(text), text);
    EXPECT_EQ(StringUtil::fromString<std::string>(text), text);
    EXPECT_EQ(StringUtil::fromString<std::string>(""), "");
}

struct MapCase {
    const char* says;
    std::string text;
    Map map;
    bool written;  // whether the map is also written as that text
};

// clang-format off
const MapCase kMapCases[] = {
    // says                                            text                map                                  written
    {"two entries",                                    "a=1 b=2",          {{"a", "1"}, {"b", "2"}},            true},
    {"an empty value",                                 "a=",               {{"a", ""}},                         true},
    {"an empty key",                                   "=1",               {{"", "1"}},                         true},
    {"an empty key and value",                         "=",                {{"", ""}},                          true},
    {"an empty key before others",                     "= a=1",            {{"", ""}, {"a", "1"}},              true},
    {"keys in byte order",                             "A=3 a=2 \x80=1",   {{"A", "3"}, {"a", "2"}, {"\x80", "1"}}, true},
    {"further equals signs stay in the value",         "a=1 b=x=y",        {{"a", "1"}, {"b", "x=y"}},          true},
    {"zero bytes and line feeds are bytes",            "a\0=\n\t"s,        {{"a\0"s, "\n\t"}},                  true},
    {"a word without an equals sign is a key",         "a=1 b=x=y c",      {{"a", "1"}, {"b", "x=y"}, {"c", ""}}, false},
    {"an empty text is one empty word",                "",                 {{"", ""}},                          false},
    {"a space is two empty words",                     " ",                {{"", ""}},                          false},
    {"a leading space is an empty word",               " a=1",             {{"", ""}, {"a", "1"}},              false},
    {"a trailing space is an empty word",              "a=1 ",             {{"", ""}, {"a", "1"}},              false},
    {"two spaces hold an empty word, last one counts", "a=1  a=2",         {{"", ""}, {"a", "2"}},              false},
    {"a word without an equals sign replaces too",     "a=1 a",            {{"a", ""}},                         false},
    {"an empty word replaces the empty key's value",   "=1 ",              {{"", ""}},                          false},
    {"the empty key's value replaces an empty word",   " =1",              {{"", "1"}},                         false},
    {"keys in any order",                              "b=2 c=3 a=1 b=4",  {{"a", "1"}, {"b", "4"}, {"c", "3"}}, false},
};
// clang-format on

class MapTextTest : public testing::TestWithParam<MapCase> {};
INSTANTIATE_TEST_SUITE_P(All, MapTextTest, testing::ValuesIn(kMapCases));

TEST_P(MapTextTest, ReadsTheWords) {
    EXPECT_EQ(StringUtil::fromString<Map>(GetParam().text), GetParam().map) << GetParam().says;
}

TEST_P(MapTextTest, WritesTheEntries) {
    EXPECT_EQ(StringUtil::toString(GetParam().map) == GetParam().text, GetParam().written)
        << GetParam().says;
}

TEST(MapTextEmptyTest, AnEmptyMapDoesNotComeBack) {
    EXPECT_EQ(StringUtil::toString(Map{}), "");
    EXPECT_THAT(StringUtil::fromString<Map>(""), ElementsAre(Pair("", "")));
}

namespace {

// Exactly the maps that toString and fromString carry unchanged: not empty, no space anywhere, no
// equals sign in a key.
bool comesBack(const Map& map) {
    const auto isClean = [](const Map::value_type& entry) {
        return entry.first.find_first_of(" =") == std::string::npos &&
               entry.second.find(' ') == std::string::npos;
    };
    return !map.empty() && std::all_of(map.begin(), map.end(), isClean);
}

}  // namespace

TEST(MapTextRandomTest, TextsAreReadWordByWord) {
    Random random;
    for (int i = 0; i < kRandomRounds; ++i) {
        const std::string text = random.text(40, "abc== \xFF\0"s);
        ASSERT_EQ(StringUtil::fromString<Map>(text), modelMap(text)) << text;
    }
}

TEST(MapTextRandomTest, ExactlyTheMapsWithoutSeparatorsComeBack) {
    Random random;
    int kept = 0;
    for (int i = 0; i < kRandomRounds; ++i) {
        const std::string alphabet = i % 2 == 0 ? "abcdefgh \0"s : "abcdefgh=";
        Map map;
        for (std::size_t entries = random.upTo(4); entries != 0; --entries) {
            map[random.text(3, alphabet)] = random.text(3, alphabet);
        }
        const std::string text = StringUtil::toString(map);
        ASSERT_EQ(text, modelText(map));
        ASSERT_EQ(StringUtil::fromString<Map>(text) == map, comesBack(map)) << text;
        kept += comesBack(map);
    }
    EXPECT_GT(kept, kRandomRounds / 10);
    EXPECT_LT(kept, kRandomRounds * 9 / 10);
}

TEST(MapTextRandomTest, MapsOfAnySizeAreWritten) {
    Random random;
    for (std::size_t entries = 0; entries < 100; ++entries) {
        Map map;
        while (map.size() < entries) map[random.text(9, "abcdef")] = random.text(9, "xyz");
        ASSERT_EQ(StringUtil::toString(map), modelText(map));
    }
}

TEST(MapTextRandomTest, LongKeysAndValuesAreWritten) {
    Random random;
    for (int i = 0; i < 300; ++i) {
        Map map;
        for (std::size_t entries = random.upTo(6); entries != 0; --entries) {
            map[random.bytes(1500)] = random.bytes(i % 2 == 0 ? 10 : 3000);
        }
        ASSERT_EQ(StringUtil::toString(map), modelText(map));
    }
}

TEST(MapTextRandomTest, LongTextsInAnyOrderAreReadToo) {
    Random random;
    for (int i = 0; i < 20; ++i) {
        std::string text;
        for (int word = 0; word < 2000; ++word) {
            text += std::to_string(random.upTo(1000)) + "=" + random.text(30, "xyz") + " ";
        }
        ASSERT_EQ(StringUtil::fromString<Map>(text), modelMap(text));
    }
}

// ---- Memory ----

// Every allocation of the helpers fails in turn: they pass the standard exception, and lose
// nothing.
TEST(MemoryTest, HelpersLetTheStandardAllocationExceptionPass) {
    const std::string text = std::string(40, 'a') + "," + std::string(40, ' ') + "=" + "b";
    const Map map = {{std::string(40, 'k'), std::string(40, 'v')}, {"b", "2"}};
    Map manyEntries;
    for (int i = 0; i < 100; ++i) manyEntries[std::to_string(i)] = "v";
    const std::function<void()> helpers[] = {
        [&] { (void)StringUtil::toHexString(bytesOf(text)); },
        [&] { (void)StringUtil::normalize(text); },
        [&] { (void)StringUtil::toString(text); },
        [&] { (void)StringUtil::fromString<std::string>(text); },
        [&] { (void)StringUtil::toString(map); },
        [&] { (void)StringUtil::toString(manyEntries); },
        [&] { (void)StringUtil::fromString<Map>(text); },
        [&] {
            Strings out;
            StringUtil::split(text, ',', out);
        },
        [&] {
            Strings out;
            StringUtil::split(bytesOf(text), ',', out);
        },
        [&] {
            tarnstring copy(text);
            copy.shell_escape();
        },
        [&] {
            tarnstring copy(text);
            copy.escape('a', text);
        },
    };
    for (const auto& helper : helpers) {
        failEachCallInTurn({Call::operator_new}, 0, helper, [](const Failure& failure) {
            EXPECT_EQ(failure.messageOf<std::bad_alloc>(), "std::bad_alloc") << describe(failure);
        });
    }
}

// ---- IP text ----

class IpConversionTest : public testing::TestWithParam<IpText> {};
INSTANTIATE_TEST_SUITE_P(All, IpConversionTest, testing::ValuesIn(kIpTexts));

TEST_P(IpConversionTest, ReadsAndPrints) {
    const IpText& row = GetParam();
    EXPECT_EQ(StringUtil::stringToIp(row.text), v6(row.address)) << row.says;
    EXPECT_EQ(StringUtil::ipToString(v6(row.address)), row.printed) << row.says;
}

TEST(IpConversionTest, WhatFollowsAZeroByteIsNotRead) {
    EXPECT_EQ(StringUtil::stringToIp("10.0.0.1\0x"s), v6("::ffff:a00:1"));
}

TEST(IpConversionFailureTest, TextThatIsNoAddressIsQuotedInTheMessage) {
    for (const std::string& text : {"x"s, ""s, "256.0.0.1"s, "10.0.0.1 "s, "say \"hi\""s}) {
        EXPECT_THAT(
            [&] { (void)StringUtil::stringToIp(text); },
            ThrowsMessage<Exception>("Could not convert string to IP address: \"" + text + "\""));
    }
}

TEST(IpConversionFailureTest, AFailedConversionIsReportedWithTheSystemsText) {
    for (const int error : {ENOSPC, EAFNOSUPPORT}) {
        const Fault fault(Call::inet_ntop, error);
        EXPECT_THAT([] { (void)StringUtil::ipToString(ip_addr_t{}); },
                    ThrowsMessage<Exception>("Could not convert IP address to string: " +
                                             Exception::getStrerror(error)));
    }
}

TEST(IpConversionFailureTest, NothingIsLeftBehind) {
    failEachCallInTurn(
        {Call::inet_ntop}, ENOSPC, [] { (void)StringUtil::ipToString(ip_addr_t{}); },
        [](const Failure& failure) {
            EXPECT_EQ(failure.messageOf<Exception>(),
                      "Could not convert IP address to string: " + Exception::getStrerror(ENOSPC));
        });
}

TEST(IpConversionTest, AsksForIpv6FirstAndThenForIpv4) {
    const Trail trail({Call::inet_pton});
    (void)StringUtil::stringToIp("::1");
    (void)StringUtil::stringToIp("1.2.3.4");
    const std::string as_v4 = "inet_pton(" + std::to_string(AF_INET) + ")";
    const std::string as_v6 = "inet_pton(" + std::to_string(AF_INET6) + ")";
    EXPECT_THAT(trail.ofParent(), ElementsAre(as_v6, as_v6, as_v4));
}

TEST(IpConversionTest, AFailingFamilyIsAFamilyThatDoesNotMatch) {
    const ip_addr_t expected = v6("::ffff:102:304");
    {
        const Fault noIpv6(Call::inet_pton, -1);
        EXPECT_EQ(StringUtil::stringToIp("1.2.3.4"), expected);
    }
    for (const std::string text : {"1.2.3.4", "::1"}) {
        const Fault neither(Call::inet_pton, -1, 1, Fault::fromThenOn);
        EXPECT_THAT(
            [&] { (void)StringUtil::stringToIp(text); },
            ThrowsMessage<Exception>("Could not convert string to IP address: \"" + text + "\""));
    }
}

TEST(IpConversionRandomTest, AgreesWithThePlainFunctions) {
    Random random;
    for (int i = 0; i < kRandomRounds; ++i) {
        ip_addr_t addr{};
        const std::string bytes = random.bytes(16);
        std::memcpy(addr.bytes + 16 - bytes.size(), bytes.data(), bytes.size());
        if (random.upTo(1) == 0) addr.bytes[10] = addr.bytes[11] = 0xFF;
        char text[INET6_ADDRSTRLEN];
        ASSERT_NE(ip_ntop_r(&addr, text, sizeof text), nullptr);
        ASSERT_EQ(StringUtil::ipToString(addr), text);
        ASSERT_EQ(StringUtil::stringToIp(text), addr) << text;
    }
}

namespace {

// What the helpers make of inputs that differ from one `number` to the next.
Strings resultsFor(int number) {
    const std::string word = std::to_string(number);
    Strings results = {StringUtil::normalize(word + "\t\n " + word + "\r\n")};
    StringUtil::split(word + ",," + word + word, ',', results);
    tarnstring escaped("$" + word + " it's");
    escaped.shell_escape();
    results.push_back(escaped);
    results.push_back(StringUtil::toString(Map{{word, "a"}, {"b" + word, word}}));
    ip_addr_t addr{};
    addr.bytes[15] = static_cast<std::uint8_t>(number);
    results.push_back(StringUtil::ipToString(addr));
    return results;
}

std::vector<Strings> resultsFrom(int first) {
    std::vector<Strings> results;
    for (int number = first; number < first + 500; ++number) results.push_back(resultsFor(number));
    return results;
}

}  // namespace

TEST(ConcurrencyTest, ThreadsWithInputsOfTheirOwnDoNotDisturbEachOther) {
    std::vector<Strings> low;
    std::vector<Strings> high;
    std::thread one([&] { low = resultsFrom(0); });
    std::thread other([&] { high = resultsFrom(100000); });
    one.join();
    other.join();
    EXPECT_EQ(low, resultsFrom(0));
    EXPECT_EQ(high, resultsFrom(100000));
}
