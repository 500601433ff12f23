// SPDX-License-Identifier: Apache-2.0
// tarnutil bitmap: what a bitmap costs before it is made.
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include <tarnutil/eb.h>

#include "commands.h"
#include "output.h"

namespace tarnutil_command {
namespace {

using nlohmann::ordered_json;

constexpr const char* kExample = R"(Example:
  $ tarnutil bitmap size 2^32
  $ tarnutil bitmap size --json 134217728
)";

constexpr unsigned kSmallest = 27;  // as powers of two
constexpr unsigned kLargest = 50;

// What eb_init asks its allocator for.
struct Size {
    std::uint64_t positions;
    std::uint64_t tops = positions >> 19;
    std::uint64_t recordsOfTops = tops / 256;
    std::uint64_t blocks = 4 + 2 * tops;
    std::uint64_t headers =
        sizeof(eb_t) + tops * sizeof(eb_top_t) + recordsOfTops * sizeof(eb_l1_t);
    std::uint64_t words = tops * (512 / 8 + 512 * 1024 / 8) + recordsOfTops * 256 / 8;
    std::uint64_t bytes = headers + words;
    double bitsPerPosition = 8.0 * static_cast<double>(bytes) / static_cast<double>(positions);
};

// "2^27" or "134217728".
std::uint64_t parsePositions(const std::string& text) {
    const bool power = text.rfind("2^", 0) == 0;
    const std::string digits = power ? text.substr(2) : text;
    const bool number =
        !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
    if (!number || digits.size() > 18) throw Unusable("\"" + text + "\" is no number of positions");
    const std::uint64_t value = std::stoull(digits);
    if (!power) return value;
    return value > 63 ? 0 : std::uint64_t{1} << value;
}

Size sizeOf(const std::string& text) {
    const std::uint64_t positions = parsePositions(text);
    const bool powerOfTwo = positions != 0 && (positions & (positions - 1)) == 0;
    if (!powerOfTwo || positions < 1ULL << kSmallest || positions > 1ULL << kLargest) {
        throw Refused("a bitmap has a power of two of positions, from 2^" +
                      std::to_string(kSmallest) + " to 2^" + std::to_string(kLargest) + ", not " +
                      text);
    }
    return Size{positions};
}

std::string readable(std::uint64_t bytes) {
    static const char* const kUnits[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; value >= 1024 && unit + 1 < std::size(kUnits); ++unit) value /= 1024;
    char text[32];
    std::snprintf(text, sizeof(text), "%.2f %s", value, kUnits[unit]);
    return text;
}

void printText(const Size& size) {
    char bits[16];
    std::snprintf(bits, sizeof(bits), "%.3f", size.bitsPerPosition);
    std::cout << "positions          " << size.positions << '\n'
              << "tops               " << size.tops << '\n'
              << "blocks             " << size.blocks << '\n'
              << "bytes in headers   " << size.headers << '\n'
              << "bytes in words     " << size.words << '\n'
              << "bytes              " << size.bytes << " (" << readable(size.bytes) << ")\n"
              << "bits per position  " << bits << '\n';
}

ordered_json asJson(const Size& size) {
    return {{"positions", size.positions},
            {"tops", size.tops},
            {"blocks", size.blocks},
            {"header_bytes", size.headers},
            {"word_bytes", size.words},
            {"bytes", size.bytes},
            {"bits_per_position", size.bitsPerPosition}};
}

struct Options {
    std::string positions;
    bool json = false;
};

void addSize(CLI::App& bitmap) {
    CLI::App* const size =
        bitmap.add_subcommand("size", "Print the memory that eb_init takes for N positions");
    const auto options = std::make_shared<Options>();
    size->add_option("N", options->positions, "A power of two: 2^27 to 2^50, or written out")
        ->required();
    size->add_flag("--json", options->json, "Print JSON");
    size->footer(kExample);
    size->callback([options] {
        const Size found = sizeOf(options->positions);
        if (options->json) {
            printJson(asJson(found));
        } else {
            printText(found);
        }
    });
}

}  // namespace

void addBitmapCommand(CLI::App& app) {
    CLI::App* const bitmap = app.add_subcommand("bitmap", "What a bitmap costs");
    bitmap->require_subcommand(1);
    bitmap->footer(kExample);
    addSize(*bitmap);
}

}  // namespace tarnutil_command
