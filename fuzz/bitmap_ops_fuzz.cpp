// SPDX-License-Identifier: Apache-2.0
// The bytes are operations on a bitmap, compared with the model after each, and in all tops that
// they came to at the end.
//
// The first byte chooses the range. Then three bytes make one operation: what it does, with the
// level at which positions lie apart in its upper bits, and two of position.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "checked.h"

using namespace tarnutil_test;

namespace {

constexpr unsigned kExponents[] = {27, 28, 27, 33};

constexpr EbOperation kOperations[] = {
    EbOperation::set,   EbOperation::set,      EbOperation::isSet,    EbOperation::clear,
    EbOperation::clear, EbOperation::clearTop, EbOperation::findNext, EbOperation::findNext};

// Bits, leaves, tops and records of tops, alone or mixed: what one step of the position's second
// byte is worth.
constexpr unsigned kShifts[] = {0, 6, 10, 13, 19, 20, 23, 27};

std::uint64_t position(unsigned level, unsigned low, unsigned high, std::uint64_t count) {
    return (low + (std::uint64_t{high} << kShifts[level])) % count;
}

// Ends the run if anything is wrong.
void expectNothing(const char* wrong) {
    if (wrong == nullptr) return;
    std::fprintf(stderr, "wrong: %s\n", wrong);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    PristineBitmap& bitmap = sharedPristine(kExponents[data[0] % 4]);
    CheckedBitmap checked(bitmap);
    std::set<std::uint64_t> tops;
    for (std::size_t i = 1; i + 3 <= size; i += 3) {
        const unsigned what = data[i] % 8;
        const unsigned level = data[i] / 8 % 8;
        const std::uint64_t pos = position(level, data[i + 1], data[i + 2], bitmap.positionCount());
        expectNothing(checked.apply(kOperations[what], pos));
        tops.insert(pos / EbModel::kTop);
    }
    for (const std::uint64_t t : tops) expectNothing(checked.checkTop(t * EbModel::kTop));
    return 0;
}
