// SPDX-License-Identifier: Apache-2.0
// What system calls the program made, in order: for tests of an order that results do not show.
#ifndef TARNUTIL_TESTS_SUPPORT_TRAIL_H
#define TARNUTIL_TESTS_SUPPORT_TRAIL_H

#include <sys/types.h>
#include <time.h>

#include <atomic>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <vector>

#include "calls.h"

namespace tarnutil_test {

// While one lives, notes the calls it was made for, failed ones included, with their arguments of
// type int, like "dup2(5, 1)", and points of time as their seconds and nanoseconds. Lies in shared
// memory, so it also sees what forked children call until they become another program. One at a
// time.
class Trail {
public:
    explicit Trail(std::initializer_list<Call> calls);
    ~Trail();
    Trail(const Trail&) = delete;
    Trail& operator=(const Trail&) = delete;

    // The steps of the process that made the trail, and those of all others.
    std::vector<std::string> ofParent() const { return steps(/*parent=*/true); }
    std::vector<std::string> ofChildren() const { return steps(/*parent=*/false); }

    // For the interposed functions: what to call with their arguments.
    class Note {
    public:
        explicit Note(Call noted) : call(noted) {}

        template <class... Arguments>
        void operator()(const Arguments&... arguments) const {
            long numbers[2 * sizeof...(arguments) + 1] = {};
            std::size_t count = 0;
            (void)count;
            (keep(numbers, count, arguments), ...);
            step(call, numbers, count);
        }

    private:
        template <class Argument>
        static void keep(long* numbers, std::size_t& count, const Argument& argument) {
            if constexpr (std::is_same_v<Argument, int>) numbers[count++] = argument;
            if constexpr (std::is_same_v<Argument, const timespec*>) {
                numbers[count++] = argument->tv_sec;
                numbers[count++] = argument->tv_nsec;
            }
        }

        Call call;
    };

private:
    struct Step;
    struct Shared;

    static void step(Call call, const long* numbers, std::size_t count);
    std::vector<std::string> steps(bool parent) const;

    static std::atomic<Shared*> current;
};

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_TRAIL_H
