// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/ssl_suite.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace {

// NULL is a macro, so the table says NONE.
constexpr auto SSL_CIPHER_NONE = SSL_CIPHER_NULL;
constexpr auto SSL_MAC_NONE = SSL_MAC_NULL;

}  // namespace

// clang-format off
// One record: byte 13 gives its bits above the protocol code, byte 14 as it is stored.
#define SUITE(protocol, id, name, bits, cipher, mac, keyxchg, byte13, byte14)                     \
    {name, id, bits, SSL_KEYXCHG_##keyxchg, 0, SSL_CIPHER_##cipher, SSL_MAC_##mac,                \
     SSL_PROTOCOL_##protocol, (byte13) >> 4 & 3, (byte13) >> 6 & 1, (byte13) >> 7, (byte14) & 3,  \
     (byte14) >> 2, 0, 0}

// One record per protocol version, in the order of the name.
#define TLS1_2(...) SUITE(TLS1_2, __VA_ARGS__)
#define TLS1_3(...) SUITE(TLS1_3, __VA_ARGS__)
#define GMSSL1_1(...) SUITE(GMSSL1_1, __VA_ARGS__)
#define SSL3_TLS1(...) SUITE(SSL3, __VA_ARGS__), SUITE(TLS1, __VA_ARGS__)
#define SSL3_TLS1_DTLS(...) SSL3_TLS1(__VA_ARGS__), SUITE(DTLS1, __VA_ARGS__)
#define SSL3_TO_1_1(...) SSL3_TLS1(__VA_ARGS__), SUITE(TLS1_1, __VA_ARGS__)
#define SSL3_TO_1_1_DTLS(...) SSL3_TO_1_1(__VA_ARGS__), SUITE(DTLS1, __VA_ARGS__)
#define SSL3_TO_1_2(...) SSL3_TO_1_1(__VA_ARGS__), SUITE(TLS1_2, __VA_ARGS__)
#define SSL3_TO_1_2_DTLS(...) SSL3_TO_1_2(__VA_ARGS__), SUITE(DTLS1, __VA_ARGS__)
#define TLS1_TO_1_2(...) \
    SUITE(TLS1, __VA_ARGS__), SUITE(TLS1_1, __VA_ARGS__), SUITE(TLS1_2, __VA_ARGS__)

