// SPDX-License-Identifier: Apache-2.0
// The words of cipher strings: keywords and suite names.
#ifndef TARNUTIL_TOOLS_CIPHER_WORDS_H
#define TARNUTIL_TOOLS_CIPHER_WORDS_H

#include <string>
#include <vector>

namespace tarnutil_command {

// The keywords, then the names of the suites.
const std::vector<std::string>& cipherWords();

// The words that `term` may have been meant for, the nearest first, at most three.
std::vector<std::string> nearestCipherWords(const std::string& term);

// Without regard to case, as cipher strings are read.
std::string loweredTerm(std::string term);

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_CIPHER_WORDS_H
