// SPDX-License-Identifier: Apache-2.0
#include "cipher_names.h"

#include <tarnutil/ssl_suite.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>

#include "openssl.h"

namespace tarnutil_command {
namespace {

struct IanaName {
    unsigned id;
    const char* name;
};

// The registered names, in the order of the catalogue. The two suites with 1024-bit export keys and
// the GMSSL suite have numbers that were never registered.
constexpr IanaName kIanaNames[] = {
    {0xC02F, "TLS_ECDHE_RSA_WITH_AES_128_GCM_SHA256"},
    {0xC013, "TLS_ECDHE_RSA_WITH_AES_128_CBC_SHA"},
    {0xC027, "TLS_ECDHE_RSA_WITH_AES_128_CBC_SHA256"},
    {0xC030, "TLS_ECDHE_RSA_WITH_AES_256_GCM_SHA384"},
    {0xC014, "TLS_ECDHE_RSA_WITH_AES_256_CBC_SHA"},
    {0xC028, "TLS_ECDHE_RSA_WITH_AES_256_CBC_SHA384"},
    {0xCCA8, "TLS_ECDHE_RSA_WITH_CHACHA20_POLY1305_SHA256"},
    {0xC031, "TLS_ECDH_RSA_WITH_AES_128_GCM_SHA256"},
    {0xC029, "TLS_ECDH_RSA_WITH_AES_128_CBC_SHA256"},
    {0xC00E, "TLS_ECDH_RSA_WITH_AES_128_CBC_SHA"},
    {0xC032, "TLS_ECDH_RSA_WITH_AES_256_GCM_SHA384"},
    {0xC02A, "TLS_ECDH_RSA_WITH_AES_256_CBC_SHA384"},
    {0xC00F, "TLS_ECDH_RSA_WITH_AES_256_CBC_SHA"},
    {0x009C, "TLS_RSA_WITH_AES_128_GCM_SHA256"},
    {0x002F, "TLS_RSA_WITH_AES_128_CBC_SHA"},
    {0x003C, "TLS_RSA_WITH_AES_128_CBC_SHA256"},
    {0x009D, "TLS_RSA_WITH_AES_256_GCM_SHA384"},
    {0x0035, "TLS_RSA_WITH_AES_256_CBC_SHA"},
    {0x003D, "TLS_RSA_WITH_AES_256_CBC_SHA256"},
    {0x0041, "TLS_RSA_WITH_CAMELLIA_128_CBC_SHA"},
    {0x0084, "TLS_RSA_WITH_CAMELLIA_256_CBC_SHA"},
    {0xC02B, "TLS_ECDHE_ECDSA_WITH_AES_128_GCM_SHA256"},
    {0xC009, "TLS_ECDHE_ECDSA_WITH_AES_128_CBC_SHA"},
    {0xC023, "TLS_ECDHE_ECDSA_WITH_AES_128_CBC_SHA256"},
    {0xC02C, "TLS_ECDHE_ECDSA_WITH_AES_256_GCM_SHA384"},
    {0xC00A, "TLS_ECDHE_ECDSA_WITH_AES_256_CBC_SHA"},
    {0xC024, "TLS_ECDHE_ECDSA_WITH_AES_256_CBC_SHA384"},
    {0xCCA9, "TLS_ECDHE_ECDSA_WITH_CHACHA20_POLY1305_SHA256"},
    {0xC02D, "TLS_ECDH_ECDSA_WITH_AES_128_GCM_SHA256"},
    {0xC004, "TLS_ECDH_ECDSA_WITH_AES_128_CBC_SHA"},
    {0xC025, "TLS_ECDH_ECDSA_WITH_AES_128_CBC_SHA256"},
    {0xC02E, "TLS_ECDH_ECDSA_WITH_AES_256_GCM_SHA384"},
    {0xC005, "TLS_ECDH_ECDSA_WITH_AES_256_CBC_SHA"},
    {0xC026, "TLS_ECDH_ECDSA_WITH_AES_256_CBC_SHA384"},
    {0x009E, "TLS_DHE_RSA_WITH_AES_128_GCM_SHA256"},
    {0x0033, "TLS_DHE_RSA_WITH_AES_128_CBC_SHA"},
    {0x0067, "TLS_DHE_RSA_WITH_AES_128_CBC_SHA256"},
    {0x009F, "TLS_DHE_RSA_WITH_AES_256_GCM_SHA384"},
    {0x0039, "TLS_DHE_RSA_WITH_AES_256_CBC_SHA"},
    {0x006B, "TLS_DHE_RSA_WITH_AES_256_CBC_SHA256"},
    {0x0045, "TLS_DHE_RSA_WITH_CAMELLIA_128_CBC_SHA"},
    {0x0088, "TLS_DHE_RSA_WITH_CAMELLIA_256_CBC_SHA"},
    {0x00A2, "TLS_DHE_DSS_WITH_AES_128_GCM_SHA256"},
    {0x0032, "TLS_DHE_DSS_WITH_AES_128_CBC_SHA"},
    {0x0040, "TLS_DHE_DSS_WITH_AES_128_CBC_SHA256"},
    {0x00A3, "TLS_DHE_DSS_WITH_AES_256_GCM_SHA384"},
    {0x0038, "TLS_DHE_DSS_WITH_AES_256_CBC_SHA"},
    {0x006A, "TLS_DHE_DSS_WITH_AES_256_CBC_SHA256"},
    {0x0044, "TLS_DHE_DSS_WITH_CAMELLIA_128_CBC_SHA"},
    {0x0087, "TLS_DHE_DSS_WITH_CAMELLIA_256_CBC_SHA"},
    {0x00A6, "TLS_DH_anon_WITH_AES_128_GCM_SHA256"},
    {0x0034, "TLS_DH_anon_WITH_AES_128_CBC_SHA"},
    {0x00A7, "TLS_DH_anon_WITH_AES_256_GCM_SHA384"},
    {0x003A, "TLS_DH_anon_WITH_AES_256_CBC_SHA"},
    {0xC012, "TLS_ECDHE_RSA_WITH_3DES_EDE_CBC_SHA"},
    {0xC00D, "TLS_ECDH_RSA_WITH_3DES_EDE_CBC_SHA"},
    {0x000A, "TLS_RSA_WITH_3DES_EDE_CBC_SHA"},
    {0xC008, "TLS_ECDHE_ECDSA_WITH_3DES_EDE_CBC_SHA"},
    {0xC003, "TLS_ECDH_ECDSA_WITH_3DES_EDE_CBC_SHA"},
    {0x0016, "TLS_DHE_RSA_WITH_3DES_EDE_CBC_SHA"},
    {0x001B, "TLS_DH_anon_WITH_3DES_EDE_CBC_SHA"},
    {0x0015, "TLS_DHE_RSA_WITH_DES_CBC_SHA"},
    {0x0009, "TLS_RSA_WITH_DES_CBC_SHA"},
    {0x001A, "TLS_DH_anon_WITH_DES_CBC_SHA"},
    {0x0005, "TLS_RSA_WITH_RC4_128_SHA"},
    {0x0004, "TLS_RSA_WITH_RC4_128_MD5"},
    {0x0018, "TLS_DH_anon_WITH_RC4_128_MD5"},
    {0x0008, "TLS_RSA_EXPORT_WITH_DES40_CBC_SHA"},
    {0x0003, "TLS_RSA_EXPORT_WITH_RC4_40_MD5"},
    {0x0002, "TLS_RSA_WITH_NULL_SHA"},
    {0x0001, "TLS_RSA_WITH_NULL_MD5"},
    {0x1301, "TLS_AES_128_GCM_SHA256"},
    {0x1302, "TLS_AES_256_GCM_SHA384"},
    {0x1303, "TLS_CHACHA20_POLY1305_SHA256"},
};

std::string ianaName(unsigned id) {
    const auto* const row = std::find_if(std::begin(kIanaNames), std::end(kIanaNames),
                                         [&](const IanaName& name) { return name.id == id; });
    return row == std::end(kIanaNames) ? "" : row->name;
}

using SslPtr = std::unique_ptr<SSL, tarnutil::FreeWith<SSL_free>>;

// The names of all suites that the linked OpenSSL has, by number.
std::map<unsigned, std::string> opensslNames() {
    const tarnutil::SslCtxPtr ctx(SSL_CTX_new(SSLv23_method()));
    if (ctx == nullptr || SSL_CTX_set_cipher_list(ctx.get(), "ALL:COMPLEMENTOFALL") != 1) {
        throw std::runtime_error("OpenSSL does not list its cipher suites");
    }
    const SslPtr ssl(SSL_new(ctx.get()));
    if (ssl == nullptr) throw std::runtime_error("OpenSSL does not list its cipher suites");
    const STACK_OF(SSL_CIPHER)* const ciphers = SSL_get_ciphers(ssl.get());
    std::map<unsigned, std::string> names;
    for (int i = 0; i < sk_SSL_CIPHER_num(ciphers); ++i) {
        const SSL_CIPHER* const cipher = sk_SSL_CIPHER_value(ciphers, i);
        names[SSL_CIPHER_get_id(cipher) & 0xFFFF] = SSL_CIPHER_get_name(cipher);
    }
    return names;
}

}  // namespace

std::vector<SuiteNames> crossReference() {
    const std::map<unsigned, std::string> openssl = opensslNames();
    std::set<unsigned> seen;
    std::vector<SuiteNames> rows;
    for (const ssl_suite_t& suite : ssl_suite) {
        if (!seen.insert(suite.id).second) continue;
        const auto found = openssl.find(suite.id);
        rows.push_back({suite.id, suite.name, ianaName(suite.id),
                        found == openssl.end() ? "" : found->second});
    }
    return rows;
}

}  // namespace tarnutil_command
