// SPDX-License-Identifier: Apache-2.0
// Cipher strings, sorts, lookup and rows, beside what else a server could use for them.
#include <tarnutil/ssl_suite.h>

#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>
#include <gnutls/gnutls.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "bench.h"

namespace {

// `piece` after piece, each behind a colon, as many as fit the 1023 bytes that a string may have.
std::string repeated(const std::string& piece) {
    std::string text = piece;
    while (text.size() + 1 + piece.size() <= 1023) text += ":" + piece;
    return text;
}

// The same offers in three languages.
struct Strings {
    const char* size;
    std::string ours, openssl, gnutls;
};

const Strings kStrings[] = {
    {"short", "high:!rc4", "HIGH:!RC4", "SECURE256:-ARCFOUR-128"},
    {"typical", "ecdhe+aes-gcm:ecdhe+aes:rsa+aes:!adh:!rc4:!3des:@strength",
     "ECDHE+AESGCM:ECDHE+AES:RSA+AES:!aNULL:!RC4:!3DES:@STRENGTH",
     "NORMAL:-KX-ALL:+ECDHE-RSA:+RSA:-CIPHER-ALL:+AES-256-GCM:+AES-128-GCM:+AES-256-CBC:"
     "+AES-128-CBC:-3DES-CBC:-ARCFOUR-128"},
    {"1kB", repeated("ecdhe+aes-gcm:-aes:+high:rsa+aes"),
     repeated("ECDHE+AESGCM:-AES:+HIGH:RSA+AES"),
     "NORMAL:" + repeated("-AES-128-GCM:+AES-128-GCM:-AES-256-CBC:+AES-256-CBC")},
};

// A string full of sorts, and the same string without them.
const std::string kSorts = repeated("aes:@strength:-rc4:@speed:+sha:@fips");
std::string withoutSorts() {
    std::string text = kSorts;
    for (const char* sort : {":@strength", ":@speed", ":@fips"}) {
        for (std::size_t at; (at = text.find(sort)) != std::string::npos;) {
            text.erase(at, std::strlen(sort));
        }
    }
    return text;
}

void applyFromTheStart(benchmark::State& state, const std::string& text) {
    const auto ctx = std::make_unique<ssl_suite_ctx_t>();
    for (auto _ : state) {
        ssl_suite_ctx_init(ctx.get());
        if (ssl_suite_cmd(ctx.get(), text.data(), static_cast<unsigned>(text.size()), 1, nullptr,
                          nullptr) != 1) {
            state.SkipWithError("the string failed");
        }
        benchmark::DoNotOptimize(ctx->first);
    }
}

void applyByOpenssl(benchmark::State& state, const std::string& text) {
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> ctx(SSL_CTX_new(SSLv23_server_method()),
                                                           SSL_CTX_free);
    for (auto _ : state) {
        if (SSL_CTX_set_cipher_list(ctx.get(), text.c_str()) != 1) {
            state.SkipWithError("the string failed");
        }
    }
}

void applyByGnutls(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        gnutls_priority_t priority = nullptr;
        if (gnutls_priority_init(&priority, text.c_str(), nullptr) != GNUTLS_E_SUCCESS) {
            state.SkipWithError("the string failed");
        }
        gnutls_priority_deinit(priority);
    }
}

std::vector<std::uint16_t> shuffledCatalogue() {
    std::vector<std::uint16_t> suites(SSL_SUITE_COUNT);
    std::iota(suites.begin(), suites.end(), std::uint16_t{0});
    std::shuffle(suites.begin(), suites.end(), std::mt19937(7));
    return suites;
}

// Every pass sorts the same shuffled list: the context is put back as it was, links and all.
template <typename Sort>
void sortShuffled(benchmark::State& state, Sort sort) {
    const auto ctx = std::make_unique<ssl_suite_ctx_t>();
    ssl_suite_ctx_init(ctx.get());
    ctx->flags = SSL_SUITE_CTX_FIPS_RSA;
    const std::vector<std::uint16_t> suites = shuffledCatalogue();
    for (std::size_t i = 0; i < suites.size(); ++i) ctx->entries[i].suite = suites[i];
    const auto shuffled = std::make_unique<ssl_suite_ctx_t>(*ctx);
    for (auto _ : state) {
        std::memcpy(ctx.get(), shuffled.get(), sizeof *ctx);
        sort(ctx.get());
        benchmark::DoNotOptimize(ctx->first);
    }
}

template <typename Before>
void sortVector(benchmark::State& state, Before before) {
    const std::vector<std::uint16_t> shuffled = shuffledCatalogue();
    std::vector<std::uint16_t> suites = shuffled;
    for (auto _ : state) {
        std::copy(shuffled.begin(), shuffled.end(), suites.begin());
        std::stable_sort(suites.begin(), suites.end(), before);
        benchmark::DoNotOptimize(suites.data());
    }
}

