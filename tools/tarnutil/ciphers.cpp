// SPDX-License-Identifier: Apache-2.0
// tarnutil ciphers: what a cipher string offers, and why.
#include <tarnutil/ssl_suite.h>

#include <algorithm>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cipher_names.h"
#include "cipher_selection.h"
#include "cipher_words.h"
#include "commands.h"
#include "output.h"

namespace tarnutil_command {
namespace {

using nlohmann::ordered_json;

constexpr const char* kExample = R"(Example:
  $ tarnutil ciphers 'ecdhe+aes-gcm:!rc4:@strength'
  $ tarnutil ciphers --default 'all:!adh:!null' --explain 'default:-des:+sha'
  $ tarnutil ciphers --cross-reference | grep CHACHA20
The language is told in tarnutil-cipher-strings(7).
)";

struct Options {
    std::string text = "all";
    CipherSettings settings;
    bool json = false, explain = false, crossReference = false, words = false;
};

// ---- Warnings ----

struct Danger {
    const char* kind;
    const char* why;
    bool (*is)(const ssl_suite_t& suite);
};

// What no server should offer without knowing.
const Danger kDangers[] = {
    // clang-format off
    {"NULL",      "does not encrypt",             [](const ssl_suite_t& s) { return s.cipher == SSL_CIPHER_NULL; }},
    {"EXPORT",    "was made weak to be exported", [](const ssl_suite_t& s) { return s.is_export != 0; }},
    {"RC4",       "leaks what it encrypts",       [](const ssl_suite_t& s) { return s.cipher == SSL_CIPHER_RC4; }},
    {"DES",       "has blocks or keys too short", [](const ssl_suite_t& s) { return s.cipher == SSL_CIPHER_DES; }},
    {"SSL 3",     "is a broken protocol",         [](const ssl_suite_t& s) { return s.protocol == SSL_PROTOCOL_SSL3; }},
    {"anonymous", "does not tell who answers",    [](const ssl_suite_t& s) { return s.keyxchg == SSL_KEYXCHG_ADH; }},
    // clang-format on
};

struct Warning {
    const Danger* danger;
    Suites suites;
};

std::vector<Warning> warningsOf(const Suites& offer) {
    std::vector<Warning> warnings;
    for (const Danger& danger : kDangers) {
        Warning warning{&danger, {}};
        for (unsigned suite : offer) {
            if (danger.is(ssl_suite[suite])) warning.suites.push_back(suite);
        }
        if (!warning.suites.empty()) warnings.push_back(std::move(warning));
    }
    return warnings;
}

// What is to be said of the whole of an offer, made from a string of `length` bytes.
std::vector<std::string> remarksOn(const Suites& offer, std::size_t length) {
    std::vector<std::string> remarks;
    if (length > kLongestCipherString) {
        remarks.push_back("only the first " + std::to_string(kLongestCipherString) + " of " +
                          std::to_string(length) + " bytes of the string count");
    }
    if (offer.empty()) remarks.emplace_back("no suite is offered");
    return remarks;
}

// ---- Effects ----

// What a token may do to suites.
struct Effect {
    const char* verb;
    Suites TokenEffect::*suites;
};
constexpr Effect kEffects[] = {
    // clang-format off
    {"enabled",  &TokenEffect::enabled},
    {"moved",    &TokenEffect::moved},
    {"disabled", &TokenEffect::disabled},
    {"removed",  &TokenEffect::removed},
    // clang-format on
};

// ---- Text ----

// The suites, those of one name that follow each other as one, with their protocols.
std::string named(const Suites& suites) {
    std::string text;
    const ssl_suite_t* last = nullptr;
    for (unsigned index : suites) {
        const ssl_suite_t& suite = ssl_suite[index];
        if (last != nullptr && last->id == suite.id) {
            text.insert(text.size() - 1, std::string(" ") + ssl_protocol_name(suite.protocol));
        } else {
            text += std::string(text.empty() ? "" : ", ") + suite.name + " (" +
                    ssl_protocol_name(suite.protocol) + ")";
        }
        last = &suite;
    }
    return text;
}

void printOffer(const Suites& offer) {
    for (unsigned suite : offer) {
        char row[SSL_SUITE_ROW_SIZE];
        std::cout << ssl_cipher_suite(row, sizeof row, &ssl_suite[suite]) << '\n';
    }
}

void printEffect(const TokenEffect& token) {
    std::cout << token.token;
    if (!token.expansion.empty()) std::cout << "  =  " << token.expansion;
    std::cout << '\n';
    bool changed = false;
    for (const Effect& effect : kEffects) {
        const Suites& suites = token.*effect.suites;
        if (suites.empty()) continue;
        std::cout << "    " << std::left << std::setw(10) << effect.verb << named(suites) << '\n';
        changed = true;
    }
    if (!changed) std::cout << "    changed nothing\n";
}

void printEffects(const std::vector<TokenEffect>& tokens) {
    for (const TokenEffect& token : tokens) printEffect(token);
    if (!tokens.empty()) std::cout << '\n';
}

void printWarnings(const Suites& offer, std::size_t length) {
    for (const std::string& remark : remarksOn(offer, length)) {
        std::cerr << "warning: " << remark << '\n';
    }
    for (const Warning& warning : warningsOf(offer)) {
        std::cerr << "warning: " << warning.danger->kind << ' ' << warning.danger->why << ": "
                  << counted(warning.suites.size(), "suite") << ", first "
                  << ssl_suite[warning.suites[0]].name << '\n';
    }
}

// ---- JSON ----

ordered_json asJson(unsigned index) {
    const ssl_suite_t& suite = ssl_suite[index];
    return {{"id", suite.id},
            {"name", suite.name},
            {"bits", suite.strength},
            {"protocol", ssl_protocol_name(suite.protocol)},
            {"cipher", ssl_cipher_name(suite.cipher)},
            {"mac", ssl_mac_name(suite.mac)},
            {"key_exchange", ssl_keyxchg_name(suite.keyxchg)}};
}

ordered_json asJson(const Suites& suites) {
    ordered_json array = ordered_json::array();
    for (unsigned suite : suites) array.push_back(asJson(suite));
    return array;
}

ordered_json asJson(const TokenEffect& token) {
    ordered_json object = {{"token", token.token}};
    if (!token.expansion.empty()) object["expansion"] = token.expansion;
    for (const Effect& effect : kEffects) object[effect.verb] = asJson(token.*effect.suites);
    return object;
}

ordered_json asJson(const Warning& warning) {
    return {{"kind", warning.danger->kind},
            {"why", warning.danger->why},
            {"suites", asJson(warning.suites)}};
}

ordered_json asJson(const SuiteNames& names) {
    return {
        {"id", names.id}, {"name", names.own}, {"iana", names.iana}, {"openssl", names.openssl}};
}

template <typename Items>
ordered_json eachAsJson(const Items& items) {
    ordered_json array = ordered_json::array();
    for (const auto& item : items) array.push_back(asJson(item));
    return array;
}

// ---- Failures ----

// One character per byte, so that a caret below finds its column.
std::string inColumns(std::string text) {
    for (char& c : text) c = c < ' ' || c > '~' ? '?' : c;
    return text;
}

std::string hint(const UnknownTerm& unknown) {
    if (unknown.term.empty()) {
        return R"(separators and "+" stand alone: "aes,rc4", not "aes, rc4")";
    }
    const std::vector<std::string> near = nearestCipherWords(unknown.term);
    if (near.empty()) return "tarnutil ciphers --words lists every word";
    if (loweredTerm(near[0]) == loweredTerm(unknown.term)) {
        return "this word needs --gmssl, or a string of its own in an option";
    }
    std::string text = "did you mean ";
    for (std::size_t i = 0; i < near.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == near.size() ? " or " : ", ") + near[i];
    }
    return text + "?";
}

