// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/ssl_suite.h>

#include <gmock/gmock.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "ssl_suite_listing.h"

using namespace tarnutil_test;

namespace {

static_assert(std::is_same_v<decltype(ssl_suite), const ssl_suite_t[175]>,
              "programs count on the size and see no way to write");

// The codes that no record stores, and the classes that the table stores by number: no byte of it
// holds these names in place.
static_assert(SSL_PROTOCOL_NONE == 0 && SSL_PROTOCOL_SSL2 == 1);
static_assert(SSL_MAC_SHA512 == 6);
static_assert(SSL_KEYXCHG_DH_RSA == 2);
static_assert(SSL_FIPS_NONE == 0 && SSL_FIPS_WEAK == 1 && SSL_FIPS_STRONG == 2);

std::string storedBytes(const ssl_suite_t& suite) {
    unsigned char stored[sizeof suite];
    std::memcpy(stored, &suite, sizeof suite);
    std::string text;
    for (std::size_t i = 8; i < sizeof stored; ++i) {
        text += "0123456789abcdef"[stored[i] >> 4];
        text += "0123456789abcdef"[stored[i] & 15];
    }
    return text;
}

std::string padded(const std::string& text, std::size_t width, bool right = false) {
    const std::string blanks(text.size() < width ? width - text.size() : 0, ' ');
    return right ? blanks + text : text + blanks;
}

std::string hex5(unsigned id) {
    std::string text;
    for (int shift = 16; shift >= 0; shift -= 4) text += "0123456789ABCDEF"[id >> shift & 15];
    return text;
}

std::string expectedRow(const ListedSuite& suite) {
    return "0x" + hex5(suite.id) + "  " + padded(suite.name, 30) + "  " +
           padded(std::to_string(suite.bits), 4, /*right=*/true) + "  " +
           padded(suite.protocol, 6) + "  " + padded(suite.cipher, 8) + "  " +
           padded(suite.mac, 6) + "  " + padded(suite.keyxchg, 10);
}

std::string row(const ssl_suite_t& suite) {
    char buffer[SSL_SUITE_ROW_SIZE];
    return ssl_cipher_suite(buffer, sizeof buffer, &suite);
}

const ssl_suite_t* named(const std::string& name) {
    for (const ssl_suite_t& suite : ssl_suite) {
        if (suite.name == name) return &suite;
    }
    return nullptr;
}

TEST(SslSuiteTableTest, HasAsManyRecordsAsItSays) {
    EXPECT_EQ(ssl_suite_size_get(), 175u);
    EXPECT_EQ(SSL_SUITE_COUNT, 175);
    EXPECT_EQ(sizeof ssl_suite, 2800u);
    EXPECT_EQ(listedSuites().size(), 175u);
}

TEST(SslSuiteTableTest, EveryRecordIsStoredByteForByteAsListed) {
    for (const ListedSuite& listed : listedSuites()) {
        const ssl_suite_t& stored = ssl_suite[listed.index];
        EXPECT_EQ(stored.name, listed.name) << "record " << listed.index;
        EXPECT_EQ(storedBytes(stored), listed.bytes) << "record " << listed.index;
    }
}

TEST(SslSuiteTableTest, TheListingIsInOrderAndComplete) {
    unsigned next = 0;
    for (const ListedSuite& listed : listedSuites()) EXPECT_EQ(listed.index, next++);
}

TEST(SslSuiteTableTest, TheNamePointerComesFirst) {
    const char* name;
    std::memcpy(&name, &ssl_suite[0], sizeof name);
    EXPECT_STREQ(name, "ECDHE-RSA-AES128-GCM-SHA256");
}

TEST(SslSuiteTableTest, FieldsReadTheBitsThatTheyName) {
    for (const ListedSuite& listed : listedSuites()) {
        const ssl_suite_t& suite = ssl_suite[listed.index];
        EXPECT_EQ(suite.id, listed.id);
        EXPECT_EQ(suite.strength, listed.bits);
        EXPECT_EQ(ssl_protocol_name(suite.protocol), listed.protocol);
        EXPECT_EQ(ssl_cipher_name(suite.cipher), listed.cipher);
        EXPECT_EQ(ssl_mac_name(suite.mac), listed.mac);
        EXPECT_EQ(ssl_keyxchg_name(suite.keyxchg), listed.keyxchg);
        EXPECT_EQ(suite.is_export, listed.isExport());
        EXPECT_EQ(suite.fips, listed.fipsClass());
        EXPECT_EQ(suite.flags_13_4, listed.byte(13) >> 4 & 3);
        EXPECT_EQ(suite.flags_13_7, listed.byte(13) >> 7);
        EXPECT_EQ(suite.flags_14_0, listed.byte(14) & 3);
    }
}

TEST(SslSuiteTableTest, RecordsShareANameWhenTheyShareAnId) {
    std::map<unsigned, std::string> names;
    std::map<std::string, unsigned> ids;
    for (const ssl_suite_t& suite : ssl_suite) {
        EXPECT_EQ(names.emplace(suite.id, suite.name).first->second, suite.name);
        EXPECT_EQ(ids.emplace(suite.name, suite.id).first->second, suite.id);
    }
}

TEST(SslSuiteTableTest, StrengthTellsTheKindsOfDesApart) {
    EXPECT_EQ(named("DES-CBC3-SHA")->strength, 168);
    EXPECT_EQ(named("DES-CBC-SHA")->strength, 64);
    EXPECT_EQ(named("EXP1024-DES-CBC-SHA")->strength, 56);
    EXPECT_EQ(named("EXP-DES-CBC-SHA")->strength, 40);
}

struct CodeNames {
    const char* says;
    const char* (*name)(unsigned code);
    std::map<unsigned, std::string> known;
    const char* unknown;
};

void PrintTo(const CodeNames& names, std::ostream* out) { *out << names.says; }

const CodeNames kCodeNames[] = {
    {"protocols",
     ssl_protocol_name,
     {{SSL_PROTOCOL_NONE, "NONE"},
      {SSL_PROTOCOL_SSL2, "SSL2"},
      {SSL_PROTOCOL_SSL3, "SSL3"},
      {SSL_PROTOCOL_TLS1, "TLS1"},
      {SSL_PROTOCOL_TLS1_1, "TLS1.1"},
      {SSL_PROTOCOL_TLS1_2, "TLS1.2"},
      {SSL_PROTOCOL_TLS1_3, "TLS1.3"},
      {SSL_PROTOCOL_DTLS1, "DTLS1"},
      {SSL_PROTOCOL_GMSSL1_1, "GMSSL1.1"}},
     "?"},
    {"ciphers",
     ssl_cipher_name,
     {{SSL_CIPHER_NULL, "NULL"},
      {SSL_CIPHER_AES, "AES"},
      {SSL_CIPHER_AES_GCM, "AES-GCM"},
      {SSL_CIPHER_DES, "DES"},
      {SSL_CIPHER_RC4, "RC4"},
      {SSL_CIPHER_CAMELLIA, "CAMELLIA"},
      {SSL_CIPHER_CHACHA20_POLY1305, "CHACHA20-POLY1305"},
      {SSL_CIPHER_SM4, "SM4"}},
     "?"},
    {"MACs",
     ssl_mac_name,
     {{SSL_MAC_NULL, "NULL"},
      {SSL_MAC_MD5, "MD5"},
      {SSL_MAC_SHA, "SHA"},
      {SSL_MAC_SHA256, "SHA256"},
      {SSL_MAC_SHA384, "SHA384"},
      {SSL_MAC_SHA512, "SHA512"},
      {SSL_MAC_SM3, "SM3"}},
     "?"},
    {"key exchanges",
     ssl_keyxchg_name,
     {{SSL_KEYXCHG_ADH, "ADH"},
      {SSL_KEYXCHG_DH_RSA, "DH/RSA"},
      {SSL_KEYXCHG_EDH_RSA, "EDH/RSA"},
      {SSL_KEYXCHG_RSA, "RSA"},
      {SSL_KEYXCHG_ECDH_ECDSA, "ECDH_ECDSA"},
      {SSL_KEYXCHG_ECDHE_ECDSA, "ECDHE_ECDSA"},
      {SSL_KEYXCHG_ECDH_RSA, "ECDH_RSA"},
      {SSL_KEYXCHG_ECDHE_RSA, "ECDHE_RSA"},
      {SSL_KEYXCHG_DHE_DSS, "DHE/DSS"},
      {SSL_KEYXCHG_SM2, "SM2"}},
     "*"},
};

class SslSuiteCodeTest : public testing::TestWithParam<CodeNames> {};
INSTANTIATE_TEST_SUITE_P(All, SslSuiteCodeTest, testing::ValuesIn(kCodeNames));

TEST_P(SslSuiteCodeTest, EveryCodeHasItsNameOrTheSignForNone) {
    std::vector<unsigned> codes = {UINT_MAX, UINT_MAX - 1, 1u << 31, 65536};
    for (unsigned code = 0; code <= 300; ++code) codes.push_back(code);
    for (unsigned code : codes) {
        const auto found = GetParam().known.find(code);
        EXPECT_EQ(GetParam().name(code),
                  found == GetParam().known.end() ? GetParam().unknown : found->second)
            << "code " << code;
    }
}

TEST(SslSuiteNameTest, IsTheRecordsOwn) {
    EXPECT_STREQ(ssl_cipher_suite_name(&ssl_suite[174]), "ECC-SM4-SM3");
}

TEST(SslSuiteNameTest, OfNoSuiteIsEmpty) { EXPECT_STREQ(ssl_cipher_suite_name(nullptr), ""); }

// The index of the first record listed with `id`, -1 if there is none.
std::map<unsigned, std::ptrdiff_t> firstRecords() {
    std::map<unsigned, std::ptrdiff_t> first;
    for (const ListedSuite& suite : listedSuites()) {
        first.emplace(suite.id, static_cast<std::ptrdiff_t>(suite.index));
    }
    return first;
}

std::ptrdiff_t indexFromId(int id) {
    const ssl_suite_t* suite = ssl_cipher_suite_from_id(id);
    return suite == nullptr ? -1 : suite - ssl_suite;
}

TEST(SslSuiteFromIdTest, FindsTheFirstRecordOfEveryNumberAndNothingElse) {
    const auto first = firstRecords();
    for (unsigned id = 0; id <= 0xFFFF; ++id) {
        const auto found = first.find(id);
        EXPECT_EQ(indexFromId(static_cast<int>(id)), found == first.end() ? -1 : found->second)
            << "id " << id;
    }
}

TEST(SslSuiteFromIdTest, OnlyTheLow16BitsCount) {
    EXPECT_EQ(indexFromId(0x1002F), 22);
    EXPECT_EQ(indexFromId(static_cast<int>(0xFFFFC02FU)), 0);
    EXPECT_EQ(indexFromId(INT_MIN | 0x1301), 171);
    EXPECT_EQ(indexFromId(INT_MIN), -1);
    EXPECT_EQ(indexFromId(-1), -1);
}

TEST(SslSuiteFromIdTest, TheOldestVersionListedIsTheOneFound) {
    EXPECT_EQ(ssl_cipher_suite_from_id(0x002F)->protocol, SSL_PROTOCOL_SSL3);
    EXPECT_EQ(ssl_cipher_suite_from_id(0xC013)->protocol, SSL_PROTOCOL_TLS1);
}

TEST(SslSuiteEcdsaTest, IsTheKeyExchangeOfTheRecord) {
    for (const ListedSuite& listed : listedSuites()) {
        const bool ecdsa = listed.keyxchg == "ECDH_ECDSA" || listed.keyxchg == "ECDHE_ECDSA";
        EXPECT_EQ(ssl_cipher_suite_is_ecdsa(&ssl_suite[listed.index]), ecdsa ? 1 : 0);
        EXPECT_EQ(ssl_cipher_suite_id_is_ecdsa(static_cast<int>(listed.id | 0x30000)),
                  ecdsa ? 1 : 0);
    }
}

TEST(SslSuiteEcdsaTest, NothingAndTheUnknownAreNot) {
    EXPECT_EQ(ssl_cipher_suite_is_ecdsa(nullptr), 0);
    EXPECT_EQ(ssl_cipher_suite_id_is_ecdsa(0), 0);
    EXPECT_EQ(ssl_cipher_suite_id_is_ecdsa(0xFFFF), 0);
}

TEST(SslSuiteRowTest, EveryRecordHasTheRowOfItsListing) {
    for (const ListedSuite& listed : listedSuites()) {
        EXPECT_EQ(row(ssl_suite[listed.index]), expectedRow(listed));
    }
}

TEST(SslSuiteRowTest, ColumnsStandTwoSpacesApart) {
    EXPECT_EQ(
        row(ssl_suite[0]),
        "0x0C02F  ECDHE-RSA-AES128-GCM-SHA256      128  TLS1.2  AES-GCM   SHA256  ECDHE_RSA ");
}

TEST(SslSuiteRowTest, ALongNameWidensItsColumn) {
    EXPECT_EQ(row(*named("ECDHE-ECDSA-CHACHA20-POLY1305-SHA256")),
              "0x0CCA9  ECDHE-ECDSA-CHACHA20-POLY1305-SHA256   256  TLS1.2  CHACHA20-POLY1305  NULL"
              "    ECDHE_ECDSA");
}

TEST(SslSuiteRowTest, ATls13SuiteHasNoKeyExchange) {
    EXPECT_THAT(row(*named("TLS13-AES128-GCM-SHA256")), testing::EndsWith("  NULL    *         "));
}

TEST(SslSuiteRowTest, IsCutToTheBuffer) {
    const std::string whole = expectedRow(listedSuites()[0]);
    for (std::size_t size = 1; size <= whole.size() + 1; ++size) {
        std::vector<char> buffer(size + 1, '#');
        EXPECT_EQ(ssl_cipher_suite(buffer.data(), size, &ssl_suite[0]), buffer.data());
        EXPECT_EQ(std::string(buffer.data()), whole.substr(0, size - 1));
        EXPECT_EQ(buffer[size], '#');
    }
}

TEST(SslSuiteRowTest, ABufferOfNoSizeIsNotTouched) {
    char buffer = '#';
    EXPECT_EQ(ssl_cipher_suite(&buffer, 0, &ssl_suite[0]), &buffer);
    EXPECT_EQ(buffer, '#');
}

TEST(SslSuiteRowTest, EveryRowFitsTheSizeThatTheHeaderNames) {
    for (const ListedSuite& listed : listedSuites()) {
        EXPECT_LT(expectedRow(listed).size(), std::size_t{SSL_SUITE_ROW_SIZE});
    }
}

}  // namespace