constexpr ssl_suite_t ssl_suite[SSL_SUITE_COUNT] = {
    // versions        id      name                                    bits cipher             MAC     key exchange byte 13, 14
    TLS1_2(            0xC02F, "ECDHE-RSA-AES128-GCM-SHA256",          128, AES_GCM,           SHA256, ECDHE_RSA,   0x90, 0x0B),
    TLS1_TO_1_2(       0xC013, "ECDHE-RSA-AES128-CBC-SHA",             128, AES,               SHA,    ECDHE_RSA,   0x90, 0x09),
    TLS1_2(            0xC027, "ECDHE-RSA-AES128-SHA256",              128, AES,               SHA256, ECDHE_RSA,   0x90, 0x09),
    TLS1_2(            0xC030, "ECDHE-RSA-AES256-GCM-SHA384",          256, AES_GCM,           SHA384, ECDHE_RSA,   0xA0, 0x0B),
    TLS1_TO_1_2(       0xC014, "ECDHE-RSA-AES256-CBC-SHA",             256, AES,               SHA,    ECDHE_RSA,   0x90, 0x09),
    TLS1_2(            0xC028, "ECDHE-RSA-AES256-SHA384",              256, AES,               SHA384, ECDHE_RSA,   0xA0, 0x09),
    TLS1_2(            0xCCA8, "ECDHE-RSA-CHACHA20-POLY1305-SHA256",   256, CHACHA20_POLY1305, NONE,   ECDHE_RSA,   0x90, 0x03),
    TLS1_2(            0xC031, "ECDH-RSA-AES128-GCM-SHA256",           128, AES_GCM,           SHA256, ECDH_RSA,    0x90, 0x07),
    TLS1_2(            0xC029, "ECDH-RSA-AES128-SHA256",               128, AES,               SHA256, ECDH_RSA,    0x90, 0x05),
    TLS1_TO_1_2(       0xC00E, "ECDH-RSA-AES128-SHA",                  128, AES,               SHA,    ECDH_RSA,    0x90, 0x05),
    TLS1_2(            0xC032, "ECDH-RSA-AES256-GCM-SHA384",           256, AES_GCM,           SHA384, ECDH_RSA,    0xA0, 0x07),
    TLS1_2(            0xC02A, "ECDH-RSA-AES256-SHA384",               256, AES,               SHA384, ECDH_RSA,    0xA0, 0x05),
    TLS1_TO_1_2(       0xC00F, "ECDH-RSA-AES256-SHA",                  256, AES,               SHA,    ECDH_RSA,    0x90, 0x05),
    TLS1_2(            0x009C, "AES128-GCM-SHA256",                    128, AES_GCM,           SHA256, RSA,         0x90, 0x0B),
    SSL3_TO_1_2_DTLS(  0x002F, "AES128-SHA",                           128, AES,               SHA,    RSA,         0x90, 0x09),
    TLS1_2(            0x003C, "AES128-SHA256",                        128, AES,               SHA256, RSA,         0x90, 0x09),
    TLS1_2(            0x009D, "AES256-GCM-SHA384",                    256, AES_GCM,           SHA384, RSA,         0xA0, 0x0B),
    SSL3_TO_1_2_DTLS(  0x0035, "AES256-SHA",                           256, AES,               SHA,    RSA,         0x90, 0x09),
    TLS1_2(            0x003D, "AES256-SHA256",                        256, AES,               SHA256, RSA,         0x90, 0x09),
    TLS1_TO_1_2(       0x0041, "CAMELLIA128-SHA",                      128, CAMELLIA,          SHA,    RSA,         0x90, 0x05),
    TLS1_TO_1_2(       0x0084, "CAMELLIA256-SHA",                      256, CAMELLIA,          SHA,    RSA,         0x90, 0x05),
    TLS1_2(            0xC02B, "ECDHE-ECDSA-AES128-GCM-SHA256",        128, AES_GCM,           SHA256, ECDHE_ECDSA, 0x90, 0x0B),
    TLS1_TO_1_2(       0xC009, "ECDHE-ECDSA-AES128-SHA",               128, AES,               SHA,    ECDHE_ECDSA, 0x90, 0x09),
    TLS1_2(            0xC023, "ECDHE-ECDSA-AES128-SHA256",            128, AES,               SHA256, ECDHE_ECDSA, 0x90, 0x09),
    TLS1_2(            0xC02C, "ECDHE-ECDSA-AES256-GCM-SHA384",        256, AES_GCM,           SHA384, ECDHE_ECDSA, 0xA0, 0x0B),
    TLS1_TO_1_2(       0xC00A, "ECDHE-ECDSA-AES256-SHA",               256, AES,               SHA,    ECDHE_ECDSA, 0x90, 0x09),
    TLS1_2(            0xC024, "ECDHE-ECDSA-AES256-SHA384",            256, AES,               SHA384, ECDHE_ECDSA, 0xA0, 0x09),
    TLS1_2(            0xCCA9, "ECDHE-ECDSA-CHACHA20-POLY1305-SHA256", 256, CHACHA20_POLY1305, NONE,   ECDHE_ECDSA, 0x90, 0x03),
    TLS1_2(            0xC02D, "ECDH-ECDSA-AES128-GCM-SHA256",         128, AES_GCM,           SHA256, ECDH_ECDSA,  0x90, 0x07),
    TLS1_TO_1_2(       0xC004, "ECDH-ECDSA-AES128-SHA",                128, AES,               SHA,    ECDH_ECDSA,  0x90, 0x05),
    TLS1_2(            0xC025, "ECDH-ECDSA-AES128-SHA256",             128, AES,               SHA256, ECDH_ECDSA,  0x90, 0x05),
    TLS1_2(            0xC02E, "ECDH-ECDSA-AES256-GCM-SHA384",         256, AES_GCM,           SHA384, ECDH_ECDSA,  0xA0, 0x07),
    TLS1_TO_1_2(       0xC005, "ECDH-ECDSA-AES256-SHA",                256, AES,               SHA,    ECDH_ECDSA,  0x90, 0x05),
    TLS1_2(            0xC026, "ECDH-ECDSA-AES256-SHA384",             256, AES,               SHA384, ECDH_ECDSA,  0xA0, 0x05),
    TLS1_2(            0x009E, "DHE-RSA-AES128-GCM-SHA256",            128, AES_GCM,           SHA256, EDH_RSA,     0x90, 0x07),
    SSL3_TO_1_2_DTLS(  0x0033, "DHE-RSA-AES128-SHA",                   128, AES,               SHA,    EDH_RSA,     0x90, 0x05),
    TLS1_2(            0x0067, "DHE-RSA-AES128-SHA256",                128, AES,               SHA256, EDH_RSA,     0x90, 0x05),
    TLS1_2(            0x009F, "DHE-RSA-AES256-GCM-SHA384",            256, AES_GCM,           SHA384, EDH_RSA,     0xA0, 0x07),
    SSL3_TO_1_2_DTLS(  0x0039, "DHE-RSA-AES256-SHA",                   256, AES,               SHA,    EDH_RSA,     0x90, 0x05),
    TLS1_2(            0x006B, "DHE-RSA-AES256-SHA256",                256, AES,               SHA256, EDH_RSA,     0x90, 0x05),
    TLS1_TO_1_2(       0x0045, "DHE-RSA-CAMELLIA128-SHA",              128, CAMELLIA,          SHA,    EDH_RSA,     0x90, 0x05),
    TLS1_TO_1_2(       0x0088, "DHE-RSA-CAMELLIA256-SHA",              256, CAMELLIA,          SHA,    EDH_RSA,     0x90, 0x05),
    TLS1_2(            0x00A2, "DHE-DSS-AES128-GCM-SHA256",            128, AES_GCM,           SHA256, DHE_DSS,     0x90, 0x07),
    SSL3_TO_1_2_DTLS(  0x0032, "DHE-DSS-AES128-SHA",                   128, AES,               SHA,    DHE_DSS,     0x90, 0x05),
    TLS1_2(            0x0040, "DHE-DSS-AES128-SHA256",                128, AES,               SHA256, DHE_DSS,     0x90, 0x05),
    TLS1_2(            0x00A3, "DHE-DSS-AES256-GCM-SHA384",            256, AES_GCM,           SHA384, DHE_DSS,     0xA0, 0x07),
    SSL3_TO_1_2_DTLS(  0x0038, "DHE-DSS-AES256-SHA",                   256, AES,               SHA,    DHE_DSS,     0x90, 0x05),
    TLS1_2(            0x006A, "DHE-DSS-AES256-SHA256",                256, AES,               SHA256, DHE_DSS,     0x90, 0x05),
    TLS1_TO_1_2(       0x0044, "DHE-DSS-CAMELLIA128-SHA",              128, CAMELLIA,          SHA,    DHE_DSS,     0x90, 0x05),
    TLS1_TO_1_2(       0x0087, "DHE-DSS-CAMELLIA256-SHA",              256, CAMELLIA,          SHA,    DHE_DSS,     0x90, 0x05),
    TLS1_2(            0x00A6, "ADH-AES128-GCM-SHA256",                128, AES_GCM,           SHA256, ADH,         0x90, 0x07),
    SSL3_TLS1(         0x0034, "ADH-AES128-SHA",                       128, AES,               SHA,    ADH,         0x90, 0x05),
    TLS1_2(            0x00A7, "ADH-AES256-GCM-SHA384",                256, AES_GCM,           SHA384, ADH,         0xA0, 0x07),
    SSL3_TLS1(         0x003A, "ADH-AES256-SHA",                       256, AES,               SHA,    ADH,         0x90, 0x05),
    TLS1_TO_1_2(       0xC012, "ECDHE-RSA-DES-CBC3-SHA",               168, DES,               SHA,    ECDHE_RSA,   0x90, 0x05),
    TLS1_TO_1_2(       0xC00D, "ECDH-RSA-DES-CBC3-SHA",                168, DES,               SHA,    ECDH_RSA,    0x90, 0x05),
    SSL3_TO_1_2_DTLS(  0x000A, "DES-CBC3-SHA",                         168, DES,               SHA,    RSA,         0x90, 0x05),
    TLS1_TO_1_2(       0xC008, "ECDHE-ECDSA-DES-CBC3-SHA",             168, DES,               SHA,    ECDHE_ECDSA, 0x90, 0x05),
    TLS1_TO_1_2(       0xC003, "ECDH-ECDSA-DES-CBC3-SHA",              168, DES,               SHA,    ECDH_ECDSA,  0x90, 0x05),
    SSL3_TO_1_2_DTLS(  0x0016, "DHE-RSA-DES-CBC3-SHA",                 168, DES,               SHA,    EDH_RSA,     0x90, 0x05),
    SSL3_TLS1(         0x001B, "ADH-DES-CBC3-SHA",                     168, DES,               SHA,    ADH,         0x90, 0x05),
    SSL3_TO_1_2_DTLS(  0x0015, "DHE-RSA-DES-CBC-SHA",                  64,  DES,               SHA,    EDH_RSA,     0x90, 0x01),
    SSL3_TO_1_1_DTLS(  0x0009, "DES-CBC-SHA",                          64,  DES,               SHA,    RSA,         0x90, 0x01),
    SSL3_TLS1(         0x001A, "ADH-DES-CBC-SHA",                      64,  DES,               SHA,    ADH,         0x90, 0x01),
    SSL3_TO_1_2(       0x0005, "RC4-SHA",                              128, RC4,               SHA,    RSA,         0x90, 0x00),
    SSL3_TO_1_2(       0x0004, "RC4-MD5",                              128, RC4,               MD5,    RSA,         0x90, 0x00),
    SSL3_TLS1(         0x0018, "ADH-RC4-MD5",                          128, RC4,               MD5,    ADH,         0x90, 0x00),
    SSL3_TLS1_DTLS(    0x0062, "EXP1024-DES-CBC-SHA",                  56,  DES,               SHA,    RSA,         0xD0, 0x01),
    SSL3_TLS1_DTLS(    0x0008, "EXP-DES-CBC-SHA",                      40,  DES,               SHA,    RSA,         0xD0, 0x01),
    SSL3_TLS1(         0x0064, "EXP1024-RC4-SHA",                      56,  RC4,               SHA,    RSA,         0xD0, 0x00),
    SSL3_TLS1(         0x0003, "EXP-RC4-MD5",                          40,  RC4,               MD5,    RSA,         0xD0, 0x00),
    SSL3_TO_1_2(       0x0002, "NULL-SHA",                             0,   NONE,              SHA,    RSA,         0x90, 0x00),
    SSL3_TO_1_2(       0x0001, "NULL-MD5",                             0,   NONE,              MD5,    RSA,         0x90, 0x00),
    TLS1_3(            0x1301, "TLS13-AES128-GCM-SHA256",              128, AES_GCM,           NONE,   NONE,        0x90, 0x0B),
    TLS1_3(            0x1302, "TLS13-AES256-GCM-SHA384",              256, AES_GCM,           NONE,   NONE,        0xA0, 0x0B),
    TLS1_3(            0x1303, "TLS13-CHACHA20-POLY1305-SHA256",       256, CHACHA20_POLY1305, NONE,   NONE,        0x90, 0x0B),
    GMSSL1_1(          0xE013, "ECC-SM4-SM3",                          128, SM4,               SM3,    SM2,         0xB0, 0x01),
};
// clang-format on