[[noreturn]] void refuse(const UnknownTerm& unknown) {
    const std::size_t width = std::max<std::size_t>(1, unknown.term.size());
    const std::string where =
        unknown.keyword.empty() ? "" : " in what \"" + unknown.keyword + "\" stands for";
    throw Refused((unknown.term.empty() ? "a word is missing"
                                        : "no word is \"" + inColumns(unknown.term) + "\"") +
                  where + "\n  " + inColumns(unknown.text) + "\n  " +
                  std::string(unknown.position, ' ') + "^" + std::string(width - 1, '~') + "\n  " +
                  hint(unknown));
}

// ---- The subcommand ----

void select(const Options& options) {
    const CipherSelection selection(options.settings);
    const auto offer = selection.offer(options.text);
    if (!offer) refuse(selection.unknownTerm(options.text));
    std::vector<TokenEffect> effects;
    if (options.explain) effects = selection.explain(options.text);
    if (options.json) {
        ordered_json json = {{"string", options.text}};
        if (options.explain) json["tokens"] = eachAsJson(effects);
        json["suites"] = asJson(*offer);
        json["warnings"] = eachAsJson(warningsOf(*offer));
        json["remarks"] = remarksOn(*offer, options.text.size());
        printJson(json);
        return;
    }
    printEffects(effects);
    printOffer(*offer);
    std::cout.flush();
    printWarnings(*offer, options.text.size());
}

