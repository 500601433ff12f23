/* SPDX-License-Identifier: Apache-2.0 */
/* The TLS cipher suites that a server program can offer, and the cipher strings that select and
 * order them.
 *
 * Errors:  reported by result only; nothing throws, allocates or touches errno.
 * Threads: the catalogue is constant and the functions keep no state: any thread may call any of
 *          them. A selection context belongs to one thread at a time.
 */
#ifndef TARNUTIL_SSL_SUITE_H
#define TARNUTIL_SSL_SUITE_H

#include <stddef.h>
#include <stdint.h>

#include <tarnutil/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Protocol versions, named by ssl_protocol_name. */
enum {
    SSL_PROTOCOL_NONE = 0,
    SSL_PROTOCOL_SSL2 = 1,
    SSL_PROTOCOL_SSL3 = 2,
    SSL_PROTOCOL_TLS1 = 3,
    SSL_PROTOCOL_TLS1_1 = 4,
    SSL_PROTOCOL_TLS1_2 = 5,
    SSL_PROTOCOL_TLS1_3 = 6,
    SSL_PROTOCOL_DTLS1 = 7,
    SSL_PROTOCOL_GMSSL1_1 = 8
};

/* Bulk ciphers, named by ssl_cipher_name. There is no code 4. */
enum {
    SSL_CIPHER_NULL = 0,
    SSL_CIPHER_AES = 1,
    SSL_CIPHER_AES_GCM = 2,
    SSL_CIPHER_DES = 3, /* single and triple DES: their strength tells them apart */
    SSL_CIPHER_RC4 = 5,
    SSL_CIPHER_CAMELLIA = 6,
    SSL_CIPHER_CHACHA20_POLY1305 = 7,
    SSL_CIPHER_SM4 = 8
};

/* Message authentication codes, named by ssl_mac_name. There is no code 3. CHACHA20-POLY1305 and
 * TLS 1.3 suites have the NULL MAC; AES-GCM suites of TLS 1.2 have the hash of their name. */
enum {
    SSL_MAC_NULL = 0,
    SSL_MAC_MD5 = 1,
    SSL_MAC_SHA = 2,
    SSL_MAC_SHA256 = 4,
    SSL_MAC_SHA384 = 5,
    SSL_MAC_SHA512 = 6,
    SSL_MAC_SM3 = 7
};

/* Key exchanges, named by ssl_keyxchg_name. TLS 1.3 suites have none. */
enum {
    SSL_KEYXCHG_NONE = 0,
    SSL_KEYXCHG_ADH = 1,
    SSL_KEYXCHG_DH_RSA = 2,
    SSL_KEYXCHG_EDH_RSA = 3,
    SSL_KEYXCHG_RSA = 4,
    SSL_KEYXCHG_ECDH_ECDSA = 5,
    SSL_KEYXCHG_ECDHE_ECDSA = 6,
    SSL_KEYXCHG_ECDH_RSA = 7,
    SSL_KEYXCHG_ECDHE_RSA = 8,
    SSL_KEYXCHG_DHE_DSS = 9,
    SSL_KEYXCHG_SM2 = 10
};

/* How a suite counts for "@fips": not at all, or as one of two classes. */
enum { SSL_FIPS_NONE = 0, SSL_FIPS_WEAK = 1, SSL_FIPS_STRONG = 2 };

/* One suite in one protocol version: 16 bytes, part of the binary interface bit by bit. */
typedef struct ssl_suite_record {
    const char* name;        /* never NULL, for example "ECDHE-RSA-AES128-GCM-SHA256" */
    uint16_t id;             /* the cipher suite number registered with IANA */
    uint16_t strength : 11;  /* in bits */
    uint16_t keyxchg : 4;    /* SSL_KEYXCHG_... */
    uint16_t unused_10 : 1;  /* 0 */
    uint8_t cipher : 4;      /* SSL_CIPHER_... */
    uint8_t mac : 4;         /* SSL_MAC_... */
    uint8_t protocol : 4;    /* SSL_PROTOCOL_... */
    uint8_t flags_13_4 : 2;  /* carried, read by nothing */
    uint8_t is_export : 1;   /* 1 for the suites weakened for export */
    uint8_t flags_13_7 : 1;  /* carried, read by nothing */
    uint8_t flags_14_0 : 2;  /* carried, read by nothing */
    uint8_t fips : 2;        /* SSL_FIPS_... */
    uint8_t unused_14_4 : 4; /* 0 */
    uint8_t unused_15;       /* 0 */
} ssl_suite_t;

/* The catalogue. A suite has one record per protocol version that offers it, next to each other,
 * the oldest version first and DTLS last; records of one suite differ in `protocol` alone. The
 * order of the records is the one that "@speed" restores. */
#define SSL_SUITE_COUNT 175
extern TARNUTIL_API const ssl_suite_t ssl_suite[SSL_SUITE_COUNT];

/* Returns SSL_SUITE_COUNT, for programs that do not read this header. */
TARNUTIL_API unsigned ssl_suite_size_get(void);

