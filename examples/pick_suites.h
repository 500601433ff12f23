// SPDX-License-Identifier: Apache-2.0
// The TLS suites that a cipher string selects, offered by an SSL_CTX. Needs OpenSSL 1.1.1.
#ifndef PICK_SUITES_H
#define PICK_SUITES_H

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include <tarnutil/Exception.h>
#include <tarnutil/ssl_suite.h>

// Lets `tls` offer what `ciphers` selects, as far as this OpenSSL has it, in that order: the
// library orders the suites; OpenSSL, which has names of its own, knows them by number. Throws
// tarnutil::Exception if the string fails or OpenSSL refuses the list.
inline void pickSuites(SSL_CTX* tls, const std::string& ciphers) {
    ssl_suite_ctx_t selection;
    ssl_suite_ctx_init(&selection);
    const auto length = static_cast<unsigned>(ciphers.size());
    if (ssl_suite_cmd(&selection, ciphers.data(), length, /*expand=*/0, nullptr, nullptr) != 1)
        throw tarnutil::Exception("Not a cipher string: " + ciphers);
    const std::shared_ptr<SSL> connection(SSL_new(tls), SSL_free);
    if (connection == nullptr) throw tarnutil::Exception("No memory");
    std::string tls13, older;
    for (const ssl_suite_entry_t* entry = selection.first; entry != nullptr; entry = entry->next) {
        if ((entry->flags & SSL_SUITE_ENTRY_ENABLED) == 0) continue;
        const ssl_suite_t& suite = ssl_suite[entry->suite];
        const unsigned char id[] = {static_cast<unsigned char>(suite.id >> 8),
                                    static_cast<unsigned char>(suite.id & 0xFF)};
        const SSL_CIPHER* const cipher = SSL_CIPHER_find(connection.get(), id);
        if (cipher == nullptr) continue;  // not in this OpenSSL
        std::string& list = suite.protocol == SSL_PROTOCOL_TLS1_3 ? tls13 : older;
        list.append(list.empty() ? "" : ":").append(SSL_CIPHER_get_name(cipher));
    }
    if (SSL_CTX_set_ciphersuites(tls, tls13.c_str()) != 1 ||
        SSL_CTX_set_cipher_list(tls, older.c_str()) != 1)
        throw tarnutil::Exception("Could not offer " + tls13 + " and " + older);
    (void)SSL_CTX_set_options(tls, SSL_OP_CIPHER_SERVER_PREFERENCE);
}

#endif  // PICK_SUITES_H
