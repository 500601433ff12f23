// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/ssl_suite.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "scratch_dir.h"
#include "ssl_suite_listing.h"
#include "ssl_suite_model.h"
#include "ssl_suite_selection.h"

using namespace tarnutil_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

// The layout that programs are compiled against.
static_assert(SSL_SUITE_ENTRY_ENABLED == 1 && SSL_SUITE_ENTRY_DRAFT_DTLS == 2);
static_assert(SSL_SUITE_CTX_FIPS_RSA == 1 && SSL_SUITE_CTX_FIPS_ECDSA == 2);
static_assert(SSL_SUITE_CTX_GMSSL == 4 && SSL_SUITE_CTX_GMSSL_ALT == 8);

static_assert(offsetof(ssl_suite_entry_t, next) == 0);
static_assert(offsetof(ssl_suite_entry_t, prev) == 8);
static_assert(offsetof(ssl_suite_entry_t, suite) == 16);
static_assert(offsetof(ssl_suite_entry_t, matches) == 18);
static_assert(offsetof(ssl_suite_entry_t, flags) == 20);
static_assert(sizeof(ssl_suite_entry_t) == 24);

static_assert(offsetof(ssl_suite_ctx_t, entries) == 0);
static_assert(offsetof(ssl_suite_ctx_t, first) == 4200);
static_assert(offsetof(ssl_suite_ctx_t, last) == 4208);
static_assert(offsetof(ssl_suite_ctx_t, default_string) == 4216);
static_assert(offsetof(ssl_suite_ctx_t, common_criteria_string) == 4224);
static_assert(offsetof(ssl_suite_ctx_t, fips_string) == 4232);
static_assert(offsetof(ssl_suite_ctx_t, report) == 4240);
static_assert(offsetof(ssl_suite_ctx_t, terms) == 4248);
static_assert(offsetof(ssl_suite_ctx_t, flags) == 4250);
static_assert(sizeof(ssl_suite_ctx_t) == 4256);

template <typename Test>
Indices listedWhere(Test test) {
    Indices suites;
    for (const ListedSuite& suite : listedSuites()) {
        if (test(suite)) suites.push_back(suite.index);
    }
    return suites;
}

Indices selectedBy(const std::string& keyword) {
    return listedWhere([&](const ListedSuite& s) { return keywordVote(keyword, s.index) > 0; });
}

Indices without(Indices suites, const Indices& others) {
    const auto isOther = [&](unsigned suite) {
        return std::find(others.begin(), others.end(), suite) != others.end();
    };
    suites.erase(std::remove_if(suites.begin(), suites.end(), isOther), suites.end());
    return suites;
}

