// SPDX-License-Identifier: Apache-2.0
// The tables of docs/certificates.md: each is proved row by row, so that neither can drift.
#ifndef TARNUTIL_TESTS_CERTS_DOCUMENT_H
#define TARNUTIL_TESTS_CERTS_DOCUMENT_H

#include <string>
#include <vector>

namespace tarnutil_test {

// The cells of a row, without the marks of code.
using DocumentRow = std::vector<std::string>;

// The rows of the first table below a heading, without its title; fails the test if there are none.
// An empty first cell stands for the one above it.
std::vector<DocumentRow> documentedRows(const std::string& heading);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_CERTS_DOCUMENT_H
