// SPDX-License-Identifier: Apache-2.0
// Long random runs of a bitmap beside its model, over ranges and places that differ in what they
// meet.
//
// Each run prints its seed; TARNUTIL_TEST_SEED=<seed> repeats it.
#include <gmock/gmock.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "../../examples/member_from.h"
#include "checked.h"
#include "random.h"
#include "rounds.h"

using namespace tarnutil_test;

namespace {

constexpr std::uint64_t kBit = 1;
constexpr std::uint64_t kLeaf = 1024;
constexpr std::uint64_t kTop = 512 * kLeaf;
constexpr std::uint64_t kAux = 256 * kTop;
constexpr std::uint64_t k32 = std::uint64_t{1} << 32;

struct Dimension {
    std::uint64_t count;
    std::uint64_t step;
};

// The positions first + i * step + j * step + ..., each index below the count of its dimension.
struct Place {
    const char* says;
    unsigned exponent;
    unsigned steps;
    std::uint64_t first;
    std::array<Dimension, 4> dimensions;
};

// clang-format off
const Place kPlaces[] = {
    // says                                   2^k  steps    first                          positions
    {"dense in one leaf",                     27,  800000,  3 * kTop + 5 * kLeaf,          {{{1024, kBit}}}},
    {"a few of one leaf",                     27,  600000,  3 * kTop + 5 * kLeaf + 60,     {{{7, kBit}}}},
    {"dense in the first leaf of all",        27,  600000,  0,                             {{{1024, kBit}}}},
    {"across the leaves of one top",          27,  800000,  7 * kTop,                      {{{512, kLeaf}, {3, 511 * kBit}}}},
    {"dense in a few leaves of two tops",     27,  800000,  7 * kTop,                      {{{2, kTop}, {3, kLeaf}, {1024, kBit}}}},
    {"the first of the first",                27,  800000,  0,                             {{{2, kTop}, {2, kLeaf}, {2, kBit}}}},
    {"a few of each level",                   27,  800000,  kTop - kLeaf,                  {{{3, kTop}, {3, kLeaf}, {3, kBit}}}},
    {"across all tops",                       27,  800000,  0,                             {{{256, kTop}, {2, kLeaf}, {2, kBit}}}},
    {"anywhere in 2^27",                      27,  800000,  0,                             {{{256 * kTop, kBit}}}},
    {"the end of 2^27",                       27,  600000,  kAux - 2 * kTop,               {{{2, kTop}, {2, 511 * kLeaf}, {2, 1023 * kBit}}}},
    {"across both records of tops",           28,  800000,  0,                             {{{512, kTop}, {2, 700 * kBit}}}},
    {"a few tops of both records",            28,  800000,  0,                             {{{2, 256 * kTop}, {4, kTop}, {3, 1000 * kBit}}}},
    {"a few tops of many records",            33,  800000,  0,                             {{{64, kAux}, {3, 127 * kTop}, {2, kBit}}}},
    {"around 2^32",                           33,  800000,  k32 - 2 * kTop,                {{{4, kTop}, {3, 400 * kLeaf}, {3, kBit}}}},
    {"tops that fold onto each other",        33,  800000,  0,                             {{{2, k32}, {3, kTop}, {2, kLeaf}, {3, kBit}}}},
    {"two tops that fold onto each other",    33,  600000,  0,                             {{{2, k32}, {2, kTop}, {2, kBit}}}},
    {"the end of 2^33",                       33,  600000,  2 * k32 - 2 * kAux,            {{{512, kTop}, {2, kTop - 1}}}},
};
// clang-format on

// What a phase of a run does, in parts of 100: the rest looks for the next member.
struct Mix {
    unsigned set, isSet, clear, clearTop;
};
constexpr Mix kMixes[] = {
    {50, 10, 20, 0},  // fill
    {15, 10, 55, 0},  // drain
    {35, 10, 35, 5},
    {30, 5, 30, 15},
};
constexpr unsigned kPhaseSteps = 2000;
constexpr unsigned kRestoreSteps = 100000;  // the run begins anew
constexpr unsigned kQuicklyRead = 30;       // larger ranges are compared whole at the end only

// TARNUTIL_EFFORT multiplies the steps.
unsigned effort() {
    const char* const given = std::getenv("TARNUTIL_EFFORT");
    return given == nullptr ? 1 : static_cast<unsigned>(std::strtoul(given, nullptr, 10));
}

std::uint64_t anyOf(const Place& place, Random& random) {
    std::uint64_t pos = place.first;
    for (const Dimension& d : place.dimensions) {
        if (d.count > 0) pos += random.upTo(d.count - 1) * d.step;
    }
    return pos;
}

class RandomRun {
public:
    explicit RandomRun(const Place& where)
        : place(where), bitmap(sharedPristine(place.exponent)), checked(bitmap) {}