Indices joined(Indices a, const Indices& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// ---- Keywords ----

class SslSuiteKeywordTest : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(All, SslSuiteKeywordTest, testing::ValuesIn(selectingKeywords()));

TEST_P(SslSuiteKeywordTest, SelectsItsSuitesAlone) {
    Selection selection;
    selection->flags = SSL_SUITE_CTX_GMSSL;
    EXPECT_EQ(selection.apply(GetParam(), /*expand=*/false), 1);
    EXPECT_EQ(selection.offer(), selectedBy(GetParam()));
    EXPECT_EQ(selection.order(),
              joined(without(wholeCatalogue(), selectedBy(GetParam())), selectedBy(GetParam())));
    EXPECT_TRUE(selection.isLinked());
    EXPECT_THAT(selection.reported, IsEmpty());
}

TEST_P(SslSuiteKeywordTest, IsKnownInAnyLetterCase) {
    std::string shouted = GetParam();
    for (char& c : shouted) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    Selection selection;
    selection->flags = SSL_SUITE_CTX_GMSSL_ALT;
    EXPECT_EQ(selection.apply(shouted, /*expand=*/false), 1);
    EXPECT_EQ(selection.offer(), selectedBy(GetParam()));
}

TEST_P(SslSuiteKeywordTest, IsNoSuiteName) {
    for (const ListedSuite& suite : listedSuites()) EXPECT_NE(lowered(suite.name), GetParam());
}

TEST(SslSuiteKeywordsTest, ThereAre44OfThem) { EXPECT_EQ(selectingKeywords().size(), 44u); }

TEST(SslSuiteKeywordsTest, DesIsSingleDesAnd3desTriple) {
    Selection single, triple;
    EXPECT_EQ(single.apply("des"), 1);
    EXPECT_EQ(triple.apply("3des"), 1);
    for (unsigned suite : single.offer()) EXPECT_LT(ssl_suite[suite].strength, 168);
    for (unsigned suite : triple.offer()) EXPECT_EQ(ssl_suite[suite].strength, 168);
    EXPECT_EQ(single.offer().size() + triple.offer().size(), 41u);
}

TEST(SslSuiteKeywordsTest, NoneSelectsNothingWhateverItsOperator) {
    for (const char* text : {"none", "!none", "-none", "+none"}) {
        Selection selection;
        EXPECT_EQ(selection.apply(std::string("aes:") + text), 1);
        EXPECT_EQ(selection.offer(), selectedBy("aes")) << text;
    }
}

TEST(SslSuiteKeywordsTest, OnlyNullAndTheirNamesReachTheNullSuites) {
    const Indices nulls = selectedBy("null");
    EXPECT_EQ(nulls.size(), 8u);
    for (const std::string& keyword : selectingKeywords()) {
        if (keyword == "null") continue;
        Selection selection;
        selection->flags = SSL_SUITE_CTX_GMSSL;
        EXPECT_EQ(selection.apply(keyword, /*expand=*/false), 1);
        EXPECT_EQ(without(selection.offer(), nulls), selection.offer()) << keyword;
    }
    Selection byName;
    EXPECT_EQ(byName.apply("null-md5"), 1);
    EXPECT_THAT(byName.offer(), ElementsAre(167, 168, 169, 170));
}

// ---- Names ----

TEST(SslSuiteNamesTest, EveryNameSelectsAllItsRecordsInAnyLetterCase) {
    for (const ListedSuite& wanted : listedSuites()) {
        const Indices same =
            listedWhere([&](const ListedSuite& suite) { return suite.name == wanted.name; });
        for (const std::string& text : {wanted.name, lowered(wanted.name)}) {
            Selection selection;
            selection->flags = SSL_SUITE_CTX_GMSSL;
            EXPECT_EQ(selection.apply(text), 1);
            EXPECT_EQ(selection.offer(), same) << text;
        }
    }
}

TEST(SslSuiteNamesTest, ANameIsKnownThoughTheListHasNoneOfItsRecords) {
    Selection selection({0, 1, 2});
    EXPECT_EQ(selection.apply("AES128-SHA"), 1);
    EXPECT_THAT(selection.offer(), IsEmpty());
}

TEST(SslSuiteNamesTest, APartOfANameIsNone) {
    Selection selection;
    EXPECT_EQ(selection.apply("AES128-SH"), 0);
    EXPECT_THAT(selection.reported, ElementsAre("aes128-sh"));
}

// ---- Operators ----

struct CommandCase {
    const char* says;
    Indices suites;  // the list before
    const char* text;
    Indices order;  // and after
    Indices offer;
};

void PrintTo(const CommandCase& c, std::ostream* out) { *out << c.says << ": \"" << c.text << '"'; }

// Records 0 AES-GCM 128, 5 AES-GCM 256, 9 AES 256, 10 CHACHA20 256, 27 AES 128, 34 AES 256,
// 143 RC4 128 in SSL 3, 144 RC4 128, 163 NULL.
const CommandCase kCommandCases[] = {
    // says                                      before               text                after
    // offer
    // clang-format off
    {"no operator enables and moves",            {0, 9, 27, 143},     "aes",              {0, 143, 9, 27},     {9, 27}},
    {"what is enabled stays in its place",       {0, 9, 27, 143},     "aes128-sha256,aes", {0, 143, 27, 9},    {27, 9}},
    {"plus moves what is enabled",               {9, 27, 0, 143},     "aes:rc4:+aes",     {0, 143, 9, 27},     {143, 9, 27}},
    {"plus leaves the disabled where they are",  {9, 0, 143},         "+aes",             {9, 0, 143},         {}},
    {"minus disables and moves",                 {9, 0, 143},         "aes:rc4:-aes",     {0, 143, 9},         {143}},
    {"minus moves the disabled too",             {9, 0, 143},         "-aes",             {0, 143, 9},         {}},
    {"a later token enables again, at the end",  {143, 9, 0},         "rc4:aes:-rc4:rc4", {0, 9, 143},         {9, 143}},
    {"exclamation removes for good",             {143, 9, 0},         "rc4:!rc4:rc4:aes", {0, 9},              {9}},
    {"exclamation can empty the list",           {143, 144},          "!rc4:rc4:aes",     {},                  {}},
    {"the first entry can go",                   {143, 9, 0},         "!rc4",             {9, 0},              {}},
    {"the last entry can go",                    {9, 0, 143},         "!rc4:aes",         {0, 9},              {9}},
    {"an intersection needs every term",         {0, 5, 9, 27},       "ecdhe+aes-gcm",    {9, 27, 0, 5},       {0, 5}},
    {"three terms",                              {0, 5, 9, 27, 34},   "rsa+aes+high",     {0, 5, 9, 27, 34},   {34}},
    {"a name can be met with a keyword",         {22, 23, 24},        "aes128-sha+tlsv1", {22, 24, 23},        {23}},
    {"two names never meet",                     {9, 27},             "aes128-sha+aes128-sha256", {9, 27},     {}},
    {"a term can be repeated",                   {9, 0},              "aes+aes+aes",      {0, 9},              {9}},
    {"votes against cost a match",               {9, 143},            "none+aes",         {9, 143},            {}},
    {"an operator acts on an intersection",      {0, 9, 27, 143},     "aes:!aes+high",    {0, 143, 27},        {27}},
    {"a sort is no vote of an intersection",     {143, 9, 0},         "@speed+aes",       {0, 9, 143},         {}},
    {"nor does it care for an operator",         {143, 9, 0},         "!@speed",          {0, 9, 143},         {}},
    {"separators are spaces, commas and more",   {9, 0, 143, 10},     "rc4 aes,aes-gcm;chacha20-poly1305", {143, 9, 0, 10}, {143, 9, 0, 10}},
    {"one separator may end the text",           {9, 0},              "aes:",             {0, 9},              {9}},
    {"letters of any case",                      {9, 0},              "AeS",              {0, 9},              {9}},
    {"plus before all expands nothing",          {143, 9, 163},       "aes:+all",         {143, 163, 9},       {9}},
    {"nor does minus",                           {9, 0, 163},         "aes:-all",         {163, 0, 9},         {}},
    {"nor does exclamation",                     {9, 0, 163},         "aes:!all",         {163},               {}},
    {"nor an intersection",                      {143, 9, 153},       "all+rc4",          {9, 153, 143},       {143}},
    {"all drops an export suite enabled before", {153, 9},           "exp:all",          {9, 153},            {9}},
    {"and an SSL 3 suite enabled by its name",   {22, 23},           "aes128-sha:all",   {23, 22},            {23}},
    {"plus before native expands nothing",       {143, 9, 163},      "aes:+native",      {143, 163, 9},       {9}},
    {"nor does minus before native",             {9, 0, 163},        "aes:-native",      {163, 0, 9},         {}},
    {"nor does exclamation before native",       {9, 0, 163},        "aes:!native",      {163},               {}},
    {"nor an intersection with native",          {143, 9, 153},      "native+rc4",       {9, 153, 143},       {143}},
    {"all and null never meet",                  {163, 9},            "all+null",         {163, 9},            {}},
    // clang-format on
};

class SslSuiteCommandTest : public testing::TestWithParam<CommandCase> {};
INSTANTIATE_TEST_SUITE_P(All, SslSuiteCommandTest, testing::ValuesIn(kCommandCases));

TEST_P(SslSuiteCommandTest, DoesWhatItSays) {
    Selection selection(GetParam().suites);
    EXPECT_EQ(selection.apply(GetParam().text), 1);
    EXPECT_EQ(selection.order(), GetParam().order);
    EXPECT_EQ(selection.offer(), GetParam().offer);
    EXPECT_TRUE(selection.isLinked());
}

TEST(SslSuiteRemovalTest, ARemovedEntryKeepsItsFlagsAndLosesItsLinks) {
    Selection selection({9, 143});
    EXPECT_EQ(selection.apply("rc4:!rc4"), 1);
    EXPECT_EQ(selection->entries[1].flags, SSL_SUITE_ENTRY_ENABLED);
    EXPECT_EQ(selection->entries[1].next, nullptr);
    EXPECT_EQ(selection->entries[1].prev, nullptr);
}

// ---- The caller's storage ----

struct StorageStep {
    const char* text;
    Indices order;
    Indices offer;
};

const StorageStep kStorageSteps[] = {
    // clang-format off
    {"draftdtls:aes:rc4:+aes", {143, 9}, {143, 9}},
    {"@speed",                 {9, 143}, {9, 143}},
    {"-aes",                   {143, 9}, {143}},
    {"@strength",              {9, 143}, {143}},
    {"all",                    {9, 143}, {9}},
    {"rc4:-aes",               {143, 9}, {143}},
    {"@fips",                  {9, 143}, {143}},
    {"default",                {143, 9}, {143, 9}},
    {"!rc4",                   {9},      {9}},
    // clang-format on
};

TEST(SslSuiteStorageTest, EntriesElsewhereAreLinkedAndTheArrayIsLeftAlone) {
    Selection selection({9, 143});
    ssl_suite_entry_t elsewhere[2] = {};
    elsewhere[0] = {&elsewhere[1], &selection->first, 9, 0, 0};
    elsewhere[1] = {nullptr, &elsewhere[0].next, 143, 0, 0};
    selection->first = &elsewhere[0];
    selection->last = &elsewhere[1].next;
    selection->default_string = "aes";
    unsigned char untouched[sizeof selection->entries];
    std::memset(untouched, 0xA5, sizeof untouched);
    std::memcpy(static_cast<void*>(selection->entries), untouched, sizeof untouched);
    for (const StorageStep& step : kStorageSteps) {
        EXPECT_EQ(selection.apply(step.text), 1);
        EXPECT_EQ(selection.order(), step.order) << step.text;
        EXPECT_EQ(selection.offer(), step.offer) << step.text;
        EXPECT_TRUE(selection.isLinked()) << step.text;
        EXPECT_EQ(std::memcmp(selection->entries, untouched, sizeof untouched), 0) << step.text;
    }
    EXPECT_EQ(selection->first, &elsewhere[0]);
    for (const ModelItem& item : selection.list()) EXPECT_TRUE(item.draft);
}

// ---- Expansions ----

TEST(SslSuiteExpansionTest, AllLeavesOutExportAndSsl3) {
    const Indices expected = listedWhere([](const ListedSuite& suite) {
        return suite.cipher != "NULL" && !suite.isExport() && suite.protocol != "SSL3";
    });
    for (const char* text : {"all", "native", "ALL", "Native"}) {
        Selection selection;
        EXPECT_EQ(selection.apply(text), 1);
        EXPECT_EQ(selection.offer(), expected) << text;
    }
}

TEST(SslSuiteExpansionTest, AllKeepsSsl3OnceItWasAskedFor) {
    const Indices withSsl3 = listedWhere(
        [](const ListedSuite& suite) { return suite.cipher != "NULL" && !suite.isExport(); });
    for (const char* text :
         {"sslv3:all", "sslv3:native", "!null:sslv3+aes:all", "+sslv3:all", "-sslv3:native"}) {
        Selection selection;
        EXPECT_EQ(selection.apply(text), 1);
        Indices offered = selection.offer();
        std::sort(offered.begin(), offered.end());
        EXPECT_EQ(offered, withSsl3) << text;
    }
}

TEST(SslSuiteExpansionTest, Ssl3AskedForLaterOrElsewhereDoesNotCount) {
    Selection later;
    EXPECT_EQ(later.apply("all:+sslv3"), 1);
    EXPECT_THAT(later.offer(), Not(IsEmpty()));
    Selection inner;
    inner->default_string = "sslv3";
    EXPECT_EQ(inner.apply("default:all"), 1);
    Selection earlierCall;
    EXPECT_EQ(earlierCall.apply("sslv3"), 1);
    EXPECT_EQ(earlierCall.apply("-sslv3:all"), 1);
    for (Selection* selection : {&later, &inner}) {
        for (unsigned suite : selection->offer()) {
            EXPECT_NE(ssl_suite[suite].protocol, SSL_PROTOCOL_SSL3);
        }
    }
    EXPECT_EQ(earlierCall.apply("-sslv3"), 1);
    EXPECT_EQ(earlierCall.apply("all"), 1);
    for (unsigned suite : earlierCall.offer()) {
        EXPECT_NE(ssl_suite[suite].protocol, SSL_PROTOCOL_SSL3);
    }
}

TEST(SslSuiteExpansionTest, WithoutExpandAllIsJustAKeyword) {
    Selection selection;
    EXPECT_EQ(selection.apply("all", /*expand=*/false), 1);
    EXPECT_EQ(selection.offer(), selectedBy("all"));
}

TEST(SslSuiteExpansionTest, AnyExpandButZeroExpands) {
    for (const std::uint8_t expand : {std::uint8_t{1}, std::uint8_t{2}, std::uint8_t{0x80}}) {
        Selection selection({9, 143, 0});
        selection->default_string = "aes-gcm";
        EXPECT_EQ(ssl_suite_cmd(selection.get(), "default:all", 11, expand, nullptr, nullptr), 1);
        EXPECT_THAT(selection.offer(), ElementsAre(0, 9)) << int{expand};
    }
}

struct StringCase {
    const char* keyword;
    const char* ssl_suite_ctx_t::*string;
};

void PrintTo(const StringCase& c, std::ostream* out) { *out << c.keyword; }

const StringCase kStringCases[] = {
    {"default", &ssl_suite_ctx_t::default_string},
    {"common_criteria", &ssl_suite_ctx_t::common_criteria_string},
    {"fips", &ssl_suite_ctx_t::fips_string},
};

class SslSuiteStringTest : public testing::TestWithParam<StringCase> {
protected:
    // A context whose string of that name is `text`.
    static Selection with(const char* text) {
        Selection selection({0, 9, 27, 143, 163});
        selection.get()->*GetParam().string = text;
        return selection;
    }
    const std::string keyword = GetParam().keyword;
};
INSTANTIATE_TEST_SUITE_P(All, SslSuiteStringTest, testing::ValuesIn(kStringCases));

TEST_P(SslSuiteStringTest, StandsForTheContextsString) {
    Selection selection = with("rc4:aes");
    EXPECT_EQ(selection.apply(keyword), 1);
    EXPECT_THAT(selection.offer(), ElementsAre(143, 9, 27));
    EXPECT_TRUE(selection.isLinked());
}

TEST_P(SslSuiteStringTest, ItsOperatorActsOnNothing) {
    for (const char* operation : {"!", "-", "+"}) {
        Selection selection = with("rc4:aes");
        EXPECT_EQ(selection.apply(operation + keyword), 1);
        EXPECT_THAT(selection.order(), ElementsAre(0, 163, 143, 9, 27)) << operation;
        EXPECT_THAT(selection.offer(), ElementsAre(143, 9, 27)) << operation;
    }
}

TEST_P(SslSuiteStringTest, InAnIntersectionTheOtherTermsSelectNothing) {
    for (const std::string& text : {keyword + "+aes-gcm", "aes-gcm+" + keyword,
                                    "aes-gcm+" + keyword + "+aes-gcm", keyword + "+" + keyword}) {
        Selection selection = with("aes");
        EXPECT_EQ(selection.apply(text), 1);
        EXPECT_THAT(selection.offer(), ElementsAre(9, 27)) << text;
    }
}

TEST_P(SslSuiteStringTest, AnEmptyStringChangesNothing) {
    Selection selection = with("");
    EXPECT_EQ(selection.apply("aes:!" + keyword), 1);
    EXPECT_THAT(selection.offer(), ElementsAre(9, 27));
}

TEST_P(SslSuiteStringTest, ANullStringMakesItUnknown) {
    Selection selection = with(nullptr);
    EXPECT_EQ(selection.apply("aes:" + keyword + ":rc4"), 0);
    EXPECT_THAT(selection.reported, ElementsAre(keyword));
    EXPECT_THAT(selection.offer(), ElementsAre(9, 27));
}

TEST_P(SslSuiteStringTest, NothingExpandsInside) {
    Selection selection = with("aes:default");
    selection->default_string = "aes:default";
    EXPECT_EQ(selection.apply(keyword + ":rc4"), 0);
    EXPECT_THAT(selection.reported, ElementsAre("default"));
    EXPECT_THAT(selection.offer(), ElementsAre(9, 27));
    Selection whole;
    whole.get()->*GetParam().string = "all";
    EXPECT_EQ(whole.apply(keyword), 1);
    EXPECT_EQ(whole.offer(), selectedBy("all"));
}

TEST_P(SslSuiteStringTest, WithoutExpandItIsUnknown) {
    Selection selection = with("aes");
    EXPECT_EQ(selection.apply(keyword, /*expand=*/false), 0);
    EXPECT_THAT(selection.reported, ElementsAre(keyword));
}

TEST_P(SslSuiteStringTest, AFailingStringFailsTheCallWithOneReport) {
    Selection selection = with("aes:nonsense:rc4");
    EXPECT_EQ(selection.apply(keyword + ":rc4"), 0);
    EXPECT_THAT(selection.reported, ElementsAre("nonsense"));
    EXPECT_THAT(selection.offer(), ElementsAre(9, 27));
}

TEST_P(SslSuiteStringTest, ItIsCutLikeAnyText) {
    std::string text;
    while (text.size() < 1020) text += "aes ";  // 1020 bytes
    text += "rc4xyz";
    Selection selection = with(text.c_str());
    EXPECT_EQ(selection.apply(keyword), 1);
    EXPECT_THAT(selection.offer(), ElementsAre(9, 27, 143));
}

// ---- Drafts and GMSSL ----

TEST(SslSuiteDraftTest, DraftdtlsMarksEveryEntryAndRfcdtlsClears) {
    Selection selection({0, 9, 143});
    EXPECT_EQ(selection.apply("aes:draftdtls"), 1);
    for (const ModelItem& item : selection.list()) EXPECT_TRUE(item.draft);
    EXPECT_THAT(selection.offer(), ElementsAre(9));
    EXPECT_EQ(selection.apply("!RfcDtls", /*expand=*/false), 1);
    for (const ModelItem& item : selection.list()) EXPECT_FALSE(item.draft);
    EXPECT_THAT(selection.offer(), ElementsAre(9));
    EXPECT_THAT(selection.order(), ElementsAre(0, 143, 9));
}

TEST(SslSuiteGmsslTest, ItsWordsAreUnknownUnlessTheContextAdmitsThem) {
    for (const char* word : {"gmsslv1_1", "sm2", "sm3", "sm4", "ecc-sm4-sm3"}) {
        for (const int flags : {0, 1, 2, 3, 4, 5, 8, 12}) {
            Selection selection;
            selection->flags = static_cast<std::uint8_t>(flags);
            const bool admitted = flags >= 4;
            EXPECT_EQ(selection.apply(word), admitted ? 1 : 0) << word << " with flags " << flags;
            EXPECT_EQ(selection.offer(), admitted ? Indices{174} : Indices{});
            EXPECT_EQ(selection.reported.size(), admitted ? 0u : 1u);
        }
    }
}

TEST(SslSuiteGmsslTest, OtherKeywordsReachItsSuiteInAnyContext) {
    for (const char* keyword : {"medium", "all", "native"}) {
        Selection selection;
        EXPECT_EQ(selection.apply(keyword), 1);
        EXPECT_EQ(selection.offer().back(), 174u) << keyword;
    }
}

// ---- Texts ----

TEST(SslSuiteTextTest, AnEmptyTextChangesNothing) {
    Selection selection({143, 9, 0});
    EXPECT_EQ(selection.apply(""), 1);
    EXPECT_EQ(selection.apply(std::string("\0aes:nonsense", 13)), 1);
    EXPECT_EQ(ssl_suite_cmd(selection.get(), nullptr, 0, 1, nullptr, nullptr), 1);
    EXPECT_THAT(selection.order(), ElementsAre(143, 9, 0));
    EXPECT_THAT(selection.offer(), IsEmpty());
}

struct FailingCase {
    const char* says;
    std::string text;
    const char* term;  // that is reported
    Indices offer;     // what the tokens in front have enabled
};

void PrintTo(const FailingCase& c, std::ostream* out) { *out << c.says; }

const FailingCase kFailingCases[] = {
    // clang-format off
    {"an unknown word",                        "aes:Nonsense:rc4",          "nonsense", {9}},
    {"an unknown word behind its operator",    "aes:!Nonsense",             "nonsense", {9}},
    {"an unknown word of an intersection",     "aes:rc4+Nonsense+x",        "nonsense", {9}},
    {"a separator in front",                   ":aes",                      "",         {}},
    {"nothing but a separator",                ",",                         "",         {}},
    {"two separators in a row",                "aes::rc4",                  "",         {9}},
    {"comma and space",                        "aes, rc4",                  "",         {9}},
    {"two separators at the end",              "aes::",                     "",         {9}},
    {"an operator alone",                      "aes:!",                     "",         {9}},
    {"a plus alone",                           "aes:+",                     "",         {9}},
    {"two operators",                          "aes:!-rc4",                 "-rc4",     {9}},
    {"exclamation and plus",                   "aes:!+rc4",                 "",         {9}},
    {"an intersection that ends early",        "aes:rc4+",                  "",         {9}},
    {"an intersection with a hole",            "aes:rc4++medium",           "",         {9}},
    {"an operator inside an intersection",     "aes:rc4+!medium",           "!medium",  {9}},
    {"a sort that there is not",               "aes:@size",                 "@size",    {9}},
    {"a tabulator, which separates nothing",   "aes\trc4",                  "aes\trc4", {}},
    {"a zero byte, which does",                std::string("aes\0\0rc4", 8), "",        {9}},
    {"a byte beyond ASCII",                    "aes:\xC4x",                 "\xC4x",    {9}},
    // clang-format on
};

class SslSuiteFailingTest : public testing::TestWithParam<FailingCase> {};
INSTANTIATE_TEST_SUITE_P(All, SslSuiteFailingTest, testing::ValuesIn(kFailingCases));

TEST_P(SslSuiteFailingTest, FailsAtTheUnknownTermAndKeepsWhatWasDone) {
    Selection selection({9, 0, 143});
    EXPECT_EQ(selection.apply(GetParam().text), 0);
    EXPECT_THAT(selection.reported, ElementsAre(GetParam().term));
    EXPECT_EQ(selection.offer(), GetParam().offer);
    EXPECT_TRUE(selection.isLinked());
}

TEST(SslSuiteFailureTest, TermsInFrontOfTheUnknownOneHaveActed) {
    Selection selection({143, 9, 0});
    selection->default_string = "aes";
    EXPECT_EQ(selection.apply("@speed+draftdtls+default+nonsense"), 0);
    EXPECT_THAT(selection.order(), ElementsAre(0, 143, 9));
    EXPECT_THAT(selection.offer(), ElementsAre(9));
    EXPECT_TRUE(selection.list()[0].draft);
}

TEST(SslSuiteFailureTest, IsReportedOnlyWhenTheSwitchIsSet) {
    for (const char* report : {static_cast<const char*>(nullptr), ""}) {
        Selection selection;
        selection->report = report;
        EXPECT_EQ(selection.apply("nonsense"), 0);
        EXPECT_THAT(selection.reported, IsEmpty());
    }
}

TEST(SslSuiteFailureTest, NeedsNoCallback) {
    Selection selection;
    EXPECT_EQ(ssl_suite_cmd(selection.get(), "nonsense", 8, 1, nullptr, nullptr), 0);
}

TEST(SslSuiteFailureTest, TheCallbackSeesTheTermsOfTheKeyword) {
    const auto callback = [](void* terms, ssl_suite_ctx_t* ctx, const char*) {
        *static_cast<int*>(terms) = ctx->terms;
        return 0;
    };
    int terms = 0;
    Selection selection;
    selection->report = "yes";
    EXPECT_EQ(ssl_suite_cmd(selection.get(), "aes+nonsense+x", 14, 1, callback, &terms), 0);
    EXPECT_EQ(terms, 3);
}

TEST(SslSuiteFailureTest, WhatTheCallbackReturnsIsIgnored) {
    for (int result : {0, 1, -1}) {
        const auto callback = [](void* arg, ssl_suite_ctx_t*, const char*) {
            return *static_cast<int*>(arg);
        };
        Selection selection;
        EXPECT_EQ(ssl_suite_cmd(selection.get(), "nonsense", 8, 1, callback, &result), 0) << result;
    }
}

TEST(SslSuiteTextTest, OnlyTheBytesOfItsLengthCount) {
    Selection selection({9, 143});
    EXPECT_EQ(ssl_suite_cmd(selection.get(), "aes:rc4", 3, 1, nullptr, nullptr), 1);
    EXPECT_THAT(selection.offer(), ElementsAre(9));
}

// 1020 bytes of tokens that change nothing: three are left for the last one.
std::string longText() {
    std::string text;
    for (int i = 0; i < 204; ++i) text += "none:";
    return text;
}

TEST(SslSuiteTextTest, IsCutAt1023Bytes) {
    const std::string front = longText();
    ASSERT_EQ(front.size(), 1020u);
    Selection cut({9, 143});
    EXPECT_EQ(cut.apply(front + "rc4-and-more-that-is-no-word"), 1);
    EXPECT_THAT(cut.offer(), ElementsAre(143));
    Selection tooLate({9, 143});
    EXPECT_EQ(tooLate.apply(front + "aes:rc4"), 1);
    EXPECT_THAT(tooLate.offer(), ElementsAre(9));
    Selection inTheMiddle({9, 143});
    EXPECT_EQ(inTheMiddle.apply(front + "3des"), 0);
    EXPECT_THAT(inTheMiddle.reported, ElementsAre("3de"));
}

// Four separators fail a text; the cut leaves the first of them, which may end one.
TEST(SslSuiteTextTest, CanBeCutBehindASeparator) {
    std::string text;
    for (int i = 0; i < 203; ++i) text += "none:";
    text += "rc4+md5::::";
    ASSERT_EQ(text.find("::"), 1022u);
    Selection selection({9, 147});
    EXPECT_EQ(selection.apply(text), 1);
    EXPECT_THAT(selection.offer(), ElementsAre(147));
    EXPECT_EQ(selection.apply(text.substr(5)), 0);
}

TEST(SslSuiteTextTest, NoByteBeyondTheCutIsReadWhateverTheLength) {
    const std::string text = longText() + "rc4";
    const std::vector<char> bytes(text.begin(), text.end());
    ASSERT_EQ(bytes.size(), 1023u);
    for (const unsigned length : {1023u, UINT_MAX}) {
        Selection selection({9, 143, 0});
        EXPECT_EQ(ssl_suite_cmd(selection.get(), bytes.data(), length, 1, nullptr, nullptr), 1);
        EXPECT_THAT(selection.order(), ElementsAre(9, 0, 143)) << length;
        EXPECT_THAT(selection.offer(), ElementsAre(143)) << length;
    }
}

// A process in an ISO-8859-1 locale, which it makes for itself.
class Latin1 {
public:
    Latin1() {
        const std::string localedef = "localedef --quiet -i en_US -f ISO-8859-1 " + made / "latin1";
        EXPECT_EQ(std::system(localedef.c_str()), 0) << localedef;
        setenv("LOCPATH", made.path().c_str(), /*overwrite=*/1);
        EXPECT_STREQ(std::setlocale(LC_CTYPE, "latin1"), "latin1");
    }
    ~Latin1() {
        std::setlocale(LC_CTYPE, "C");
        unsetenv("LOCPATH");
    }
    Latin1(const Latin1&) = delete;
    Latin1& operator=(const Latin1&) = delete;

private:
    const ScratchDir made;
};

TEST(SslSuiteTextTest, LettersAreLoweredByTheLocaleOfTheProcess) {
    Selection selection({9});
    const Latin1 process;
    EXPECT_EQ(selection.apply("aes:\xC4x"), 0);
    EXPECT_THAT(selection.reported, ElementsAre("\xE4x"));
    EXPECT_THAT(selection.offer(), ElementsAre(9));
}

TEST(SslSuiteTextTest, CanHoldAsManyTermsAsBytesAllow) {
    std::string text = "aes";
    while (text.size() + 4 <= 1023) text += "+aes";
    Selection selection({9, 143});
    EXPECT_EQ(selection.apply(text), 1);
    EXPECT_THAT(selection.offer(), ElementsAre(9));
    EXPECT_EQ(selection->terms, 256);
}

// ---- Sorts ----

TEST(SslSuiteSortTest, SpeedIsTheOrderOfTheCatalogue) {
    Selection selection({143, 9, 163, 0, 27});
    EXPECT_EQ(selection.apply("@speed"), 1);
    EXPECT_THAT(selection.order(), ElementsAre(0, 9, 27, 143, 163));
    EXPECT_TRUE(selection.isLinked());
}

TEST(SslSuiteSortTest, StrengthIsDescendingAndStable) {
    Selection selection({163, 143, 9, 161, 27, 34, 108, 132, 153, 5, 0});
    EXPECT_EQ(selection.apply("@STRENGTH"), 1);
    EXPECT_THAT(selection.order(), ElementsAre(9, 34, 5, 108, 143, 27, 0, 132, 153, 161, 163));
    EXPECT_TRUE(selection.isLinked());
}

struct FipsCase {
    int flags;
    Indices order;
};

// SSL_FIPS_NONE: 143, 10. SSL_FIPS_WEAK: 62. SSL_FIPS_STRONG: 21 RSA, 0 ECDHE_RSA, 41 ECDHE_ECDSA,
// 171 without a key exchange.
const FipsCase kFipsCases[] = {
    {0, {62, 171, 41, 0, 21, 143, 10}},
    {SSL_SUITE_CTX_FIPS_RSA, {0, 21, 62, 171, 41, 143, 10}},
    {SSL_SUITE_CTX_FIPS_ECDSA, {41, 62, 171, 0, 21, 143, 10}},
    {SSL_SUITE_CTX_FIPS_RSA | SSL_SUITE_CTX_FIPS_ECDSA, {41, 0, 21, 62, 171, 143, 10}},
};

TEST(SslSuiteSortTest, FipsParts3WaysByWhatTheContextAdmits) {
    for (const FipsCase& c : kFipsCases) {
        Selection selection({143, 62, 171, 41, 10, 0, 21});
        selection->flags = static_cast<std::uint8_t>(c.flags);
        EXPECT_EQ(ssl_suite_cmd_fips(selection.get()), 1);
        EXPECT_EQ(selection.order(), c.order) << "flags " << c.flags;
        EXPECT_TRUE(selection.isLinked());
    }
}

TEST(SslSuiteSortTest, FipsSaysWhetherItMetAClass) {
    EXPECT_EQ(ssl_suite_cmd_fips(Selection({143, 10}).get()), 0);
    EXPECT_EQ(ssl_suite_cmd_fips(Selection({143, 62}).get()), 1);
    EXPECT_EQ(ssl_suite_cmd_fips(Selection({171}).get()), 1);
    EXPECT_EQ(ssl_suite_cmd_fips(Selection(Indices{}).get()), 0);
}

TEST(SslSuiteSortTest, SortsChangeNoFlags) {
    Selection selection({143, 9, 0});
    EXPECT_EQ(selection.apply("draftdtls:rc4:@speed:@strength:@fips"), 1);
    EXPECT_EQ(selection.offer(), Indices{143});
    for (const ModelItem& item : selection.list()) EXPECT_TRUE(item.draft);
}

TEST(SslSuiteSortTest, AnEmptyListStaysEmpty) {
    Selection selection(Indices{});
    EXPECT_EQ(selection.apply("@speed:@strength:@fips:aes:!aes:-all:all:draftdtls"), 1);
    EXPECT_THAT(selection.order(), IsEmpty());
    EXPECT_TRUE(selection.isLinked());
}

// The sorts as repeated passes: what they come to, done the long way.
Indices passedBySpeed(Indices list) {
    for (bool moved = true; moved;) {
        moved = false;
        for (std::size_t at = 0, left = list.size(); left > 1; --left) {
            if (list[at + 1] >= list[at]) {
                ++at;
                continue;
            }
            list.push_back(list[at]);
            list.erase(list.begin() + static_cast<std::ptrdiff_t>(at));
            moved = true;
        }
    }
    return list;
}

Indices passedByStrength(Indices list) {
    const auto bits = [](unsigned suite) { return listedSuites()[suite].bits; };
    for (bool swapped = true; swapped;) {
        swapped = false;
        for (std::size_t i = 1; i < list.size(); ++i) {
            if (bits(list[i]) <= bits(list[i - 1])) continue;
            std::swap(list[i], list[i - 1]);
            swapped = true;
        }
    }
    return list;
}

TEST(SslSuiteSortTest, GivesWhatRepeatedPassesGive) {
    std::mt19937 random(20);
    for (std::size_t size = 0; size <= SSL_SUITE_COUNT; size += 5) {
        Indices suites = wholeCatalogue();
        std::shuffle(suites.begin(), suites.end(), random);
        suites.resize(size);
        Selection bySpeed(suites), byStrength(suites);
        ssl_suite_cmd_speed(bySpeed.get());
        ssl_suite_cmd_strength(byStrength.get());
        EXPECT_EQ(bySpeed.order(), passedBySpeed(suites));
        EXPECT_EQ(byStrength.order(), passedByStrength(suites));
    }
}

// ---- Threads ----

Indices offerOfDefault() {
    Selection selection;
    selection->default_string = "all:-export:-sslv3:@speed";
    EXPECT_EQ(selection.apply("default:!rc4:@strength"), 1);
    return selection.offer();
}

TEST(SslSuiteThreadTest, TwoThreadsSelectInContextsOfTheirOwn) {
    const Indices expected = offerOfDefault();
    ASSERT_THAT(expected, Not(IsEmpty()));
    int wrong[2] = {};
    const auto select = [&](int& mine) {
        for (int i = 0; i < 1000; ++i) mine += offerOfDefault() != expected;
    };
    std::thread first(select, std::ref(wrong[0])), second(select, std::ref(wrong[1]));
    first.join();
    second.join();
    EXPECT_THAT(wrong, ElementsAre(0, 0));
}

// ---- ssl_suite_ctx_init ----

TEST(SslSuiteInitTest, FillsTheListWithTheCatalogueNothingEnabled) {
    const std::unique_ptr<ssl_suite_ctx_t> ctx(new ssl_suite_ctx_t);
    std::memset(static_cast<void*>(ctx.get()), 0xA5, sizeof *ctx);
    ssl_suite_ctx_init(ctx.get());
    EXPECT_EQ(ctx->default_string, nullptr);
    EXPECT_EQ(ctx->common_criteria_string, nullptr);
    EXPECT_EQ(ctx->fips_string, nullptr);
    EXPECT_EQ(ctx->report, nullptr);
    EXPECT_EQ(ctx->terms, 0);
    EXPECT_EQ(ctx->flags, 0);
    ssl_suite_entry_t** link = &ctx->first;
    for (unsigned i = 0; i < SSL_SUITE_COUNT; ++i, link = &(*link)->next) {
        ASSERT_EQ(*link, &ctx->entries[i]);
        EXPECT_EQ((*link)->prev, link);
        EXPECT_EQ((*link)->suite, i);
        EXPECT_EQ((*link)->matches, 0);
        EXPECT_EQ((*link)->flags, 0);
    }
    EXPECT_EQ(*link, nullptr);
    EXPECT_EQ(ctx->last, link);
}

}  // namespace
