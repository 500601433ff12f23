// SPDX-License-Identifier: Apache-2.0
// Random cipher strings, beside a model of what they do.
//
// Each run prints its seed; TARNUTIL_TEST_SEED=<seed> repeats it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "random.h"
#include "rounds.h"
#include "ssl_suite_listing.h"
#include "ssl_suite_model.h"
#include "ssl_suite_selection.h"

using namespace tarnutil_test;

namespace {

template <typename T>
const T& one(const std::vector<T>& of, std::mt19937& random) {
    return of[random() % of.size()];
}

bool chance(std::mt19937& random, unsigned percent) { return random() % 100 < percent; }

std::string inMixedCase(std::string text, std::mt19937& random) {
    for (char& c : text) {
        if (random() % 2 != 0) {
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        }
    }
    return text;
}

std::string randomTerm(std::mt19937& random) {
    static const std::vector<std::string> commands = {
        "@speed",          "@strength", "@fips", "rfcdtls", "draftdtls", "default",
        "common_criteria", "fips",      "sslv3", "all",     "native",    "null"};
    static const std::vector<std::string> nonsense = {"", "x", "aes128", "@", "a\tb", "-", "!aes"};
    const auto kind = random() % 100;
    if (kind < 55) return one(selectingKeywords(), random);
    if (kind < 75) return one(listedSuites(), random).name;
    if (kind < 98) return one(commands, random);
    return one(nonsense, random);
}

std::string randomToken(std::mt19937& random) {
    static const std::vector<std::string> operators = {"", "", "", "!", "-", "-", "+"};
    std::string token = one(operators, random) + randomTerm(random);
    while (chance(random, 20)) token += "+" + randomTerm(random);
    return chance(random, 20) ? inMixedCase(token, random) : token;
}

std::string randomText(std::mt19937& random, unsigned long tokens) {
    static const std::string separators = " ,:;";
    std::string text;
    for (unsigned long i = 0; i < tokens; ++i) {
        if (i > 0) text += separators[random() % separators.size()];
        text += randomToken(random);
    }
    if (chance(random, 2)) text += ':';
    if (chance(random, 1)) text.insert(random() % (text.size() + 1), 1, '\0');
    return text;
}

Indices randomSuites(std::mt19937& random) {
    static const Indices all = wholeCatalogue();
    const std::size_t size = chance(random, 10) ? random() % (all.size() + 1) : random() % 24;
    Indices suites;
    if (size > 24) {
        suites = all;
        std::shuffle(suites.begin(), suites.end(), random);
        suites.resize(size);
        return suites;
    }
    while (suites.size() < size) {
        const unsigned suite = one(all, random);
        if (std::find(suites.begin(), suites.end(), suite) == suites.end()) suites.push_back(suite);
    }
    return suites;
}

// A context and its model, made alike at random.
struct Pair {
    explicit Pair(std::mt19937& random) : selection(randomSuites(random)) {
        const auto flags = random() % 16;
        selection->flags = static_cast<std::uint8_t>(flags);
        model.admitsRsa = (flags & SSL_SUITE_CTX_FIPS_RSA) != 0;
        model.admitsEcdsa = (flags & SSL_SUITE_CTX_FIPS_ECDSA) != 0;
        model.admitsGmssl = flags >= 4;
        model.list = selection.list();
        selection->default_string = givenString(model.defaultString, random);
        selection->common_criteria_string = givenString(model.commonCriteriaString, random);
        selection->fips_string = givenString(model.fipsString, random);
    }

    void expectTheSameOf(const std::string& text, bool expand) {
        selection.reported.clear();
        model.unknownTerms.clear();
        ASSERT_EQ(selection.apply(text, expand), model.apply(text, expand) ? 1 : 0) << text;
        ASSERT_TRUE(selection.isLinked()) << text;
        ASSERT_TRUE(selection.list() == model.list) << text;
        ASSERT_EQ(selection.reported, model.unknownTerms) << text;
    }

    Selection selection;
    SelectionModel model;

private:
    static const char* givenString(std::optional<std::string>& string, std::mt19937& random) {
        if (chance(random, 30)) return nullptr;
        string = randomText(random, random() % 4);
        string->erase(std::remove(string->begin(), string->end(), '\0'), string->end());
        return string->c_str();
    }
};

TEST(SslSuiteRandomTest, AMillionTextsDoWhatTheModelDoes) {
    std::mt19937 random(chosenSeed());
    unsigned long texts = 0;
    while (texts < inRounds(1000000) && !testing::Test::HasFatalFailure()) {
        Pair pair(random);
        for (int i = 0; i < 10 && !testing::Test::HasFatalFailure(); ++i, ++texts) {
            pair.expectTheSameOf(randomText(random, random() % 5), /*expand=*/chance(random, 75));
        }
    }
    EXPECT_GE(texts, inRounds(1000000));
}

TEST(SslSuiteRandomTest, LongTextsDoWhatTheModelDoes) {
    std::mt19937 random(chosenSeed());
    for (int i = 0; i < 2000 && !testing::Test::HasFatalFailure(); ++i) {
        Pair pair(random);
        pair.expectTheSameOf(randomText(random, 60 + random() % 150), /*expand=*/true);
    }
}

}  // namespace
