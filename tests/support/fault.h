// SPDX-License-Identifier: Apache-2.0
// Makes a libc, pthread or OpenSSL call of the program fail.
//
// The test program defines the functions of calls.h itself and forwards to the real ones unless a
// Fault is armed, so the library under test is the one that ships and needs no seams.
#ifndef TARNUTIL_TESTS_SUPPORT_FAULT_H
#define TARNUTIL_TESTS_SUPPORT_FAULT_H

#include <optional>

#include "calls.h"

namespace tarnutil_test {

class Fault {
public:
    enum Span { once, fromThenOn };

    // From here until the object dies, the `nth` use of `call` (counted from 1), or every use from
    // the `nth` on, fails with `number`. One Fault per call at a time.
    explicit Fault(Call call, int number = 0, unsigned long nth = 1, Span span = once);
    ~Fault();
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;

    bool hasFired() const;

    // How often the program has made `call` so far, failed uses included.
    static unsigned long calls(Call call);

    // For the interposed functions: counts a use of `call`; the number to fail with, if it is due.
    static std::optional<int> due(Call call);

private:
    Call call;
};

const char* name(Call call);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_FAULT_H
