// SPDX-License-Identifier: Apache-2.0
#include "ssl_suite_listing.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tarnutil_test {
namespace {

ListedSuite parsed(const std::string& line) {
    std::istringstream in(line);
    ListedSuite suite;
    in >> suite.index >> std::hex >> suite.id >> std::dec >> suite.name >> suite.bits >>
        suite.protocol >> suite.cipher >> suite.mac >> suite.keyxchg >> suite.bytes;
    if (!in) throw std::runtime_error("not a row of the listing: " + line);
    return suite;
}

std::vector<ListedSuite> readListing() {
    std::ifstream in(TEST_DATA "/ssl_suite.txt");
    std::vector<ListedSuite> suites;
    for (std::string line; std::getline(in, line);) {
        if (line[0] != '#') suites.push_back(parsed(line));
    }
    if (suites.empty()) throw std::runtime_error("no listing in " TEST_DATA);
    return suites;
}

}  // namespace

unsigned ListedSuite::byte(unsigned offset) const {
    return static_cast<unsigned>(std::stoul(bytes.substr((offset - 8) * 2, 2), nullptr, 16));
}

const std::vector<ListedSuite>& listedSuites() {
    static const std::vector<ListedSuite> suites = readListing();
    return suites;
}

std::string lowered(std::string text) {
    for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

}  // namespace tarnutil_test
