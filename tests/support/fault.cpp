// SPDX-License-Identifier: Apache-2.0
#include "fault.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace tarnutil_test {
namespace {

// Constant-initialised and without locks: the interposed functions run before main, in every thread
// and inside the allocator.
struct Armed {
    std::atomic<unsigned long> uses{0};
    std::atomic<unsigned long> from{0};  // the use that fails first; 0 if none does
    std::atomic<unsigned long> to{0};    // and the last one
    std::atomic<int> number{0};
    std::atomic<bool> fired{false};
};

std::array<Armed, static_cast<std::size_t>(Call::count)> all;

Armed& of(Call call) { return all[static_cast<std::size_t>(call)]; }

}  // namespace

Fault::Fault(Call failing, int number, unsigned long nth, Span span) : call(failing) {
    Armed& armed = of(call);
    const unsigned long from = armed.uses + nth;
    armed.number = number;
    armed.fired = false;
    armed.to = span == once ? from : ~0UL;
    armed.from = from;
}

Fault::~Fault() { of(call).from = 0; }

bool Fault::hasFired() const { return of(call).fired; }

unsigned long Fault::calls(Call call) { return of(call).uses; }

std::optional<int> Fault::due(Call call) {
    Armed& armed = of(call);
    const unsigned long use = ++armed.uses;
    const unsigned long from = armed.from;
    if (from == 0 || use < from || use > armed.to) return std::nullopt;
    armed.fired = true;
    return armed.number.load();
}

const char* name(Call call) {
    static constexpr const char* kNames[] = {
#define TARNUTIL_TEST_NAME(fails, result, name, parameters, arguments) #name,
        TARNUTIL_TEST_CALLS(TARNUTIL_TEST_NAME)
#undef TARNUTIL_TEST_NAME
            "operator new"};
    return kNames[static_cast<std::size_t>(call)];
}

}  // namespace tarnutil_test
