// SPDX-License-Identifier: Apache-2.0
#include "ssl_suite_model.h"

#include <tarnutil/ssl_suite.h>

#include <algorithm>
#include <functional>
#include <map>
#include <unordered_map>

#include "ssl_suite_listing.h"

namespace tarnutil_test {
namespace {

using Test = std::function<bool(const ListedSuite&)>;

Test keyExchange(const char* name) {
    return [=](const ListedSuite& suite) { return suite.keyxchg == name; };
}
Test cipher(const char* name) {
    return [=](const ListedSuite& suite) { return suite.cipher == name; };
}
Test mac(const char* name) {
    return [=](const ListedSuite& suite) { return suite.mac == name; };
}
Test protocol(const char* name) {
    return [=](const ListedSuite& suite) { return suite.protocol == name; };
}
Test bits(unsigned bits) {
    return [=](const ListedSuite& suite) { return suite.bits == bits; };
}
Test exported() {
    return [](const ListedSuite& suite) { return suite.isExport(); };
}
Test both(const Test& a, const Test& b) {
    return [=](const ListedSuite& suite) { return a(suite) && b(suite); };
}
Test either(const Test& a, const Test& b) {
    return [=](const ListedSuite& suite) { return a(suite) || b(suite); };
}
Test except(const Test& a, const Test& b) {
    return [=](const ListedSuite& suite) { return a(suite) && !b(suite); };
}

// What each keyword selects; suites of the NULL cipher are left to `vote`.
const std::map<std::string, Test>& keywordTests() {
    static const std::map<std::string, Test> tests = {
        {"adh", keyExchange("ADH")},
        {"dh", keyExchange("DH/RSA")},
        {"dhe", keyExchange("EDH/RSA")},
        {"edh", keyExchange("EDH/RSA")},
        {"dhe_dss", keyExchange("DHE/DSS")},
        {"ecdh_ecdsa", keyExchange("ECDH_ECDSA")},
        {"ecdh_rsa", keyExchange("ECDH_RSA")},
        {"ecdhe", keyExchange("ECDHE_RSA")},
        {"ecdhe_ecdsa", keyExchange("ECDHE_ECDSA")},
        {"rsa", keyExchange("RSA")},
        {"sm2", keyExchange("SM2")},
        {"3des", both(cipher("DES"), bits(168))},
        {"des", except(cipher("DES"), bits(168))},
        {"aes", cipher("AES")},
        {"aes-gcm", cipher("AES-GCM")},
        {"chacha20-poly1305", cipher("CHACHA20-POLY1305")},
        {"rc4", cipher("RC4")},
        {"camellia", cipher("CAMELLIA")},
        {"sm4", cipher("SM4")},
        {"md5", mac("MD5")},
        {"sha", mac("SHA")},
        {"sha1", mac("SHA")},
        {"sha256", mac("SHA256")},
        {"sha384", mac("SHA384")},
        {"sha512", mac("SHA512")},
        {"sm3", mac("SM3")},
        {"exp", exported()},
        {"export", exported()},
        {"export40", both(exported(), bits(40))},
        {"export56", both(exported(), bits(56))},
        {"low", bits(64)},
        {"medium", either(bits(128), bits(168))},
        {"high", bits(256)},
        {"sslv3", protocol("SSL3")},
        {"tlsv1", protocol("TLS1")},
        {"tlsv1_1", protocol("TLS1.1")},
        {"tlsv1_2", protocol("TLS1.2")},
        {"tlsv1_3", protocol("TLS1.3")},
        {"dtlsv1", protocol("DTLS1")},
        {"gmsslv1_1", protocol("GMSSL1.1")},
    };
    return tests;
}

int vote(const std::string& keyword, const ListedSuite& suite) {
    const bool null = suite.cipher == "NULL";
    if (keyword == "all" || keyword == "native") return null ? -1 : +1;
    if (keyword == "null") return null ? +1 : 0;
    if (null) return 0;
    if (keyword == "none") return -1;
    return keywordTests().at(keyword)(suite) ? +1 : 0;
}

bool isGmssl(const std::string& keyword) {
    return keyword == "gmsslv1_1" || keyword == "sm2" || keyword == "sm3" || keyword == "sm4";
}

using Votes = std::vector<int>;  // by suite

Votes votesOfKeyword(const std::string& keyword) {
    Votes votes;
    for (const ListedSuite& suite : listedSuites()) votes.push_back(vote(keyword, suite));
    return votes;
}

Votes votesOfName(const std::string& name) {
    Votes votes;
    for (const ListedSuite& suite : listedSuites()) votes.push_back(lowered(suite.name) == name);
    return votes;
}

struct Word {
    Votes votes;
    bool gmssl;
};

// Every keyword and every lower-cased name.
const std::unordered_map<std::string, Word>& words() {
    static const std::unordered_map<std::string, Word> all = [] {
        std::unordered_map<std::string, Word> made;
        for (const std::string& k : selectingKeywords()) made[k] = {votesOfKeyword(k), isGmssl(k)};
        for (const ListedSuite& suite : listedSuites()) {
            const std::string name = lowered(suite.name);
            if (made.count(name) == 0)
                made[name] = {votesOfName(name), suite.protocol == "GMSSL1.1"};
        }
        return made;
    }();
    return all;
}

std::vector<std::string> splitAt(const std::string& text, const std::string& separators) {
    std::vector<std::string> pieces(1);
    for (char c : text) {
        if (separators.find(c) == std::string::npos) {
            pieces.back() += c;
        } else {
            pieces.emplace_back();
        }
    }
    return pieces;
}

}  // namespace

const std::vector<std::string>& selectingKeywords() {
    static const std::vector<std::string> keywords = [] {
        std::vector<std::string> made = {"all", "native", "none", "null"};
        for (const auto& row : keywordTests()) made.push_back(row.first);
        return made;
    }();
    return keywords;
}

int keywordVote(const std::string& keyword, unsigned suite) {
    return vote(keyword, listedSuites().at(suite));
}

bool SelectionModel::apply(std::string text, bool expand) {
    text = text.substr(0, 1023);
    if (text.empty() || text[0] == '\0') return true;
    std::vector<std::string> tokens = splitAt(lowered(text), std::string(" ,:;\0", 5));
    if (tokens.back().empty() && tokens.size() > 1) tokens.pop_back();
    bool ssl3 = false;
    return std::all_of(tokens.begin(), tokens.end(),
                       [&](const std::string& token) { return applyToken(token, expand, ssl3); });
}

bool SelectionModel::applyToken(std::string token, bool expand, bool& ssl3) {
    char operation = ' ';
    if (!token.empty() && (token[0] == '!' || token[0] == '-' || token[0] == '+')) {
        operation = token[0];
        token.erase(0, 1);
    }
    const std::vector<std::string> terms = splitAt(token, "+");
    const bool bare = operation == ' ' && terms.size() == 1;
    std::vector<int> votes(listedSuites().size());
    for (const std::string& term : terms) {
        if (!applyTerm(term, expand, bare, ssl3, votes)) return false;
    }
    act(operation, votes, static_cast<int>(terms.size()));
    return true;
}

bool SelectionModel::applyTerm(const std::string& term, bool expand, bool bare, bool& ssl3,
                               std::vector<int>& votes) {
    if (expand && term == "sslv3") ssl3 = true;
    if (expand) {
        if (const auto text = expansion(term, bare, ssl3)) return apply(*text, /*expand=*/false);
    }
    if (term == "@speed") return sortBySpeed(), true;
    if (term == "@strength") return sortByStrength(), true;
    if (term == "@fips") return (void)sortByFips(), true;
    if (term == "rfcdtls" || term == "draftdtls") {
        for (ModelItem& item : list) item.draft = term == "draftdtls";
        return true;
    }
    const auto word = words().find(term);
    if (word == words().end() || (word->second.gmssl && !admitsGmssl)) {
        unknownTerms.push_back(term);
        return false;
    }
    for (std::size_t i = 0; i < votes.size(); ++i) votes[i] += word->second.votes[i];
    return true;
}

std::optional<std::string> SelectionModel::expansion(const std::string& term, bool bare,
                                                     bool ssl3) const {
    if (term == "default") return defaultString;
    if (term == "common_criteria") return commonCriteriaString;
    if (term == "fips") return fipsString;
    if (bare && (term == "all" || term == "native")) {
        return term + (ssl3 ? ":-export" : ":-export:-sslv3");
    }
    return std::nullopt;
}

void SelectionModel::act(char operation, const std::vector<int>& votes, int wanted) {
    std::vector<ModelItem> stay, move;
    for (ModelItem item : list) {
        if (votes[item.suite] != wanted) {
            stay.push_back(item);
        } else if (operation == '!') {
            continue;
        } else if (operation == '-') {
            item.enabled = false;
            move.push_back(item);
        } else if (item.enabled == (operation == '+')) {
            item.enabled = true;
            move.push_back(item);
        } else {
            stay.push_back(item);
        }
    }
    list = stay;
    list.insert(list.end(), move.begin(), move.end());
}

void SelectionModel::sortBySpeed() {
    std::stable_sort(list.begin(), list.end(),
                     [](const ModelItem& a, const ModelItem& b) { return a.suite < b.suite; });
}

void SelectionModel::sortByStrength() {
    std::stable_sort(list.begin(), list.end(), [](const ModelItem& a, const ModelItem& b) {
        return listedSuites()[a.suite].bits > listedSuites()[b.suite].bits;
    });
}

bool SelectionModel::sortByFips() {
    const auto rank = [&](const ModelItem& item) {
        const ListedSuite& suite = listedSuites()[item.suite];
        if (suite.fipsClass() == SSL_FIPS_NONE) return 3;
        if (suite.fipsClass() == SSL_FIPS_WEAK) return 2;
        const std::string& kx = suite.keyxchg;
        const bool rsa = kx == "DH/RSA" || kx == "EDH/RSA" || kx == "RSA" || kx == "ECDH_RSA" ||
                         kx == "ECDHE_RSA";
        const bool ecdsa = kx == "ECDH_ECDSA" || kx == "ECDHE_ECDSA";
        return (rsa && admitsRsa) || (ecdsa && admitsEcdsa) ? 1 : 2;
    };
    std::stable_sort(list.begin(), list.end(),
                     [&](const ModelItem& a, const ModelItem& b) { return rank(a) < rank(b); });
    return std::any_of(list.begin(), list.end(), [](const ModelItem& item) {
        return listedSuites()[item.suite].fipsClass() != SSL_FIPS_NONE;
    });
}

}  // namespace tarnutil_test