std::string orDash(const std::string& name) { return name.empty() ? "-" : name; }

void printCrossReference() {
    for (const SuiteNames& names : crossReference()) {
        char columns[128];
        (void)std::snprintf(columns, sizeof columns, "0x%04X  %-36s  %-45s  ", names.id,
                            names.own.c_str(), orDash(names.iana).c_str());
        std::cout << columns << orDash(names.openssl) << '\n';
    }
}

void showCrossReference(bool json) {
    if (json) {
        printJson(eachAsJson(crossReference()));
    } else {
        printCrossReference();
    }
}

void printWords() {
    for (const std::string& word : cipherWords()) std::cout << word << '\n';
}

void run(const Options& options) {
    if (options.words) {
        printWords();
    } else if (options.crossReference) {
        showCrossReference(options.json);
    } else {
        select(options);
    }
}

}  // namespace

void addCiphersCommand(CLI::App& app) {
    CLI::App* const ciphers = app.add_subcommand(
        "ciphers", "Show the TLS suites that a cipher string offers, best first");
    const auto options = std::make_shared<Options>();
    CipherSettings& settings = options->settings;
    ciphers->add_option("STRING", options->text, "The cipher string")->capture_default_str();
    ciphers->add_option("--default", settings.defaultString, "What \"default\" stands for");
    ciphers->add_option("--common-criteria", settings.commonCriteriaString,
                        "What \"common_criteria\" stands for");
    ciphers->add_option("--fips", settings.fipsString, "What \"fips\" stands for");
    ciphers->add_flag("--gmssl", settings.gmssl, "Admit the GMSSL suite and its keywords");
    ciphers->add_flag("--fips-rsa", settings.fipsRsa, "Let RSA key exchange count for @fips");
    ciphers->add_flag("--fips-ecdsa", settings.fipsEcdsa, "Let ECDSA key exchange count for @fips");
    ciphers->add_flag("--explain", options->explain, "Say first what each token does");
    ciphers->add_flag("--json", options->json, "Print JSON");
    ciphers->add_flag("--cross-reference", options->crossReference,
                      "Print each suite's own, IANA and OpenSSL name instead");
    ciphers->add_flag("--words", options->words, "Print every keyword and name instead");
    ciphers->footer(kExample);
    ciphers->callback([options] { run(*options); });
}

}  // namespace tarnutil_command
