/* SPDX-License-Identifier: Apache-2.0 */
/* Certificates, certificate requests, revocation lists and private keys over OpenSSL: read from PEM
 * or DER, whichever it is, put into an SSL_CTX, and asked a few questions.
 *
 * Ownership: what a TARNSSL_load_ function returns is a new object of the caller, to be freed with
 *          X509_free, X509_REQ_free, X509_CRL_free, EVP_PKEY_free or RSA_free. A BIO that is passed
 *          in stays the caller's. No argument may be NULL except where its comment says so.
 * Errors:  reported by result; a failed allocation is a failure like any other. OpenSSL's error
 *          queue then may say why, and keeps what it held before except where a comment says that
 *          it is cleared; docs/certificates.md lists what it holds. Nothing here prints.
 * Threads: no state of its own: any thread may call any function, on distinct objects.
 *
 * Rewinding a BIO is BIO_reset: a memory BIO that was written to is emptied by it. Hand over DER in
 * a file or in BIO_new_mem_buf.
 */
#ifndef TARNUTIL_CERT_H
#define TARNUTIL_CERT_H

#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <stddef.h>

#include <tarnutil/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Reading certificates and requests
 *
 * `*format` says how to read, and what was found: 0 finds out and then holds 1 for PEM or 2 for DER
 * (or still 0 after a failure); 1 reads PEM only; any other value reads DER only. NULL finds out
 * and does not tell. To read several objects from one BIO pass the same indicator, 0 at first:
 * every read after the first uses the format that the first one found.
 *
 * Finding out tries PEM; if that fails it clears the error queue, rewinds the BIO to its beginning
 * and tries DER. So a failure leaves the DER reader's errors, and PEM that is damaged is reported
 * as bad DER. A read in a given format neither clears nor rewinds. Keys and other PEM blocks inside
 * the input are skipped: a certificate behind a private key in one PEM file is found. A PEM block
 * that is locked with a password is read like a damaged one, and nobody is asked for it. */

/* The next certificate of `bio`, or NULL. */
TARNUTIL_API X509* TARNSSL_load_X509_bio(BIO* bio, int* format);
/* The first certificate of the file, or NULL. */
TARNUTIL_API X509* TARNSSL_load_X509_file(const char* path);
/* The first certificate in `length` bytes at `data`, or NULL. A negative length takes `data` as a
 * NUL-terminated text. `format` may be NULL. */
TARNUTIL_API X509* TARNSSL_load_X509_buf(const void* data, int length, int* format);

/* The same for certificate requests. */
TARNUTIL_API X509_REQ* TARNSSL_load_X509_REQ_bio(BIO* bio, int* format);
TARNUTIL_API X509_REQ* TARNSSL_load_X509_REQ_file(const char* path);

/* The same for revocation lists, always finding out. */
TARNUTIL_API X509_CRL* TARNSSL_load_X509_CRL_bio(BIO* bio);
TARNUTIL_API X509_CRL* TARNSSL_load_X509_CRL_file(const char* path);

/* Reading private keys
 *
 * `password` is a NUL-terminated text that unlocks PEM, or NULL for none; as much of it is used as
 * OpenSSL's password buffer takes. DER is read unencrypted.
 *
 * PEM is read from where the BIO stands; blocks of other kinds in front of a key are skipped, so
 * that a key behind its certificates is found. DER is tried only if no PEM block of any kind begins
 * there or further on: then the error queue is cleared, the BIO rewound to its beginning, and DER
 * read from there. A wrong password or a damaged PEM block is a failure whose errors stay, whatever
 * else is in the input; the BIO is then left at an unspecified position: rewind it before another
 * try. Input that cannot be rewound (a pipe) has to be PEM.
 *
 * Keys behind each other in one BIO come one by one. A read behind the last PEM block starts over
 * as DER like any other that finds none: it clears the error queue, and returns the DER key that
 * the input begins with, or NULL with the DER reader's errors. */

/* The next private key of `bio`, of whatever algorithm, or NULL. */
TARNUTIL_API EVP_PKEY* TARNSSL_load_PrivateKey_bio(BIO* bio, void* password);
/* The first private key of the file, or NULL. */
TARNUTIL_API EVP_PKEY* TARNSSL_load_PrivateKey_file(const char* path, void* password);

/* The same as an RSA object; NULL also if the key is of another algorithm. */
TARNUTIL_API RSA* TARNSSL_load_RSA_bio(BIO* bio, void* password);
TARNUTIL_API RSA* TARNSSL_load_RSA_file(const char* path, void* password);

/* Configuring an SSL_CTX
 *
 * The context takes references of its own. A file that is read as DER clears the error queue on the
 * way, and so does a certificate that takes the place of one with another key, which drops that key
 * from the context: set the certificate first, then its key. Clear the queue (ERR_clear_error)
 * before SSL I/O: SSL_get_error looks at it, and a failed call may have left something there. */

/* Loads a certificate and makes it the context's: SSL_CTX_use_certificate's result, 0 if there is
 * none to load. */
TARNUTIL_API int TARNSSL_CTX_use_certificate_file(SSL_CTX* ctx, const char* path);

