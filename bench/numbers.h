// SPDX-License-Identifier: Apache-2.0
// Numbers for inputs that look like no pattern that a processor would learn.
#ifndef TARNUTIL_BENCH_NUMBERS_H
#define TARNUTIL_BENCH_NUMBERS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarnutil_bench {

// The same numbers in every run.
class Numbers {
public:
    std::size_t below(std::size_t end) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        return (state >> 33) % end;
    }

private:
    std::uint64_t state = 1;
};

inline std::vector<unsigned char> someBytes(std::size_t size) {
    Numbers numbers;
    std::vector<unsigned char> bytes(size);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(numbers.below(256));
    return bytes;
}

}  // namespace tarnutil_bench
#endif  // TARNUTIL_BENCH_NUMBERS_H
