// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/ssl_suite.h>

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace {

constexpr std::size_t kLongestText = 1023;
constexpr char kNoOperator = '\0';

// ---- Keywords ----

// Matches whatever a suite has.
constexpr int any = -1;

// A row adds its vote to every suite that passes all of its tests.
//
// Quirk: a row that does not test the cipher leaves the suites of the NULL cipher alone, so that
// none of them is offered by accident. Pinned by SslSuiteKeywordTest.SelectsItsSuitesAlone.
struct Keyword {
    const char* keyword;
    int keyxchg;
    int cipher;
    int mac;
    int strength;
    int protocol;
    int is_export;
    int vote;
};

// The rows of one keyword all vote.
// clang-format off
constexpr Keyword kKeywords[] = {
    // keyword             key exchange             cipher                        MAC             bits protocol               export vote
    {"all",                any,                     any,                          any,            any, any,                   any,   +1},
    {"all",                any,                     SSL_CIPHER_NULL,              any,            any, any,                   any,   -1},
    {"native",             any,                     any,                          any,            any, any,                   any,   +1},
    {"native",             any,                     SSL_CIPHER_NULL,              any,            any, any,                   any,   -1},
    {"none",               any,                     any,                          any,            any, any,                   any,   -1},
    {"adh",                SSL_KEYXCHG_ADH,         any,                          any,            any, any,                   any,   +1},
    {"dh",                 SSL_KEYXCHG_DH_RSA,      any,                          any,            any, any,                   any,   +1},
    {"dhe",                SSL_KEYXCHG_EDH_RSA,     any,                          any,            any, any,                   any,   +1},
    {"dhe_dss",            SSL_KEYXCHG_DHE_DSS,     any,                          any,            any, any,                   any,   +1},
    {"ecdh_ecdsa",         SSL_KEYXCHG_ECDH_ECDSA,  any,                          any,            any, any,                   any,   +1},
    {"ecdh_rsa",           SSL_KEYXCHG_ECDH_RSA,    any,                          any,            any, any,                   any,   +1},
    {"ecdhe",              SSL_KEYXCHG_ECDHE_RSA,   any,                          any,            any, any,                   any,   +1},
    {"ecdhe_ecdsa",        SSL_KEYXCHG_ECDHE_ECDSA, any,                          any,            any, any,                   any,   +1},
    {"edh",                SSL_KEYXCHG_EDH_RSA,     any,                          any,            any, any,                   any,   +1},
    {"rsa",                SSL_KEYXCHG_RSA,         any,                          any,            any, any,                   any,   +1},
    {"sm2",                SSL_KEYXCHG_SM2,         any,                          any,            any, any,                   any,   +1},
    {"3des",               any,                     SSL_CIPHER_DES,               any,            168, any,                   any,   +1},
    {"des",                any,                     SSL_CIPHER_DES,               any,            any, any,                   any,   +1},
    {"des",                any,                     SSL_CIPHER_DES,               any,            168, any,                   any,   -1},
    {"null",               any,                     SSL_CIPHER_NULL,              any,            any, any,                   any,   +1},
    {"aes",                any,                     SSL_CIPHER_AES,               any,            any, any,                   any,   +1},
    {"aes-gcm",            any,                     SSL_CIPHER_AES_GCM,           any,            any, any,                   any,   +1},
    {"chacha20-poly1305",  any,                     SSL_CIPHER_CHACHA20_POLY1305, any,            any, any,                   any,   +1},
    {"rc4",                any,                     SSL_CIPHER_RC4,               any,            any, any,                   any,   +1},
    {"camellia",           any,                     SSL_CIPHER_CAMELLIA,          any,            any, any,                   any,   +1},
    {"sm4",                any,                     SSL_CIPHER_SM4,               any,            any, any,                   any,   +1},
    {"md5",                any,                     any,                          SSL_MAC_MD5,    any, any,                   any,   +1},
    {"sha",                any,                     any,                          SSL_MAC_SHA,    any, any,                   any,   +1},
    {"sha1",               any,                     any,                          SSL_MAC_SHA,    any, any,                   any,   +1},
    {"sha256",             any,                     any,                          SSL_MAC_SHA256, any, any,                   any,   +1},
    {"sha384",             any,                     any,                          SSL_MAC_SHA384, any, any,                   any,   +1},
    {"sha512",             any,                     any,                          SSL_MAC_SHA512, any, any,                   any,   +1},
    {"sm3",                any,                     any,                          SSL_MAC_SM3,    any, any,                   any,   +1},
    {"exp",                any,                     any,                          any,            any, any,                   1,     +1},
    {"export",             any,                     any,                          any,            any, any,                   1,     +1},
    {"export40",           any,                     any,                          any,            40,  any,                   1,     +1},
    {"export56",           any,                     any,                          any,            56,  any,                   1,     +1},
    {"low",                any,                     any,                          any,            64,  any,                   any,   +1},
    {"medium",             any,                     any,                          any,            128, any,                   any,   +1},
    {"medium",             any,                     any,                          any,            168, any,                   any,   +1},
    {"high",               any,                     any,                          any,            256, any,                   any,   +1},
    {"sslv3",              any,                     any,                          any,            any, SSL_PROTOCOL_SSL3,     any,   +1},
    {"tlsv1",              any,                     any,                          any,            any, SSL_PROTOCOL_TLS1,     any,   +1},
    {"tlsv1_1",            any,                     any,                          any,            any, SSL_PROTOCOL_TLS1_1,   any,   +1},
    {"tlsv1_2",            any,                     any,                          any,            any, SSL_PROTOCOL_TLS1_2,   any,   +1},
    {"tlsv1_3",            any,                     any,                          any,            any, SSL_PROTOCOL_TLS1_3,   any,   +1},
    {"dtlsv1",             any,                     any,                          any,            any, SSL_PROTOCOL_DTLS1,    any,   +1},
    {"gmsslv1_1",          any,                     any,                          any,            any, SSL_PROTOCOL_GMSSL1_1, any,   +1},
};
// clang-format on

bool equal(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

constexpr bool passes(int wanted, int found) { return wanted == any || wanted == found; }

bool selects(const Keyword& row, const ssl_suite_t& suite) {
    if (suite.cipher == SSL_CIPHER_NULL && row.cipher == any) return false;
    return passes(row.keyxchg, suite.keyxchg) && passes(row.cipher, suite.cipher) &&
           passes(row.mac, suite.mac) && passes(row.strength, suite.strength) &&
           passes(row.protocol, suite.protocol) && passes(row.is_export, suite.is_export);
}

// What a context does not know of unless it admits GMSSL.
constexpr bool is_gmssl(const Keyword& row) {
    return row.keyxchg == SSL_KEYXCHG_SM2 || row.cipher == SSL_CIPHER_SM4 ||
           row.mac == SSL_MAC_SM3 || row.protocol == SSL_PROTOCOL_GMSSL1_1;
}

bool admits_gmssl(const ssl_suite_ctx_t& ctx) {
    return (ctx.flags & (SSL_SUITE_CTX_GMSSL | SSL_SUITE_CTX_GMSSL_ALT)) != 0;
}

// ---- The list ----

const ssl_suite_t& suite_of(const ssl_suite_entry_t& entry) { return ssl_suite[entry.suite]; }

template <typename Visit>
void for_each(const ssl_suite_ctx_t& ctx, Visit visit) {
    for (ssl_suite_entry_t* entry = ctx.first; entry != nullptr; entry = entry->next) visit(*entry);
}

// Entries on their way to another place in the list. Back links are made when the list is.
struct Chain {
    ssl_suite_entry_t* first;
    ssl_suite_entry_t* last;

    void push(ssl_suite_entry_t& entry) {
        (first == nullptr ? first : last->next) = &entry;
        last = &entry;
    }
};

// Makes the list of the entries of one chain after the other.
template <std::size_t Count>
void relink(ssl_suite_ctx_t& ctx, const Chain (&chains)[Count]) {
    ssl_suite_entry_t** link = &ctx.first;
    for (const Chain& chain : chains) {
        if (chain.first == nullptr) continue;
        *link = chain.first;
        link = &chain.last->next;
    }
    *link = nullptr;
    ctx.last = &ctx.first;
    for_each(ctx, [&](ssl_suite_entry_t& entry) {
        entry.prev = ctx.last;
        ctx.last = &entry.next;
    });
}

// Reorders the list by `place`, which puts each entry behind those of lower places. Entries of one
// place keep their order. Linear in the list.
template <std::size_t Places, typename Place>
void distribute(ssl_suite_ctx_t& ctx, Place place) {
    Chain chains[Places] = {};
    for_each(ctx, [&](ssl_suite_entry_t& entry) { chains[place(entry)].push(entry); });
    relink(ctx, chains);
}

// ---- Operators: what each does with the entries that every term selected ----

enum Place { kStays, kMoves };

Place enable(ssl_suite_entry_t& entry) {
    if ((entry.flags & SSL_SUITE_ENTRY_ENABLED) != 0) return kStays;
    entry.flags |= SSL_SUITE_ENTRY_ENABLED;
    return kMoves;
}

Place postpone(ssl_suite_entry_t& entry) {
    return (entry.flags & SSL_SUITE_ENTRY_ENABLED) != 0 ? kMoves : kStays;
}

Place disable(ssl_suite_entry_t& entry) {
    entry.flags &= static_cast<std::uint8_t>(~SSL_SUITE_ENTRY_ENABLED);
    return kMoves;
}

void unlink(ssl_suite_ctx_t& ctx, ssl_suite_entry_t& entry) {
    *entry.prev = entry.next;
    (entry.next == nullptr ? ctx.last : entry.next->prev) = entry.prev;
    entry.next = nullptr;
    entry.prev = nullptr;
}

bool is_selected(const ssl_suite_ctx_t& ctx, const ssl_suite_entry_t& entry) {
    return entry.matches == ctx.terms;
}

void place_selected(ssl_suite_ctx_t& ctx, Place (*place)(ssl_suite_entry_t&)) {
    distribute<2>(ctx, [&](ssl_suite_entry_t& entry) {
        return is_selected(ctx, entry) ? place(entry) : kStays;
    });
}

void remove_selected(ssl_suite_ctx_t& ctx) {
    for (ssl_suite_entry_t *entry = ctx.first, *next; entry != nullptr; entry = next) {
        next = entry->next;
        if (is_selected(ctx, *entry)) unlink(ctx, *entry);
    }
}

void act_on_selected(ssl_suite_ctx_t& ctx, char operation) {
    switch (operation) {
        case '!':
            return remove_selected(ctx);
        case '-':
            return place_selected(ctx, disable);
        case '+':
            return place_selected(ctx, postpone);
        default:
            return place_selected(ctx, enable);
    }
}

// ---- Terms ----

void clear_matches(ssl_suite_ctx_t& ctx) {
    for_each(ctx, [](ssl_suite_entry_t& entry) { entry.matches = 0; });
}

template <typename Selected>
void vote(ssl_suite_ctx_t& ctx, int votes, Selected selected) {
    for_each(ctx, [&](ssl_suite_entry_t& entry) {
        if (!selected(suite_of(entry))) return;
        entry.matches = static_cast<std::uint16_t>(entry.matches + votes);
    });
}

// False if `term` is no keyword.
bool vote_by_keyword(ssl_suite_ctx_t& ctx, const char* term) {
    bool known = false;
    for (const Keyword& row : kKeywords) {
        if (!equal(row.keyword, term) || (is_gmssl(row) && !admits_gmssl(ctx))) continue;
        known = true;
        vote(ctx, row.vote, [&](const ssl_suite_t& suite) { return selects(row, suite); });
    }
    return known;
}

// False if `term` names no suite. Suites of one name are those of one id.
bool vote_by_name(ssl_suite_ctx_t& ctx, const char* term) {
    const ssl_suite_t* named =
        std::find_if(std::begin(ssl_suite), std::end(ssl_suite),
                     [&](const ssl_suite_t& suite) { return strcasecmp(suite.name, term) == 0; });
    if (named == std::end(ssl_suite)) return false;
    if (named->protocol == SSL_PROTOCOL_GMSSL1_1 && !admits_gmssl(ctx)) return false;
    vote(ctx, +1, [&](const ssl_suite_t& suite) { return suite.id == named->id; });
    return true;
}

struct Sort {
    const char* term;
    void (*sort)(ssl_suite_ctx_t* ctx);
};

constexpr Sort kSorts[] = {
    {"@speed", ssl_suite_cmd_speed},
    {"@strength", ssl_suite_cmd_strength},
    {"@fips", [](ssl_suite_ctx_t* ctx) { (void)ssl_suite_cmd_fips(ctx); }},
};

// Sorts the list if `term` names a sort. False if it names none.
bool sort_by_term(ssl_suite_ctx_t& ctx, const char* term) {
    if (term[0] != '@') return false;  // tells most terms at once
    for (const Sort& known : kSorts) {
        if (!equal(known.term, term)) continue;
        known.sort(&ctx);
        return true;
    }
    return false;
}

// Marks the entries, or clears their marks, if `term` says so. False if it does not.
bool mark_drafts(ssl_suite_ctx_t& ctx, const char* term) {
    const bool drafts = equal(term, "draftdtls");
    if (!drafts && !equal(term, "rfcdtls")) return false;
    for_each(ctx, [&](ssl_suite_entry_t& entry) {
        constexpr std::uint8_t kDraft = SSL_SUITE_ENTRY_DRAFT_DTLS;
        entry.flags = static_cast<std::uint8_t>((entry.flags & ~kDraft) | (drafts ? kDraft : 0));
    });
    return true;
}

// ---- Texts ----

// One application of a text to a context.
struct Command {
    ssl_suite_ctx_t& ctx;
    const bool expand;
    const ssl_suite_report_fn callback;
    void* const callback_arg;
    bool ssl3_asked_for = false;

    bool apply(const char* text, std::size_t length);
    bool apply_token(char* token);
    bool apply_terms(char* term, bool bare);
    bool apply_term(const char* term, bool bare);
    const char* expansion_of(const char* term, bool bare) const;
    bool apply_expansion(const char* text);
    void report(const char* term) const;
};

char separated_and_lowered(char c) {
    if (c == ' ' || c == ',' || c == ':' || c == ';') return '\0';
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

bool Command::apply(const char* text, std::size_t length) {
    char copy[kLongestText + 1];
    char* const end = copy + std::min(length, kLongestText);
    std::copy(text, text + (end - copy), copy);
    *end = '\0';
    if (copy[0] == '\0') return true;
    std::transform(copy, end, copy, separated_and_lowered);
    for (char* token = copy; token < end;) {
        char* const next = token + std::strlen(token) + 1;
        if (!apply_token(token)) return false;
        token = next;
    }
    return true;
}

char operator_of(const char* token) {
    return *token == '!' || *token == '-' || *token == '+' ? *token : kNoOperator;
}

bool Command::apply_token(char* token) {
    const char operation = operator_of(token);
    char* const keyword = operation == kNoOperator ? token : token + 1;
    const auto joints = std::count(keyword, keyword + std::strlen(keyword), '+');
    const auto terms = static_cast<std::uint16_t>(joints + 1);
    clear_matches(ctx);
    ctx.terms = terms;
    if (!apply_terms(keyword, /*bare=*/operation == kNoOperator && terms == 1)) return false;
    ctx.terms = terms;  // an expansion has counted its own
    act_on_selected(ctx, operation);
    return true;
}

bool Command::apply_terms(char* term, bool bare) {
    while (char* const joint = std::strchr(term, '+')) {
        *joint = '\0';
        if (!apply_term(term, bare)) return false;
        term = joint + 1;
    }
    return apply_term(term, bare);
}

bool Command::apply_term(const char* term, bool bare) {
    if (expand) {
        if (equal(term, "sslv3")) ssl3_asked_for = true;
        if (const char* text = expansion_of(term, bare)) return apply_expansion(text);
    }
    if (sort_by_term(ctx, term) || mark_drafts(ctx, term)) return true;
    if (vote_by_keyword(ctx, term) || vote_by_name(ctx, term)) return true;
    report(term);
    return false;
}

// The text that `term` stands for; null if it does not expand. `bare`: the term is a token of its
// own, without an operator.
const char* Command::expansion_of(const char* term, bool bare) const {
    if (equal(term, "default")) return ctx.default_string;
    if (equal(term, "common_criteria")) return ctx.common_criteria_string;
    if (equal(term, "fips")) return ctx.fips_string;
    if (!bare) return nullptr;
    if (equal(term, "all")) return ssl3_asked_for ? "all:-export" : "all:-export:-sslv3";
    if (equal(term, "native")) return ssl3_asked_for ? "native:-export" : "native:-export:-sslv3";
    return nullptr;
}

// The expansion has done the token's work: none of its votes is left to the token's operator.
bool Command::apply_expansion(const char* text) {
    Command inner{ctx, /*expand=*/false, callback, callback_arg};
    if (!inner.apply(text, std::strlen(text))) return false;
    clear_matches(ctx);
    return true;
}

void Command::report(const char* term) const {
    if (callback == nullptr || ctx.report == nullptr || *ctx.report == '\0') return;
    (void)callback(callback_arg, &ctx, term);
}

// ---- Sorts ----

bool counts_as_fips(const ssl_suite_t& suite, unsigned flags) {
    switch (suite.keyxchg) {
        case SSL_KEYXCHG_DH_RSA:
        case SSL_KEYXCHG_EDH_RSA:
        case SSL_KEYXCHG_RSA:
        case SSL_KEYXCHG_ECDH_RSA:
        case SSL_KEYXCHG_ECDHE_RSA:
            return (flags & SSL_SUITE_CTX_FIPS_RSA) != 0;
        case SSL_KEYXCHG_ECDH_ECDSA:
        case SSL_KEYXCHG_ECDHE_ECDSA:
            return (flags & SSL_SUITE_CTX_FIPS_ECDSA) != 0;
        default:
            return false;
    }
}

std::size_t fips_place(const ssl_suite_t& suite, unsigned flags) {
    if (suite.fips == SSL_FIPS_NONE) return 2;
    return suite.fips == SSL_FIPS_STRONG && counts_as_fips(suite, flags) ? 0 : 1;
}

}  // namespace

int ssl_suite_cmd(ssl_suite_ctx_t* ctx, const char* text, unsigned length, unsigned char expand,
                  ssl_suite_report_fn callback, void* callback_arg) {
    Command command{*ctx, expand != 0, callback, callback_arg};
    return command.apply(text, length) ? 1 : 0;
}

void ssl_suite_cmd_speed(ssl_suite_ctx_t* ctx) {
    distribute<SSL_SUITE_COUNT>(*ctx, [](const ssl_suite_entry_t& entry) { return entry.suite; });
}

// By the lower digit of the strength, then stably by the upper: 11 bits in all.
void ssl_suite_cmd_strength(ssl_suite_ctx_t* ctx) {
    distribute<64>(
        *ctx, [](const ssl_suite_entry_t& entry) { return 63U - suite_of(entry).strength % 64U; });
    distribute<32>(
        *ctx, [](const ssl_suite_entry_t& entry) { return 31U - suite_of(entry).strength / 64U; });
}

int ssl_suite_cmd_fips(ssl_suite_ctx_t* ctx) {
    int met = 0;
    distribute<3>(*ctx, [&](const ssl_suite_entry_t& entry) {
        if (suite_of(entry).fips != SSL_FIPS_NONE) met = 1;
        return fips_place(suite_of(entry), ctx->flags);
    });
    return met;
}