/* Loads a private key and makes it the context's: SSL_CTX_use_PrivateKey's result, 0 if there is
 * none to load. */
TARNUTIL_API int TARNSSL_CTX_use_PrivateKey_file(SSL_CTX* ctx, const char* path, void* password);

/* Makes the first certificate of a PEM file the context's, and all that follow its extra chain, in
 * place of the extra chain that it had. Returns 1, with the error queue empty; 0 on failure.
 *
 * Clears the error queue at its start. A failure before the first certificate was read queues
 * library 20 (SSL), function 220, reason 7, file util/cert.cpp and one of these lines:
 *     341  no BIO for the file     346  the file cannot be opened     352  no first certificate
 * (OpenSSL 3 keeps no function numbers.) If the context refuses the first certificate, nothing is
 * installed and the old extra chain stays. If it takes it and queues an error, the result is 0 with
 * the new certificate installed and the old extra chain. A failure behind it leaves the
 * certificate, and the chain as far as it was read, in the context. A DER file always ends so, with
 * 0 and all of its certificates installed: use TARNSSL_CTX_use_certificate_file for DER. */
TARNUTIL_API int TARNSSL_CTX_use_certificate_chain_file(SSL_CTX* ctx, const char* path);

/* Asking */

/* 1 if `issuer` issued `subject` (names and key identifiers match) and its key verifies the
 * signature; otherwise 0, also if either is NULL. Validity times and trust are not looked at. */
TARNUTIL_API int TARNSSL_verify_issuer(X509* issuer, X509* subject);

/* Whether a file of certificates, PEM or DER, holds one that issued `subject`: 1 or 0. PEM blocks
 * of other kinds are skipped; reading ends at the first certificate block that cannot be read, in
 * DER at the first object that is no certificate. -1 if `subject` is NULL or the file cannot be
 * opened (a directory can, and answers 0).
 *
 * An answer of 0 leaves in the error queue what ended the reading: nothing where DER comes to its
 * end. Candidates of the right name with another key, or with none that can be read, leave their
 * errors whatever the answer. Reading DER forgets what the queue held before the call. */
TARNUTIL_API int TARNSSL_cert_contain_issuer_of(const char* path, X509* subject);

/* Whether a PEM chain file holds, behind its first certificate, one that issued the first: 1 or 0;
 * the first is not compared with itself. -1 if the file would not do for
 * TARNSSL_CTX_use_certificate_chain_file (which a DER file never does). Clears the error queue,
 * unless the file cannot be opened; candidates leave errors as in TARNSSL_cert_contain_issuer_of.
 * The SSL_CTX that the chain is put into is taken for granted: without memory for one the process
 * may crash. */
TARNUTIL_API int TARNSSL_cert_contain_issuer(const char* path);

/* The first OCSP responder address of the certificate that begins with "http://", in lower case
 * letters; NULL if there is none. Other schemes do not count, and a critical extension ends the
 * search unread.
 *
 * The result lives in `*out`, which the caller releases when done with both:
 *     sk_ACCESS_DESCRIPTION_pop_free(out, ACCESS_DESCRIPTION_free)
 * After NULL `*out` must not be used: it may point to what was freed. */
TARNUTIL_API ASN1_IA5STRING* TARNSSL_get_ocsp_resp_url_from_aia(X509* cert,
                                                                AUTHORITY_INFO_ACCESS** out);

/* Writes the certificate's SHA-256 as "SHA256/" and 32 upper-case pairs of digits joined by colons,
 * 102 characters and a NUL. Returns 1; -1 if `size`, in bytes, is less than 103 (the beginning of
 * the text is then there, with its NUL, unless `size` is 0) or the digest fails. */
TARNUTIL_API int TARNSSL_X509_to_fingerprint_str(X509* cert, char* buffer, size_t size);

/* The address of a revocation list: of the first distribution point that names a URI of more than 6
 * bytes, the first that begins with "http://", else the last of them, whatever its scheme. NULL if
 * no point names one, or the extension occurs twice or does not decode.
 *
 * The bytes are not promised to end in NUL, and their length is not told. They must not be freed:
 * they live in a decoded list that is never released, so each call costs memory for good. */
TARNUTIL_API unsigned char* TARNSSL_X509_get_first_crl_dp(X509* cert);

/* Writes the subject alternative names as OpenSSL prints them ("DNS:a.example, DNS:b.example"): up
 * to size - 2 characters of their first line, and a NUL. `size` is in bytes, at least 1. A longer
 * text is cut without a word, and a name that holds a line end leaves that at the end of the text.
 * Returns 0, or a negative value if the certificate has no such extension; the text is then empty,
 * as it is if the extension cannot be printed.
 *
 * For display only: a name may itself contain ", DNS:". Compare names with X509_check_host. */
TARNUTIL_API int TARNSSL_X509_get_SANs_str(X509* cert, char* buffer, int size);
/* The same for the names that a request asks for; the text is empty if there are none. */
TARNUTIL_API void TARNSSL_X509_REQ_get_SANs_str(X509_REQ* req, char* buffer, int size);

#ifdef __cplusplus
}
#endif
#endif /* TARNUTIL_CERT_H */
