// SPDX-License-Identifier: Apache-2.0
// What cipher strings do, told without links: a list is a vector, and every rule is taken from the
// listing of the catalogue, not from the library's records.
#ifndef TARNUTIL_TESTS_SSL_SUITE_MODEL_H
#define TARNUTIL_TESTS_SSL_SUITE_MODEL_H

#include <optional>
#include <string>
#include <vector>

namespace tarnutil_test {

struct ModelItem {
    unsigned suite;
    bool enabled;
    bool draft;

    bool operator==(const ModelItem& other) const {
        return suite == other.suite && enabled == other.enabled && draft == other.draft;
    }
};

struct SelectionModel {
    std::vector<ModelItem> list;
    std::optional<std::string> defaultString, commonCriteriaString, fipsString;
    bool admitsRsa = false, admitsEcdsa = false, admitsGmssl = false;
    std::vector<std::string> unknownTerms;  // in the order in which they were met

    bool apply(std::string text, bool expand);
    void sortBySpeed();
    void sortByStrength();
    bool sortByFips();

private:
    bool applyToken(std::string token, bool expand, bool& ssl3);
    bool applyTerm(const std::string& term, bool expand, bool bare, bool& ssl3,
                   std::vector<int>& votes);
    std::optional<std::string> expansion(const std::string& term, bool bare, bool ssl3) const;
    void act(char operation, const std::vector<int>& votes, int wanted);
};

// The 44 keywords that select suites.
const std::vector<std::string>& selectingKeywords();

// The vote of one of them for a record of the catalogue.
int keywordVote(const std::string& keyword, unsigned suite);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SSL_SUITE_MODEL_H