    // Says what was wrong after `done` steps, or null.
    const char* go(unsigned steps) {
        for (done = 0; done < steps; ++done) {
            if (done % kPhaseSteps == 0) mix = kMixes[below(std::size(kMixes))];
            if (done % kRestoreSteps == kRestoreSteps - 1) {
                const bool whole = place.exponent <= kQuicklyRead;
                if (const char* says = whole ? checked.checkAll() : nullptr) return says;
                checked = CheckedBitmap(bitmap);
            }
            if (const char* says = checked.apply(operation(), position())) return says;
        }
        return checked.checkAll();
    }

    unsigned done = 0;

private:
    std::uint64_t below(std::uint64_t count) { return random.upTo(count - 1); }

    EbOperation operation() {
        const std::uint64_t roll = below(100);
        if (roll < mix.set) return EbOperation::set;
        if (roll < mix.set + mix.isSet) return EbOperation::isSet;
        if (roll < mix.set + mix.isSet + mix.clear) return EbOperation::clear;
        if (roll < mix.set + mix.isSet + mix.clear + mix.clearTop) return EbOperation::clearTop;
        return EbOperation::findNext;
    }

    // Mostly any position of the place; now and then an extreme of the set.
    std::uint64_t position() {
        const std::uint64_t roll = below(16);
        if (roll == 0 && checked.get()->min != EbModel::kNone) return checked.get()->min;
        if (roll == 1) return checked.get()->max;
        return anyOf(place, random);
    }

    const Place& place;
    Random random;
    PristineBitmap& bitmap;
    CheckedBitmap checked;
    Mix mix = kMixes[0];
};

class EbRandomTest : public testing::TestWithParam<Place> {};
INSTANTIATE_TEST_SUITE_P(All, EbRandomTest, testing::ValuesIn(kPlaces));

TEST_P(EbRandomTest, AnswersAndHoldsWhatTheModelDoes) {
    std::cout << GetParam().says << '\n';
    RandomRun run(GetParam());
    const char* const wrong = run.go(inRounds(GetParam().steps) * effort());
    EXPECT_EQ(wrong, nullptr) << wrong << ", at step " << run.done;
}

// The loop of examples/bitmap_visit.c. Promoted minimums are members too, so nothing is cleared
// here.
TEST_P(EbRandomTest, TheVisitingLoopFindsEveryMember) {
    const Place& place = GetParam();
    Random random;
    PristineBitmap& bitmap = sharedPristine(place.exponent);
    for (const unsigned count : {1U, 2U, 3U, 5U, 20U, 100U, 1000U}) {
        bitmap.restore();
        std::set<std::uint64_t> members;
        for (unsigned i = 0; i < count; ++i) {
            const std::uint64_t pos = anyOf(place, random);
            members.insert(pos);
            eb_set(bitmap.get(), pos);
        }
        std::vector<std::uint64_t> visited;
        for (std::uint64_t pos = member_from(bitmap.get(), 0);
             pos != MEMBER_NONE && visited.size() <= count;
             pos = member_from(bitmap.get(), pos + 1)) {
            visited.push_back(pos);
        }
        EXPECT_THAT(visited, testing::ElementsAreArray(members.begin(), members.end()));
    }
}

TEST(EbRandomRunsTest, TheRunsAddUpToTenMillionSteps) {
    unsigned steps = 0;
    for (const Place& place : kPlaces) steps += place.steps;
    EXPECT_GE(steps, 10'000'000U);
}

}  // namespace
