// SPDX-License-Identifier: Apache-2.0
// How a fuzz target says what has to hold: a crash is a finding.
#ifndef TARNUTIL_FUZZ_REQUIRE_H
#define TARNUTIL_FUZZ_REQUIRE_H

#include <cstdlib>

inline void require(bool holds) {
    if (!holds) std::abort();
}

#endif  // TARNUTIL_FUZZ_REQUIRE_H
