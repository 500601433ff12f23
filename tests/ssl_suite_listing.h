// SPDX-License-Identifier: Apache-2.0
// The catalogue as a listing of its own, tests/data/ssl_suite.txt: what the tests of ssl_suite.h
// compare the library with.
#ifndef TARNUTIL_TESTS_SSL_SUITE_LISTING_H
#define TARNUTIL_TESTS_SSL_SUITE_LISTING_H

#include <string>
#include <vector>

namespace tarnutil_test {

struct ListedSuite {
    unsigned index;
    unsigned id;
    std::string name;
    unsigned bits;
    std::string protocol;  // and the others as the library names them
    std::string cipher;
    std::string mac;
    std::string keyxchg;
    std::string bytes;  // 8 to 15 of the record, in hexadecimal

    unsigned byte(unsigned offset) const;
    bool isExport() const { return (byte(13) & 0x40) != 0; }
    unsigned fipsClass() const { return byte(14) >> 2; }
};

// All records in table order, read once. Throws std::runtime_error if there is no listing.
const std::vector<ListedSuite>& listedSuites();

// `text` with the letters A to Z as a to z.
std::string lowered(std::string text);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SSL_SUITE_LISTING_H