/* Name a code. The text is constant: "?" for an unknown protocol, cipher or MAC, and "*" for
 * SSL_KEYXCHG_NONE or an unknown key exchange. */
TARNUTIL_API const char* ssl_protocol_name(unsigned protocol);
TARNUTIL_API const char* ssl_cipher_name(unsigned cipher);
TARNUTIL_API const char* ssl_mac_name(unsigned mac);
TARNUTIL_API const char* ssl_keyxchg_name(unsigned keyxchg);

/* Returns the name of `suite`, "" if it is NULL. */
TARNUTIL_API const char* ssl_cipher_suite_name(const ssl_suite_t* suite);

/* Returns the first record in table order whose id equals the low 16 bits of `id`, the one of the
 * suite's oldest protocol version; NULL if there is none. */
TARNUTIL_API const ssl_suite_t* ssl_cipher_suite_from_id(int id);

/* Return 1 if the key exchange is ECDH_ECDSA or ECDHE_ECDSA, else 0. `suite` may be NULL and `id`,
 * of which only the low 16 bits count, unknown: both give 0. */
TARNUTIL_API int ssl_cipher_suite_is_ecdsa(const ssl_suite_t* suite);
TARNUTIL_API int ssl_cipher_suite_id_is_ecdsa(int id);

/* Formats `suite`, not NULL, as one row of a table: id, name, strength in bits, protocol, cipher,
 * MAC and key exchange in columns two spaces apart, without a newline. A name longer than its
 * column widens it. Returns `buffer`, which holds as much of the row as fits `size` bytes with the
 * terminator; nothing is written if `size` is 0. SSL_SUITE_ROW_SIZE bytes hold every row. */
#define SSL_SUITE_ROW_SIZE 128
TARNUTIL_API char* ssl_cipher_suite(char* buffer, size_t size, const ssl_suite_t* suite);

/* What an entry is, in its `flags`. */
enum { SSL_SUITE_ENTRY_ENABLED = 1, SSL_SUITE_ENTRY_DRAFT_DTLS = 2 };

/* One candidate of a selection. */
typedef struct ssl_suite_entry {
    struct ssl_suite_entry* next;  /* forward link: NULL in the last entry */
    struct ssl_suite_entry** prev; /* back link: the forward link that points here */
    uint16_t suite;                /* index in ssl_suite, below SSL_SUITE_COUNT */
    uint16_t matches;              /* the library's own: callers neither read nor set it */
    uint8_t flags;                 /* SSL_SUITE_ENTRY_... */
} ssl_suite_entry_t;

/* What a context admits, in its `flags`. Without one of the GMSSL flags, the name of the GMSSL
 * suite and the keywords gmsslv1_1, sm2, sm3 and sm4 are unknown terms. */
enum {
    SSL_SUITE_CTX_FIPS_RSA = 1,   /* "@fips" counts DH_RSA, EDH_RSA, RSA, ECDH_RSA, ECDHE_RSA */
    SSL_SUITE_CTX_FIPS_ECDSA = 2, /* "@fips" counts ECDH_ECDSA and ECDHE_ECDSA */
    SSL_SUITE_CTX_GMSSL = 4,      /* the GMSSL suite is known by name and by its keywords */
    SSL_SUITE_CTX_GMSSL_ALT = 8   /* another flag of the same effect as SSL_SUITE_CTX_GMSSL */
};

/* A selection: a list of candidate suites, of which the enabled ones, in list order, are the offer
 * in order of preference. The caller owns all of it and sets it up, with ssl_suite_ctx_init or by
 * hand from a part of the catalogue; each record stands in at most one entry. */
typedef struct ssl_suite_ctx {
    ssl_suite_entry_t entries[SSL_SUITE_COUNT]; /* the caller's; the library never touches it */
    ssl_suite_entry_t* first;                   /* NULL if the list is empty */
    ssl_suite_entry_t** last;                   /* the forward link of the last entry, or &first */
    const char* default_string;                 /* what "default" stands for, or NULL */
    const char* common_criteria_string;         /* what "common_criteria" stands for, or NULL */
    const char* fips_string;                    /* what "fips" stands for, or NULL */
    const char* report; /* set and not "": unknown terms go to the callback */
    uint16_t terms;     /* set by the library alone: how many terms the token applied has */
    uint8_t flags;      /* SSL_SUITE_CTX_... */
} ssl_suite_ctx_t;

/* Clears `ctx` and fills its list with the whole catalogue in table order, nothing enabled.
 * The list points into `ctx`: a context that was copied or moved is to be filled, or linked, anew.
 */
static inline void ssl_suite_ctx_init(ssl_suite_ctx_t* ctx) {
    static const ssl_suite_ctx_t cleared = {{{0, 0, 0, 0, 0}}, 0, 0, 0, 0, 0, 0, 0, 0};
    unsigned i;
    *ctx = cleared;
    ctx->last = &ctx->first;
    for (i = 0; i < SSL_SUITE_COUNT; ++i) {
        ssl_suite_entry_t* entry = &ctx->entries[i];
        entry->suite = (uint16_t)i;
        entry->prev = ctx->last;
        *ctx->last = entry;
        ctx->last = &entry->next;
    }
}