static_assert(sizeof(ssl_suite_t) == 16, "the record layout is part of the binary interface");
static_assert(offsetof(ssl_suite_t, id) == 8, "the record layout is part of the binary interface");
static_assert(offsetof(ssl_suite_t, unused_15) == 15,
              "the record layout is part of the binary interface");
static_assert(ssl_suite[SSL_SUITE_COUNT - 1].name != nullptr, "the table is short of rows");

namespace {

// Names by code; a code without one is null.
// clang-format off
constexpr const char* kProtocols[] = {
    "NONE", "SSL2", "SSL3", "TLS1", "TLS1.1", "TLS1.2", "TLS1.3", "DTLS1", "GMSSL1.1"};
constexpr const char* kCiphers[] = {
    "NULL", "AES", "AES-GCM", "DES", nullptr, "RC4", "CAMELLIA", "CHACHA20-POLY1305", "SM4"};
constexpr const char* kMacs[] = {
    "NULL", "MD5", "SHA", nullptr, "SHA256", "SHA384", "SHA512", "SM3"};
constexpr const char* kKeyExchanges[] = {
    nullptr, "ADH", "DH/RSA", "EDH/RSA", "RSA", "ECDH_ECDSA", "ECDHE_ECDSA", "ECDH_RSA",
    "ECDHE_RSA", "DHE/DSS", "SM2"};
// clang-format on

template <std::size_t Count>
const char* name_of(unsigned code, const char* const (&names)[Count], const char* unknown) {
    return code < Count && names[code] != nullptr ? names[code] : unknown;
}

// A suite is found by its number without a search: a multiplication spreads the numbers over slots
// such that no two suites meet, and a slot holds the index of the suite's first record.
constexpr unsigned kSlotBits = 9;
using Slots = std::array<std::uint8_t, 1U << kSlotBits>;
constexpr std::uint8_t kVacant = 0xFF;
static_assert(SSL_SUITE_COUNT < kVacant, "a slot is too small for an index");

constexpr std::size_t slot_of(std::uint32_t id, std::uint32_t factor) {
    return id * factor >> (32 - kSlotBits);
}

// The slots under `factor`; false if two suites meet.
constexpr bool fill(Slots& slots, std::uint32_t factor) {
    for (std::uint8_t& slot : slots) slot = kVacant;
    for (std::uint8_t i = 0; i < SSL_SUITE_COUNT; ++i) {
        std::uint8_t& slot = slots[slot_of(ssl_suite[i].id, factor)];
        if (slot == kVacant) slot = i;
        if (ssl_suite[slot].id != ssl_suite[i].id) return false;
    }
    return true;
}

constexpr std::uint32_t spreading_factor() {
    Slots slots{};
    std::uint32_t factor = 0x9E3779B1;
    while (!fill(slots, factor)) factor += 0x3C6EF372;
    return factor;
}

constexpr std::uint32_t kFactor = spreading_factor();

constexpr Slots filled_slots() {
    Slots slots{};
    fill(slots, kFactor);
    // A vacant slot leads to some record, whose id then differs from the one looked for.
    for (std::uint8_t& slot : slots) slot = slot == kVacant ? 0 : slot;
    return slots;
}

constexpr Slots kSlots = filled_slots();

}  // namespace

