// SPDX-License-Identifier: Apache-2.0
#include "document.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

namespace tarnutil_test {
namespace {

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

bool isTableLine(const std::string& line) { return line.compare(0, 2, "| ") == 0; }

// A line of a table: what stands between its bars.
DocumentRow cellsOf(std::string line) {
    line.erase(std::remove(line.begin(), line.end(), '`'), line.end());
    DocumentRow cells;
    std::size_t begin = 1;
    for (std::size_t bar; (bar = line.find('|', begin)) != std::string::npos; begin = bar + 1) {
        cells.push_back(trimmed(line.substr(begin, bar - begin)));
    }
    return cells;
}

// The lines of the first table below `heading`.
std::vector<std::string> tableLines(const std::string& heading) {
    std::ifstream document(TARNUTIL_TEST_DOCUMENT);
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(document, line) && line != heading) continue;
    while (std::getline(document, line) && (isTableLine(line) || lines.empty())) {
        if (isTableLine(line)) lines.push_back(line);
    }
    return lines;
}

}  // namespace

std::vector<DocumentRow> documentedRows(const std::string& heading) {
    const std::vector<std::string> lines = tableLines(heading);
    std::vector<DocumentRow> rows;
    for (std::size_t i = 2; i < lines.size(); ++i) {  // behind the title and its rule
        rows.push_back(cellsOf(lines[i]));
        if (rows.back().front().empty()) rows.back().front() = rows[rows.size() - 2].front();
    }
    EXPECT_FALSE(rows.empty()) << heading;
    return rows;
}

}  // namespace tarnutil_test
