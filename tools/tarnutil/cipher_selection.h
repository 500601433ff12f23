// SPDX-License-Identifier: Apache-2.0
// A cipher string applied to the whole catalogue, and what became of it token by token.
//
// What a text offers, and what each token does, is found by applying texts to contexts of their
// own. Of the language only the outside is read here a second time: what parts tokens and terms,
// the operators in front, which keywords stand for strings, and how much of a text counts.
#ifndef TARNUTIL_TOOLS_CIPHER_SELECTION_H
#define TARNUTIL_TOOLS_CIPHER_SELECTION_H

#include <tarnutil/ssl_suite.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tarnutil_command {

// In bytes: what stands behind does not count.
constexpr std::size_t kLongestCipherString = 1023;

// What a program sets up beside the string itself.
struct CipherSettings {
    std::optional<std::string> defaultString, commonCriteriaString, fipsString;
    bool gmssl = false, fipsRsa = false, fipsEcdsa = false;
};

using Suites = std::vector<unsigned>;  // indices in ssl_suite

// What one token did. Every suite stands in at most one of the lists.
struct TokenEffect {
    std::string token;
    std::string expansion;  // of a keyword that stands for a string, else ""
    Suites enabled, moved, disabled, removed;
};

// A term that no context of these settings knows: where in which text.
struct UnknownTerm {
    std::string term;
    std::string text;      // the cipher string, or the string of `keyword`
    std::string keyword;   // "" or the keyword whose string it is
    std::size_t position;  // in bytes of `text`
};

class CipherSelection {
public:
    explicit CipherSelection(const CipherSettings& chosen) : settings(chosen) {}

    // The suites that `text` offers, best first; nothing if it fails.
    std::optional<Suites> offer(const std::string& text) const;

    // What each token of a `text` that does not fail does, in turn.
    std::vector<TokenEffect> explain(const std::string& text) const;

    // The term at which a failing `text` fails.
    UnknownTerm unknownTerm(const std::string& text) const;

private:
    struct State;
    State stateAfter(const std::string& text, bool expand) const;
    bool fails(const std::string& text, bool expand) const;
    TokenEffect effect(const State& before, const State& after, const std::string& token) const;
    std::string expansionOf(const std::string& token) const;
    const std::optional<std::string>* stringOf(const std::string& term) const;
    UnknownTerm locate(const std::string& text, const std::string& keyword) const;

    CipherSettings settings;
};

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_CIPHER_SELECTION_H
