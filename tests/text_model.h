// SPDX-License-Identifier: Apache-2.0
// The text helpers said in another way, one byte or word at a time: what tests and fuzz targets
// hold the library against.
#ifndef TARNUTIL_TESTS_TEXT_MODEL_H
#define TARNUTIL_TESTS_TEXT_MODEL_H

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace tarnutil_test {

inline std::string modelTrimmed(std::string text, const std::string& chars) {
    const auto goes = [&](char c) { return chars.find(c) != std::string::npos; };
    while (!text.empty() && goes(text.front())) text.erase(0, 1);
    while (!text.empty() && goes(text.back())) text.pop_back();
    return text;
}

inline std::string modelNormalized(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::replace(text.begin(), text.end(), '\t', ' ');
    const auto isSpace = [](char c) { return std::strchr(" \v\f\r", c) != nullptr && c != '\0'; };
    const auto both = [&](char a, char b) { return isSpace(a) && isSpace(b); };
    text.erase(std::unique(text.begin(), text.end(), both), text.end());
    return text;
}

inline void modelSplit(const std::string& text, char separator, std::vector<std::string>& out,
                       unsigned max) {
    std::string piece;
    bool done = false;
    for (const char c : text) {
        if (c != separator || done) {
            piece += c;
            continue;
        }
        out.push_back(piece);
        piece.clear();
        done = max != 0 && out.size() == max;
    }
    out.push_back(piece);
}

inline std::map<std::string, std::string> modelMap(const std::string& text) {
    std::vector<std::string> words;
    modelSplit(text, ' ', words, 0);
    std::map<std::string, std::string> map;
    for (const std::string& word : words) {
        const std::size_t equals = word.find('=');
        map[word.substr(0, equals)] = equals == std::string::npos ? "" : word.substr(equals + 1);
    }
    return map;
}

inline std::string modelText(const std::map<std::string, std::string>& map) {
    std::string text;
    for (const auto& [key, value] : map) text += " " + key + "=" + value;
    return map.empty() ? text : text.substr(1);
}

inline std::string modelEscaped(const std::string& text, char escapeChar, const std::string& set) {
    std::string made;
    for (const char c : text) {
        if (c == escapeChar || set.find(c) != std::string::npos) made += escapeChar;
        made += c;
    }
    return made;
}

// What a shell and a regular expression have escaped, in any order.
constexpr char kShellMembers[] = "\"\\'`<>|; \x14\x0E()[]?#$^&*=,:!{}~";
constexpr char kRegexMembers[] = ".^$*+?()[{\\|";

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_TEXT_MODEL_H
