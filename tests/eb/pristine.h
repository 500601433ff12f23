// SPDX-License-Identifier: Apache-2.0
// A bitmap that can be put back to the state eb_init left it in, at the cost of the pages touched
// since.
#ifndef TARNUTIL_TESTS_EB_PRISTINE_H
#define TARNUTIL_TESTS_EB_PRISTINE_H

#include <cstddef>
#include <cstdint>

#include <tarnutil/eb.h>

namespace tarnutil_test {

class PristineBitmap {
public:
    explicit PristineBitmap(unsigned exponent);  // of the number of positions; ends the process if
    ~PristineBitmap();                           // it cannot have the memory

    PristineBitmap(const PristineBitmap&) = delete;
    PristineBitmap& operator=(const PristineBitmap&) = delete;

    eb_t* get() const { return eb; }
    std::uint64_t positionCount() const { return positions; }
    void restore();

private:
    static void* take(void* self, std::size_t bytes);
    static void giveBack(void*, void*) {}

    std::uint64_t positions;
    std::size_t size;
    std::size_t used = 0;
    char* memory;
    eb_t* eb = nullptr;
};

// The one of that exponent that the tests of a program share.
PristineBitmap& sharedPristine(unsigned exponent);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_EB_PRISTINE_H
