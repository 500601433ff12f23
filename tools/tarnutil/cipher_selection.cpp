// SPDX-License-Identifier: Apache-2.0
#include "cipher_selection.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "cipher_words.h"

namespace tarnutil_command {
namespace {

constexpr std::string_view kSeparators(" ,:;\0", 5);  // a zero byte separates as well

struct Piece {
    std::size_t begin, end;  // of the token
    std::size_t behind;      // its separator too
};

// The tokens of `text`, in turn. One separator may end it.
std::vector<Piece> tokensOf(const std::string& text) {
    std::vector<Piece> tokens;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find_first_of(kSeparators, begin), text.size());
        tokens.push_back({begin, end, std::min(end + 1, text.size())});
        begin = end + 1;
    }
    return tokens;
}

bool hasOperator(const std::string& token) {
    return !token.empty() && (token[0] == '!' || token[0] == '-' || token[0] == '+');
}

bool contains(const Suites& suites, unsigned suite) {
    return std::find(suites.begin(), suites.end(), suite) != suites.end();
}

Suites intersection(const Suites& ordered, const Suites& others) {
    Suites both;
    for (unsigned suite : ordered) {
        if (contains(others, suite)) both.push_back(suite);
    }
    return both;
}

Suites difference(const Suites& ordered, const Suites& others) {
    Suites rest;
    for (unsigned suite : ordered) {
        if (!contains(others, suite)) rest.push_back(suite);
    }
    return rest;
}

// Those that stand at another place in `after`, which holds the same suites.
Suites displaced(const Suites& before, const Suites& after) {
    Suites moved;
    for (std::size_t i = 0; i < after.size(); ++i) {
        if (before[i] != after[i]) moved.push_back(after[i]);
    }
    return moved;
}

}  // namespace

// The list after a text, as far as it was applied.
struct CipherSelection::State {
    bool failed = false;
    Suites listed;   // all, in list order
    Suites enabled;  // of them
};

CipherSelection::State CipherSelection::stateAfter(const std::string& text, bool expand) const {
    const auto orNull = [](const std::optional<std::string>& string) {
        return string ? string->c_str() : nullptr;
    };
    const auto ctx = std::make_unique<ssl_suite_ctx_t>();
    ssl_suite_ctx_init(ctx.get());
    ctx->default_string = orNull(settings.defaultString);
    ctx->common_criteria_string = orNull(settings.commonCriteriaString);
    ctx->fips_string = orNull(settings.fipsString);
    ctx->flags = static_cast<std::uint8_t>((settings.gmssl ? SSL_SUITE_CTX_GMSSL : 0) |
                                           (settings.fipsRsa ? SSL_SUITE_CTX_FIPS_RSA : 0) |
                                           (settings.fipsEcdsa ? SSL_SUITE_CTX_FIPS_ECDSA : 0));
    State state;
    state.failed = ssl_suite_cmd(ctx.get(), text.data(), static_cast<unsigned>(text.size()), expand,
                                 nullptr, nullptr) != 1;
    for (const ssl_suite_entry_t* entry = ctx->first; entry != nullptr; entry = entry->next) {
        state.listed.push_back(entry->suite);
        if ((entry->flags & SSL_SUITE_ENTRY_ENABLED) != 0) state.enabled.push_back(entry->suite);
    }
    return state;
}

bool CipherSelection::fails(const std::string& text, bool expand) const {
    return stateAfter(text, expand).failed;
}

std::optional<Suites> CipherSelection::offer(const std::string& text) const {
    const State state = stateAfter(text, /*expand=*/true);
    if (state.failed) return std::nullopt;
    return state.enabled;
}

std::vector<TokenEffect> CipherSelection::explain(const std::string& text) const {
    const std::string applied = text.substr(0, kLongestCipherString);
    std::vector<TokenEffect> effects;
    State before = stateAfter("", /*expand=*/true);
    for (const Piece& piece : tokensOf(applied)) {
        State after = stateAfter(applied.substr(0, piece.behind), /*expand=*/true);
        effects.push_back(
            effect(before, after, applied.substr(piece.begin, piece.end - piece.begin)));
        before = std::move(after);
    }
    return effects;
}

TokenEffect CipherSelection::effect(const State& before, const State& after,
                                    const std::string& token) const {
    TokenEffect effect;
    effect.token = token;
    effect.expansion = expansionOf(token);
    effect.enabled = difference(after.enabled, before.enabled);
    effect.disabled = difference(intersection(before.enabled, after.listed), after.enabled);
    effect.removed = difference(before.listed, after.listed);
    const Suites kept = intersection(after.enabled, before.enabled);
    effect.moved = displaced(intersection(before.enabled, after.enabled), kept);
    const bool postpones = !token.empty() && token[0] == '+' && effect.expansion.empty() &&
                           token.find('@') == std::string::npos;
    // A suite that others made room for has not moved: only those that the keyword selects have.
    if (postpones) {
        const std::string keyword = token.substr(1);
        effect.moved = intersection(kept, stateAfter(keyword, /*expand=*/false).enabled);
    }
    return effect;
}

const std::optional<std::string>* CipherSelection::stringOf(const std::string& term) const {
    if (term == "default") return &settings.defaultString;
    if (term == "common_criteria") return &settings.commonCriteriaString;
    if (term == "fips") return &settings.fipsString;
    return nullptr;
}

std::string CipherSelection::expansionOf(const std::string& token) const {
    const std::string keyword = loweredTerm(hasOperator(token) ? token.substr(1) : token);
    const auto* string = stringOf(keyword);
    return string != nullptr && *string ? **string : "";
}

UnknownTerm CipherSelection::unknownTerm(const std::string& text) const {
    return locate(text.substr(0, kLongestCipherString), /*keyword=*/"");
}

// The first token whose prefix of `text` fails holds the term. A term is known by itself if it can
// be met with another.
UnknownTerm CipherSelection::locate(const std::string& text, const std::string& keyword) const {
    const bool expand = keyword.empty();
    for (const Piece& piece : tokensOf(text)) {
        if (!fails(text.substr(0, piece.behind), expand)) continue;
        std::size_t begin = piece.begin;
        if (hasOperator(text.substr(begin, piece.end - begin))) ++begin;
        for (;;) {
            const std::size_t end = std::min(text.find('+', begin), piece.end);
            const std::string term = text.substr(begin, end - begin);
            const auto* string = expand ? stringOf(loweredTerm(term)) : nullptr;
            if (string != nullptr && *string) {
                if (fails(**string, /*expand=*/false)) {
                    return locate((*string)->substr(0, kLongestCipherString), loweredTerm(term));
                }
            } else if (end == piece.end || fails("all+" + term, /*expand=*/false)) {
                return {term, text, keyword, begin};
            }
            begin = end + 1;
        }
    }
    throw std::logic_error("the cipher string does not fail");
}

}  // namespace tarnutil_command
