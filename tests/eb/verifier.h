// SPDX-License-Identifier: Apache-2.0
// The invariants of a bitmap, looked up in its records.
#ifndef TARNUTIL_TESTS_EB_VERIFIER_H
#define TARNUTIL_TESTS_EB_VERIFIER_H

#include <cstdint>
#include <vector>

#include <tarnutil/eb.h>

namespace tarnutil_test {

// Each says which invariant is broken, or is null when all hold.
const char* brokenAlong(const eb_t* eb, std::uint64_t pos);  // the levels that `pos` belongs to
const char* brokenInTop(const eb_t* eb, std::uint32_t t);    // one top and all of its leaves
const char* brokenAnywhere(const eb_t* eb);                  // every level

// All positions that a top holds, or all tops do, ascending, read from every word.
std::vector<std::uint64_t> positionsInTop(const eb_t* eb, std::uint64_t t);
std::vector<std::uint64_t> positionsInTops(const eb_t* eb);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_EB_VERIFIER_H