// Numbers in no order, three of four of them known.
std::vector<int> someIds() {
    std::vector<int> ids;
    for (std::uint16_t suite : shuffledCatalogue()) ids.push_back(ssl_suite[suite].id);
    for (int i = 0; i < 60; ++i) ids.push_back(0x5600 + i * 37);
    std::shuffle(ids.begin(), ids.end(), std::mt19937(8));
    return ids;
}

template <typename Find>
void lookUp(benchmark::State& state, Find find) {
    const std::vector<int> ids = someIds();
    for (auto _ : state) {
        for (int id : ids) benchmark::DoNotOptimize(find(id));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<long>(ids.size()));
}

void lookUpInTheCatalogue(benchmark::State& state) { lookUp(state, ssl_cipher_suite_from_id); }

void lookUpInAHashMap(benchmark::State& state) {
    absl::flat_hash_map<std::uint16_t, const ssl_suite_t*> map;
    for (const ssl_suite_t& suite : ssl_suite) map.emplace(suite.id, &suite);
    lookUp(state, [&](int id) {
        const auto found = map.find(static_cast<std::uint16_t>(id));
        return found == map.end() ? nullptr : found->second;
    });
}

void printRows(benchmark::State& state) {
    char row[SSL_SUITE_ROW_SIZE];
    for (auto _ : state) {
        for (const ssl_suite_t& suite : ssl_suite) {
            benchmark::DoNotOptimize(ssl_cipher_suite(row, sizeof row, &suite));
        }
    }
    state.SetItemsProcessed(state.iterations() * SSL_SUITE_COUNT);
}

void printRowsBare(benchmark::State& state) {
    struct Columns {
        unsigned id;
        int bits;
        const char *name, *protocol, *cipher, *mac, *keyxchg;
    };
    std::vector<Columns> rows;
    for (const ssl_suite_t& suite : ssl_suite) {
        rows.push_back({suite.id, suite.strength, suite.name, ssl_protocol_name(suite.protocol),
                        ssl_cipher_name(suite.cipher), ssl_mac_name(suite.mac),
                        ssl_keyxchg_name(suite.keyxchg)});
    }
    char row[SSL_SUITE_ROW_SIZE];
    for (auto _ : state) {
        for (const Columns& c : rows) {
            benchmark::DoNotOptimize(
                std::snprintf(row, sizeof row, "0x%05X  %-30s  %4d  %-6s  %-8s  %-6s  %-10s", c.id,
                              c.name, c.bits, c.protocol, c.cipher, c.mac, c.keyxchg));
        }
    }
    state.SetItemsProcessed(state.iterations() * SSL_SUITE_COUNT);
}

bool isBefore(std::uint16_t a, std::uint16_t b) { return a < b; }
bool isStronger(std::uint16_t a, std::uint16_t b) {
    return ssl_suite[a].strength > ssl_suite[b].strength;
}
bool hasMoreFips(std::uint16_t a, std::uint16_t b) { return ssl_suite[a].fips > ssl_suite[b].fips; }

void addAll() {
    const auto add = [](const std::string& name, auto run) {
        tarnutil_bench::add("ssl_suite/" + name, run);
    };
    for (const Strings& s : kStrings) {
        const std::string name = std::string("apply/") + s.size + "/";
        add(name + "tarnutil", [&s](benchmark::State& state) { applyFromTheStart(state, s.ours); });
        add(name + "SSL_CTX_set_cipher_list",
            [&s](benchmark::State& state) { applyByOpenssl(state, s.openssl); });
        add(name + "gnutls_priority_init",
            [&s](benchmark::State& state) { applyByGnutls(state, s.gnutls); });
    }
    add("apply/1kB_of_sorts/tarnutil",
        [](benchmark::State& state) { applyFromTheStart(state, kSorts); });
    add("apply/1kB_of_sorts/without_sorts",
        [](benchmark::State& state) { applyFromTheStart(state, withoutSorts()); });
    add("sort_speed/175/tarnutil",
        [](benchmark::State& state) { sortShuffled(state, ssl_suite_cmd_speed); });
    add("sort_speed/175/stable_sort", [](benchmark::State& state) { sortVector(state, isBefore); });
    add("sort_strength/175/tarnutil",
        [](benchmark::State& state) { sortShuffled(state, ssl_suite_cmd_strength); });
    add("sort_strength/175/stable_sort",
        [](benchmark::State& state) { sortVector(state, isStronger); });
    add("sort_fips/175/tarnutil",
        [](benchmark::State& state) { sortShuffled(state, ssl_suite_cmd_fips); });
    add("sort_fips/175/stable_sort",
        [](benchmark::State& state) { sortVector(state, hasMoreFips); });
    add("from_id/235/tarnutil", lookUpInTheCatalogue);
    add("from_id/235/flat_hash_map", lookUpInAHashMap);
    add("row/175/tarnutil", printRows);
    add("row/175/snprintf", printRowsBare);
}

const tarnutil_bench::Added added(addAll);

}  // namespace
