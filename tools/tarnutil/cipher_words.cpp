// SPDX-License-Identifier: Apache-2.0
#include "cipher_words.h"

#include <tarnutil/ssl_suite.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>

namespace tarnutil_command {
namespace {

constexpr const char* kKeywords[] = {
    // whole strings
    "all", "native", "none", "default", "common_criteria", "fips",
    // key exchange
    "adh", "dh", "dhe", "dhe_dss", "ecdh_ecdsa", "ecdh_rsa", "ecdhe", "ecdhe_ecdsa", "edh", "rsa",
    "sm2",
    // cipher
    "3des", "des", "null", "aes", "aes-gcm", "chacha20-poly1305", "rc4", "camellia", "sm4",
    // MAC
    "md5", "sha", "sha1", "sha256", "sha384", "sha512", "sm3",
    // strength
    "exp", "export", "export40", "export56", "low", "medium", "high",
    // protocol
    "sslv3", "tlsv1", "tlsv1_1", "tlsv1_2", "tlsv1_3", "dtlsv1", "gmsslv1_1",
    // sorts and drafts
    "@speed", "@strength", "@fips", "rfcdtls", "draftdtls"};

// How many letters must be put in, left out, changed or swapped with their neighbour to make `b` of
// `a`.
std::size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> before;
    std::vector<std::size_t> last(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before = last;
        last = row;
    }
    return last[b.size()];
}

// Beyond this distance a word is another word.
std::size_t reach(const std::string& term) { return std::max<std::size_t>(1, term.size() / 3); }

bool beginsWith(const std::string& word, const std::string& term) {
    return term.size() >= 3 && word.compare(0, term.size(), term) == 0;
}

std::vector<std::string> allWords() {
    std::vector<std::string> words(std::begin(kKeywords), std::end(kKeywords));
    for (const ssl_suite_t& suite : ssl_suite) {
        if (words.back() != suite.name) words.emplace_back(suite.name);
    }
    return words;
}

}  // namespace

std::string loweredTerm(std::string term) {
    std::transform(term.begin(), term.end(), term.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return term;
}

const std::vector<std::string>& cipherWords() {
    static const std::vector<std::string> words = allWords();
    return words;
}

std::vector<std::string> nearestCipherWords(const std::string& term) {
    const std::string wanted = loweredTerm(term);
    std::vector<std::pair<std::size_t, std::string>> near;
    for (const std::string& word : cipherWords()) {
        const std::string candidate = loweredTerm(word);
        const std::size_t away = distance(wanted, candidate);
        if (away <= reach(wanted)) {
            near.emplace_back(away, word);
        } else if (beginsWith(candidate, wanted)) {
            near.emplace_back(reach(wanted), word);  // after the likely typing errors
        }
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> words;
    for (std::size_t i = 0; i < near.size() && i < 3; ++i) words.push_back(near[i].second);
    return words;
}

}  // namespace tarnutil_command
