// SPDX-License-Identifier: Apache-2.0
// Random inputs whose seed a failing test prints, and that TARNUTIL_TEST_SEED repeats.
#ifndef TARNUTIL_TESTS_SUPPORT_RANDOM_H
#define TARNUTIL_TESTS_SUPPORT_RANDOM_H

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

namespace tarnutil_test {

class Random {
public:
    Random() : seed(chosenSeed()), engine(seed) { std::printf("TARNUTIL_TEST_SEED=%u\n", seed); }

    // A number from 0 to `last`.
    std::size_t upTo(std::size_t last) {
        return std::uniform_int_distribution<std::size_t>(0, last)(engine);
    }

    // A text of at most `longest` bytes, each one of `alphabet`.
    std::string text(std::size_t longest, std::string_view alphabet) {
        std::string made(upTo(longest), '\0');
        for (char& c : made) c = alphabet[upTo(alphabet.size() - 1)];
        return made;
    }

    // A text of at most `longest` arbitrary bytes.
    std::string bytes(std::size_t longest) {
        std::string made(upTo(longest), '\0');
        for (char& c : made) c = static_cast<char>(upTo(255));
        return made;
    }

private:
    static unsigned chosenSeed() {
        const char* given = std::getenv("TARNUTIL_TEST_SEED");
        return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10))
                                : std::random_device{}();
    }

    unsigned seed;
    std::mt19937 engine;
};

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_RANDOM_H
