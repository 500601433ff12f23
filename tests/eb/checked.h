// SPDX-License-Identifier: Apache-2.0
// A bitmap and its model side by side: each operation is done on both, and what they hold compared.
#ifndef TARNUTIL_TESTS_EB_CHECKED_H
#define TARNUTIL_TESTS_EB_CHECKED_H

#include <cstdint>

#include "model.h"
#include "pristine.h"

namespace tarnutil_test {

enum class EbOperation { set, isSet, clear, clearTop, findNext };

class CheckedBitmap {
public:
    explicit CheckedBitmap(PristineBitmap& bitmap);  // restores it; it has to outlive this

    const eb_t* get() const { return eb; }

    // Performs an operation at a position of the range. Says what is wrong afterwards, in the
    // answer, the handle or the records on the way to `pos` and to the smallest member; null if
    // nothing is.
    const char* apply(EbOperation operation, std::uint64_t pos);

    // Says what is wrong anywhere in the top of `pos`.
    const char* checkTop(std::uint64_t pos) const;

    // Says what is wrong anywhere.
    const char* checkAll() const;

private:
    const char* applyToBoth(EbOperation operation, std::uint64_t pos);
    const char* compareHandle() const;
    const char* checkAlong(std::uint64_t pos) const;

    eb_t* eb;
    EbModel model;
};

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_EB_CHECKED_H