/* Receives an unknown term, lower-cased and without its operator. `term` lives until the callback
 * returns. What the callback returns is ignored; it must not change the list. */
typedef int (*ssl_suite_report_fn)(void* arg, ssl_suite_ctx_t* ctx, const char* term);

/* Applies a cipher string such as "default:!rc4:@strength" to the list of `ctx`.
 *
 * `text` is `length` bytes, of which at most the first 1023 count; it need not be terminated, and
 * may be NULL if `length` is 0. Tokens are separated by exactly one space, comma, colon or
 * semicolon (or zero byte); one separator may end the text. In any letter case (by the process's
 * LC_CTYPE), a token is a keyword or suite name, or several joined by "+" that a suite must match
 * all together, behind an optional operator:
 *
 *     aes     enables the suites selected and moves those it enabled to the end of the list
 *     +aes    moves the enabled ones to the end
 *     -aes    disables them and moves them to the end
 *     !aes    takes them out of the list: no later token brings them back. Their entries keep
 *             their flags and their links become NULL
 *
 * Keywords:
 *     all native none
 *     adh dh dhe dhe_dss ecdh_ecdsa ecdh_rsa ecdhe ecdhe_ecdsa edh rsa sm2     key exchange
 *     3des aes aes-gcm camellia chacha20-poly1305 des null rc4 sm4             cipher
 *     md5 sha sha1 sha256 sha384 sha512 sm3                                    MAC
 *     exp export export40 export56 low medium high                             strength
 *     sslv3 tlsv1 tlsv1_1 tlsv1_2 tlsv1_3 dtlsv1 gmsslv1_1                     protocol
 *     @speed @strength @fips            sort the list, as the functions below
 *     rfcdtls draftdtls                 clear and set SSL_SUITE_ENTRY_DRAFT_DTLS everywhere
 *
 * Of the keywords, only "null" selects suites of the NULL cipher; their names, like "null-md5", do
 * as well. "none" selects nothing. "all" and "native" select everything else. "dhe" is "edh", "sha"
 * is "sha1", "ecdhe" is ECDHE_RSA alone. "des" leaves out triple DES, "aes" leaves out AES-GCM.
 * "low" is 64 bits, "medium" 128 and 168, "high" 256. Keywords that are not GMSSL's own, like "all"
 * and "medium", reach the GMSSL suite in any context. Those that sort or mark drafts act at once,
 * whatever their operator, and an intersection with one selects nothing. The guide to cipher
 * strings tells what each keyword selects.
 *
 * With `expand` not 0, "default", "common_criteria" and "fips" apply the context's string of that
 * name, cut at 1023 bytes too, and nothing more: their own operator has no effect, and terms joined
 * to them select nothing. Where the string is NULL or `expand` 0, they are unknown terms.
 *
 * With `expand` not 0, "all" and "native", alone and without operator, then disable the export
 * suites and move them to the end, those that earlier tokens enabled too; and likewise the SSL 3
 * suites, unless "sslv3" came earlier in `text`: with any operator or in an intersection, but not
 * in an applied string. In the applied strings nothing expands further.
 *
 * Returns 1, or 0 at the first unknown term, in `text` or in an applied string; an empty token
 * counts as one. What stands in front of it has then acted on the list: whole tokens, and of its
 * own token the terms that sort, mark drafts or apply a string. So apply a foreign text to a
 * scratch context first. The term goes to `callback`, once, unless that is NULL or `ctx->report` is
 * NULL or "". A text whose first byte is zero counts as empty, whatever follows: an empty text
 * changes nothing and returns 1. */
TARNUTIL_API int ssl_suite_cmd(ssl_suite_ctx_t* ctx, const char* text, unsigned length,
                               unsigned char expand, ssl_suite_report_fn callback,
                               void* callback_arg);

/* Sorts the whole list, disabled entries too, into the order of the catalogue. */
TARNUTIL_API void ssl_suite_cmd_speed(ssl_suite_ctx_t* ctx);

/* Sorts the whole list, disabled entries too, by strength, the strongest first. Entries of equal
 * strength keep their order. */
TARNUTIL_API void ssl_suite_cmd_strength(ssl_suite_ctx_t* ctx);

/* Sorts the whole list, disabled entries too, into three groups: SSL_FIPS_STRONG suites whose key
 * exchange `ctx->flags` admits, then the other SSL_FIPS_STRONG and the SSL_FIPS_WEAK suites, then
 * the rest. Entries of one group keep their order. Returns 1 if the list holds an SSL_FIPS_STRONG
 * or SSL_FIPS_WEAK suite, else 0. */
TARNUTIL_API int ssl_suite_cmd_fips(ssl_suite_ctx_t* ctx);

#ifdef __cplusplus
}
#endif

#endif /* TARNUTIL_SSL_SUITE_H */