unsigned ssl_suite_size_get(void) { return SSL_SUITE_COUNT; }

const char* ssl_protocol_name(unsigned protocol) { return name_of(protocol, kProtocols, "?"); }

const char* ssl_cipher_name(unsigned cipher) { return name_of(cipher, kCiphers, "?"); }

const char* ssl_mac_name(unsigned mac) { return name_of(mac, kMacs, "?"); }

const char* ssl_keyxchg_name(unsigned keyxchg) { return name_of(keyxchg, kKeyExchanges, "*"); }

const char* ssl_cipher_suite_name(const ssl_suite_t* suite) {
    return suite == nullptr ? "" : suite->name;
}

const ssl_suite_t* ssl_cipher_suite_from_id(int id) {
    const auto number = static_cast<std::uint16_t>(id);
    const ssl_suite_t* suite = &ssl_suite[kSlots[slot_of(number, kFactor)]];
    return suite->id == number ? suite : nullptr;
}

int ssl_cipher_suite_is_ecdsa(const ssl_suite_t* suite) {
    return suite != nullptr &&
           (suite->keyxchg == SSL_KEYXCHG_ECDH_ECDSA || suite->keyxchg == SSL_KEYXCHG_ECDHE_ECDSA);
}

int ssl_cipher_suite_id_is_ecdsa(int id) {
    return ssl_cipher_suite_is_ecdsa(ssl_cipher_suite_from_id(id));
}

char* ssl_cipher_suite(char* buffer, size_t size, const ssl_suite_t* suite) {
    (void)snprintf(buffer, size, "0x%05X  %-30s  %4d  %-6s  %-8s  %-6s  %-10s", suite->id,
                   suite->name, suite->strength, ssl_protocol_name(suite->protocol),
                   ssl_cipher_name(suite->cipher), ssl_mac_name(suite->mac),
                   ssl_keyxchg_name(suite->keyxchg));
    return buffer;
}
