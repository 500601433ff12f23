// SPDX-License-Identifier: Apache-2.0
// Random inputs. Each test that draws some prints its seed, and TARNUTIL_TEST_SEED=<seed> repeats
// them.
#ifndef TARNUTIL_TESTS_SUPPORT_RANDOM_H
#define TARNUTIL_TESTS_SUPPORT_RANDOM_H

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

namespace tarnutil_test {

// The seed for a test, printed: the one that TARNUTIL_TEST_SEED gives, or another each time.
inline unsigned chosenSeed() {
    const char* given = std::getenv("TARNUTIL_TEST_SEED");
    const unsigned seed = given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10))
                                           : std::random_device{}();
    std::printf("TARNUTIL_TEST_SEED=%u\n", seed);
    return seed;
}

class Random {
public:
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
    std::mt19937 engine{chosenSeed()};
};

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_RANDOM_H
