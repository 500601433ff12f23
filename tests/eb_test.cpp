// SPDX-License-Identifier: Apache-2.0
#include <tarnutil/eb.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <ostream>
#include <vector>

#include "../examples/member_from.h"
#include "eb/pristine.h"
#include "eb/verifier.h"

using namespace tarnutil_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Positions = std::vector<std::uint64_t>;

constexpr std::uint64_t kNone = UINT64_MAX;
constexpr std::uint64_t kLeaf = 1024;
constexpr std::uint64_t kTop = 512 * kLeaf;
constexpr std::uint64_t kAux = 256 * kTop;  // one record of top_aux
constexpr std::uint64_t k32 = std::uint64_t{1} << 32;

// A bitmap of 2^exponent positions that holds these; shared, so of use until the next call.
eb_t* holding(unsigned exponent, const Positions& members) {
    PristineBitmap& bitmap = sharedPristine(exponent);
    bitmap.restore();
    for (const std::uint64_t pos : members) eb_set(bitmap.get(), pos);
    return bitmap.get();
}

eb_t* holding(const Positions& members) { return holding(27, members); }

void expectEmpty(const eb_t* eb) {
    EXPECT_EQ(eb->min, kNone);
    EXPECT_EQ(eb->max, 0U);
}

// ---- eb_init and eb_free ----

// Keeps account of the calls, out of one piece of memory that is not zeroed. Releases nothing.
class Ledger {
public:
    struct Allocation {
        std::size_t bytes;
        void* block;
    };

    explicit Ledger(std::size_t failingCall = 0) : failing(failingCall) { memory().used = 0; }

    static void* alloc(void* ctx, std::size_t bytes) {
        auto* const self = static_cast<Ledger*>(ctx);
        const bool fails = self->allocations.size() + 1 == self->failing;
        self->allocations.push_back({bytes, fails ? nullptr : memory().take(bytes)});
        return self->allocations.back().block;
    }
    static void free(void* ctx, void* block) {
        static_cast<Ledger*>(ctx)->released.push_back(block);
    }

    // Leaves nothing of earlier tests in the memory.
    static void soil() { std::fill(memory().bytes.begin(), memory().bytes.end(), kSoil); }

    void* block(std::size_t call) const { return allocations[call - 1].block; }

    std::vector<Allocation> allocations;
    std::vector<void*> released;

private:
    static constexpr char kSoil = '\x5A';

    struct Memory {
        std::vector<char> bytes = std::vector<char>(40 << 20, kSoil);
        std::size_t used = 0;

        void* take(std::size_t count) {
            void* const block = bytes.data() + used;
            used += (count + 63) / 64 * 64;
            return used <= bytes.size() ? block : nullptr;
        }
    };
    static Memory& memory() {
        static Memory shared;
        return shared;
    }

    std::size_t failing;
};

eb_t* const kUntouched = reinterpret_cast<eb_t*>(0x5A);

struct Outcome {
    int result;
    eb_t* eb;
};

Outcome init(std::uint64_t n, Ledger& ledger) {
    Outcome outcome{0, kUntouched};
    outcome.result = eb_init(&outcome.eb, n, &ledger, Ledger::alloc, Ledger::free);
    return outcome;
}

struct SizeCase {
    const char* says;
    std::uint64_t n;
};
void PrintTo(const SizeCase& c, std::ostream* out) { *out << c.says; }

const SizeCase kBadSizes[] = {
    {"none", 0},
    {"one", 1},
    {"two", 2},
    {"a power of two too small", 1ULL << 26},
    {"a power of two too large", 1ULL << 51},
    {"the largest power of two of all", 1ULL << 63},
    {"no power of two", 3ULL << 27},
    {"one more than a power of two", (1ULL << 27) + 1},
    {"one less than a power of two", (1ULL << 28) - 1},
    {"everything", UINT64_MAX},
};
class EbBadSizeTest : public testing::TestWithParam<SizeCase> {};
INSTANTIATE_TEST_SUITE_P(All, EbBadSizeTest, testing::ValuesIn(kBadSizes));

TEST_P(EbBadSizeTest, IsRefusedBeforeAnythingIsTouched) {
    Ledger ledger;
    const Outcome outcome = init(GetParam().n, ledger);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.eb, kUntouched);
    EXPECT_THAT(ledger.allocations, IsEmpty());
    EXPECT_THAT(ledger.released, IsEmpty());
}

TEST(EbInitTest, TheSmallestRangeHas256TopsAndOneRecordOfThem) {
    Ledger ledger;
    const Outcome outcome = init(kAux, ledger);
    ASSERT_EQ(outcome.result, 0);
    const eb_t* eb = outcome.eb;
    EXPECT_EQ(eb, ledger.block(1));
    EXPECT_EQ(eb->tops, ledger.block(2));
    EXPECT_EQ(eb->top_aux, ledger.block(3));
    EXPECT_EQ(eb->top_shift, 8U);
    EXPECT_EQ(eb->min_top, 0xFFFFFFFFU);
    EXPECT_EQ(eb->max_top, 0U);
    EXPECT_EQ(eb->ctx, &ledger);
    EXPECT_EQ(eb->alloc, &Ledger::alloc);
    EXPECT_EQ(eb->free, &Ledger::free);
    expectEmpty(eb);
    EXPECT_EQ(brokenAnywhere(eb), nullptr);
    EXPECT_THAT(positionsInTops(eb), IsEmpty());
}

TEST(EbInitTest, TakesItsBlocksInOneOrder) {
    Ledger ledger;
    const eb_t* eb = init(kAux, ledger).eb;
    ASSERT_EQ(ledger.allocations.size(), 3U + 2 * 256 + 1);
    EXPECT_EQ(ledger.allocations[0].bytes, sizeof(eb_t));
    EXPECT_EQ(ledger.allocations[1].bytes, 256 * sizeof(eb_top_t));
    EXPECT_EQ(ledger.allocations[2].bytes, sizeof(eb_l1_t));
    for (std::size_t t = 0; t < 256; ++t) {
        EXPECT_EQ(ledger.allocations[3 + 2 * t].bytes, 64U);
        EXPECT_EQ(ledger.allocations[4 + 2 * t].bytes, 65536U);
        EXPECT_EQ(ledger.block(4 + 2 * t), eb->tops[t].summary.words);
        EXPECT_EQ(ledger.block(5 + 2 * t), eb->tops[t].leaves[0].words);
    }
    EXPECT_EQ(ledger.allocations.back().bytes, 32U);
    EXPECT_EQ(ledger.allocations.back().block, eb->top_aux[0].words);
    EXPECT_THAT(ledger.released, IsEmpty());
}

TEST(EbInitTest, LeavesFollowEachOtherInTheirBlock) {
    const eb_t* eb = holding({});
    for (std::size_t l = 0; l < 512; ++l) {
        EXPECT_EQ(eb->tops[7].leaves[l].words, eb->tops[7].leaves[0].words + 16 * l);
    }
}

TEST(EbInitTest, RecordsOfTopsFollowEachOtherInTheirBlock) {
    const eb_t* eb = holding(28, {});
    EXPECT_EQ(eb->top_shift, 9U);
    EXPECT_EQ(eb->top_aux[1].words, eb->top_aux[0].words + 4);
    EXPECT_EQ(eb->top_aux[1].min, 0xFFFF);
}

// The arrays are both asked for before either is looked at; every other failure is the last call.
TEST(EbInitTest, GivesBackTheHandleAloneWhicheverAllocationFails) {
    constexpr std::size_t kCalls = 3 + 2 * 256 + 1;
    for (std::size_t k = 1; k <= kCalls; ++k) {
        Ledger ledger(/*failingCall=*/k);
        const Outcome outcome = init(kAux, ledger);
        ASSERT_EQ(outcome.result, -1) << k;
        ASSERT_EQ(outcome.eb, nullptr) << k;
        ASSERT_EQ(ledger.allocations.size(), k == 2 ? 3 : k) << k;
        if (k == 1) {
            ASSERT_THAT(ledger.released, IsEmpty());
        } else {
            ASSERT_THAT(ledger.released, ElementsAre(ledger.block(1))) << k;
        }
    }
}

void expectEmptyWithoutWords(const eb_l1_t& record) {
    EXPECT_EQ(record.words, nullptr);
    EXPECT_EQ(record.min, 0xFFFF);
    EXPECT_EQ(record.max, 0);
}

// The allocator keeps the blocks of a failed attempt, and may look into them.
TEST(EbInitTest, TheRecordWhoseWordsAreRefusedReadsEmpty) {
    Ledger::soil();
    Ledger noSummary(/*failingCall=*/4);
    ASSERT_EQ(init(kAux, noSummary).result, -1);
    const auto* const top = static_cast<eb_top_t*>(noSummary.block(2));
    expectEmptyWithoutWords(top->summary);
    EXPECT_EQ(top->min, 0xFFFFFFFFU);
    EXPECT_EQ(top->max, 0U);
    const auto* const handle = static_cast<eb_t*>(noSummary.block(1));
    EXPECT_EQ(handle->ctx, nullptr);
    EXPECT_EQ(handle->alloc, nullptr);
    EXPECT_EQ(handle->free, nullptr);

    Ledger::soil();
    Ledger noLeaves(/*failingCall=*/5);
    ASSERT_EQ(init(kAux, noLeaves).result, -1);
    expectEmptyWithoutWords(static_cast<eb_top_t*>(noLeaves.block(2))->leaves[0]);

    Ledger::soil();
    Ledger noRecords(/*failingCall=*/3 + 2 * 256 + 1);
    ASSERT_EQ(init(kAux, noRecords).result, -1);
    expectEmptyWithoutWords(*static_cast<eb_l1_t*>(noRecords.block(3)));
}

TEST(EbInitTest, LargeRangesAskForTheirArraysInFull) {
    // Fails in the third call, so that nothing of that size is ever touched.
    struct LargeLedger : Ledger {
        using Ledger::Ledger;
        static void* alloc(void* ctx, std::size_t bytes) {
            auto* const self = static_cast<LargeLedger*>(ctx);
            self->allocations.push_back({bytes, bytes == sizeof(eb_t) ? self->handle : nullptr});
            return self->allocations.back().block;
        }
        alignas(16) char handle[sizeof(eb_t)];
    };
    LargeLedger ledger;
    eb_t* eb = kUntouched;
    EXPECT_EQ(
        eb_init(&eb, 1ULL << 50, static_cast<Ledger*>(&ledger), LargeLedger::alloc, Ledger::free),
        -1);
    ASSERT_EQ(ledger.allocations.size(), 3U);
    EXPECT_EQ(ledger.allocations[1].bytes, (std::size_t{1} << 31) * sizeof(eb_top_t));
    EXPECT_EQ(ledger.allocations[2].bytes, (std::size_t{1} << 23) * sizeof(eb_l1_t));
    EXPECT_THAT(ledger.released, ElementsAre(ledger.block(1)));
}

TEST(EbInitTest, TakesAllMemoryThatTheSetWillEverNeed) {
    Ledger ledger;
    eb_t* eb = init(kAux, ledger).eb;
    const std::size_t taken = ledger.allocations.size();
    for (const std::uint64_t step : {std::uint64_t{1}, kLeaf, kTop}) {
        for (std::uint64_t i = 200; i-- > 0;) eb_set(eb, i * step);
        for (std::uint64_t i = 0; i < 200; ++i) {
            (void)eb_is_set(eb, i * step);
            (void)eb_find_next(eb, i * step);
            if (i % 3 == 0) eb_clear(eb, i * step);
            if (i % 50 == 0) eb_clear_top(eb, i * step);
        }
    }
    EXPECT_EQ(ledger.allocations.size(), taken);
    EXPECT_THAT(ledger.released, IsEmpty());
}

TEST(EbFreeTest, ReleasesTopByTopThenTheArraysAndTheHandleLast) {
    Ledger ledger;
    eb_t* eb = init(kAux, ledger).eb;
    std::vector<void*> expected;
    for (std::size_t call = 4; call <= ledger.allocations.size(); ++call) {
        expected.push_back(ledger.block(call));
    }
    expected.insert(expected.end(), {ledger.block(2), ledger.block(3), ledger.block(1)});
    eb_free(eb);
    EXPECT_EQ(ledger.released, expected);
}

TEST(EbFreeTest, LeavesNoPointerToAReleasedBlockOfWords) {
    Ledger ledger;
    eb_t* eb = init(kAux, ledger).eb;
    eb_free(eb);  // the ledger's memory can still be read
    for (std::size_t t = 0; t < 256; ++t) {
        EXPECT_EQ(eb->tops[t].summary.words, nullptr);
        for (const eb_l1_t& leaf : eb->tops[t].leaves) ASSERT_EQ(leaf.words, nullptr);
    }
    EXPECT_EQ(eb->top_aux[0].words, nullptr);
}

TEST(EbFreeTest, LeavesNoPointerInLaterRecordsOfTops) {
    Ledger ledger;
    eb_t* eb = init(2 * kAux, ledger).eb;
    ASSERT_NE(eb->top_aux[1].words, nullptr);
    eb_free(eb);
    EXPECT_EQ(eb->top_aux[0].words, nullptr);
    EXPECT_EQ(eb->top_aux[1].words, nullptr);
}

// ---- eb_set and eb_is_set ----

TEST(EbSetTest, TheFirstMemberIsKeptInTheHandleAlone) {
    const eb_t* eb = holding({5 * kTop + 3});
    EXPECT_EQ(eb->min, 5 * kTop + 3);
    EXPECT_EQ(eb->max, 5 * kTop + 3);
    EXPECT_EQ(eb->min_top, 0xFFFFFFFFU);
    EXPECT_THAT(positionsInTops(eb), IsEmpty());
    EXPECT_EQ(eb_is_set(eb, 5 * kTop + 3), 1);
    EXPECT_EQ(eb_is_set(eb, 5 * kTop + 2), 0);
}

TEST(EbSetTest, ASmallerMemberPushesTheSmallestDown) {
    const eb_t* eb = holding({5 * kTop + 3, 9});
    EXPECT_EQ(eb->min, 9U);
    EXPECT_EQ(eb->max, 5 * kTop + 3);
    EXPECT_EQ(eb->min_top, 5U);
    EXPECT_EQ(eb->max_top, 5U);
    EXPECT_THAT(positionsInTops(eb), ElementsAre(5 * kTop + 3));
}

TEST(EbSetTest, EachLevelKeepsItsSmallestOutOfTheLevelBelow) {
    const eb_t* eb = holding({0, 2 * kTop + 7, 2 * kTop + 8, 2 * kTop + 9});
    const eb_top_t& top = eb->tops[2];
    EXPECT_EQ(top.min, 7U);
    EXPECT_EQ(top.max, 9U);
    EXPECT_EQ(top.summary.min, 0);
    EXPECT_EQ(top.summary.words[0], 0U);
    EXPECT_EQ(top.leaves[0].min, 8);
    EXPECT_EQ(top.leaves[0].max, 9);
    EXPECT_EQ(top.leaves[0].words[0], 1U << 9);
}

TEST(EbSetTest, ASmallerTopIsMarkedInTheHandleAndTheOldOneInItsRecord) {
    const eb_t* eb = holding({0, 9 * kTop, 4 * kTop});
    EXPECT_EQ(eb->min_top, 4U);
    EXPECT_EQ(eb->max_top, 9U);
    EXPECT_EQ(eb->top_aux[0].min, 9);
    EXPECT_EQ(eb->top_aux[0].max, 9);
}

TEST(EbSetTest, AMemberSetTwiceChangesNothing) {
    const Positions members = {3, 8 * kTop, 8 * kTop + 1, 8 * kTop + 5 * kLeaf,
                               8 * kTop + 5 * kLeaf + 1};
    eb_t* eb = holding(members);
    const Positions before = positionsInTops(eb);
    for (const std::uint64_t pos : members) EXPECT_EQ(eb_set(eb, pos), 0);
    EXPECT_EQ(positionsInTops(eb), before);
    EXPECT_EQ(eb->min, members.front());
    EXPECT_EQ(eb->max, members.back());
    EXPECT_EQ(brokenAnywhere(eb), nullptr);
}

TEST(EbIsSetTest, AnEmptySetHoldsNothing) {
    const eb_t* eb = holding({});
    for (const std::uint64_t pos : {std::uint64_t{0}, kTop, kAux - 1})
        EXPECT_EQ(eb_is_set(eb, pos), 0);
}

// ---- eb_clear ----

TEST(EbClearTest, TheOnlyMemberLeavesAnEmptySet) {
    eb_t* eb = holding({kTop});
    eb_clear(eb, kTop);
    expectEmpty(eb);
    EXPECT_EQ(eb_is_set(eb, kTop), 0);
}

TEST(EbClearTest, AnEmptySetIsLeftAlone) {
    eb_t* eb = holding({});
    eb_clear(eb, 0);
    expectEmpty(eb);
    EXPECT_EQ(eb->tops[0].max, 0U);
    EXPECT_EQ(eb->max_top, 0U);
}

TEST(EbClearTest, TheSmallestOfTheSmallestTopMovesUpAndOutOfItsTop) {
    eb_t* eb = holding({1, 6 * kTop + 2, 6 * kTop + 2 * kLeaf, 7 * kTop});
    eb_clear(eb, 1);
    EXPECT_EQ(eb->min, 6 * kTop + 2);
    EXPECT_EQ(eb->tops[6].min, 2 * kLeaf);
    EXPECT_THAT(positionsInTops(eb), ElementsAre(6 * kTop + 2 * kLeaf, 7 * kTop));
    EXPECT_EQ(brokenAnywhere(eb), nullptr);
}

TEST(EbClearTest, TheLargestIsLookedForAnewInEveryLevel) {
    eb_t* eb = holding({1, 2 * kTop, 2 * kTop + 5, 2 * kTop + 9 * kLeaf, 200 * kTop});
    eb_clear(eb, 200 * kTop);
    EXPECT_EQ(eb->max, 2 * kTop + 9 * kLeaf);
    EXPECT_EQ(eb->max_top, 2U);
    eb_clear(eb, 2 * kTop + 9 * kLeaf);
    EXPECT_EQ(eb->max, 2 * kTop + 5);
    EXPECT_EQ(eb->tops[2].summary.max, 0);
    eb_clear(eb, 2 * kTop + 5);
    EXPECT_EQ(eb->max, 2 * kTop);
    EXPECT_EQ(eb->tops[2].max, 0U);
    EXPECT_EQ(eb->tops[2].min, 0U);
    eb_clear(eb, 2 * kTop);
    EXPECT_EQ(eb->max, 1U);
    EXPECT_EQ(eb->min_top, 0xFFFFFFFFU);
}

TEST(EbClearTest, TheLargestTopIsLookedForInLowerRecords) {
    eb_t* eb = holding(28, {0, 3 * kTop, 5 * kTop, 300 * kTop});
    eb_clear(eb, 300 * kTop);
    EXPECT_EQ(eb->max_top, 5U);
    eb_clear(eb, 5 * kTop);
    EXPECT_EQ(eb->max_top, 3U);
}

TEST(EbClearTest, ThePositionsThatAreNotThereChangeNothing) {
    const Positions members = {1, 4 * kTop + 7, 4 * kTop + 9, 9 * kTop};
    eb_t* eb = holding(members);
    for (const std::uint64_t pos :
         {std::uint64_t{0}, kTop, 4 * kTop, 4 * kTop + 8, 4 * kTop + kLeaf}) {
        eb_clear(eb, pos);
    }
    EXPECT_THAT(positionsInTops(eb), ElementsAre(4 * kTop + 7, 4 * kTop + 9, 9 * kTop));
    EXPECT_EQ(brokenAnywhere(eb), nullptr);
}

TEST(EbClearTest, OffsetZeroOfAnEmptyTopMarksItsMaximum) {
    eb_t* eb = holding({1, 4 * kTop});
    eb_clear(eb, 3 * kTop + 1);
    EXPECT_EQ(eb->tops[3].max, 0U);
    eb_clear(eb, 3 * kTop);
    EXPECT_EQ(eb->tops[3].min, 0xFFFFFFFFU);
    EXPECT_EQ(eb->tops[3].max, 0xFFFFFFFFU);
    EXPECT_EQ(eb_is_set(eb, 3 * kTop), 0);
    eb_set(eb, 3 * kTop + 5);
    EXPECT_EQ(eb->tops[3].min, 5U);
    EXPECT_EQ(eb->tops[3].max, 5U);
}

TEST(EbClearTest, TopZeroWhileThereIsNoTopMarksTheLargestTop) {
    eb_t* eb = holding({kTop});
    eb_clear(eb, 2 * kTop + 7);
    EXPECT_EQ(eb->max_top, 0U);
    eb_clear(eb, 7);
    EXPECT_EQ(eb->min_top, 0xFFFFFFFFU);
    EXPECT_EQ(eb->max_top, 0xFFFFFFFFU);
    EXPECT_EQ(eb_is_set(eb, 7), 0);
    eb_set(eb, 2 * kTop);
    EXPECT_EQ(eb->min_top, 2U);
    EXPECT_EQ(eb->max_top, 2U);
}

// ---- eb_clear_top ----

TEST(EbClearTopTest, EmptiesTheTopOfThePosition) {
    eb_t* eb = holding(
        {1, 4 * kTop, 4 * kTop + 5, 4 * kTop + 9 * kLeaf, 4 * kTop + 9 * kLeaf + 1, 6 * kTop});
    eb_clear_top(eb, 4 * kTop + 77);
    EXPECT_THAT(positionsInTops(eb), ElementsAre(6 * kTop));
    EXPECT_EQ(eb->min, 1U);
    EXPECT_EQ(eb->max, 6 * kTop);
    EXPECT_EQ(eb->min_top, 6U);
    EXPECT_EQ(brokenAnywhere(eb), nullptr);
}

TEST(EbClearTopTest, AnEmptySetIsLeftAlone) {
    eb_t* eb = holding({});
    eb_clear_top(eb, 0);
    expectEmpty(eb);
}

TEST(EbClearTopTest, TheOnlyMemberGoesWithItsTopAndNoOther) {
    eb_t* eb = holding({4 * kTop + 5});
    eb_clear_top(eb, 3 * kTop);
    EXPECT_EQ(eb_is_set(eb, 4 * kTop + 5), 1);
    eb_clear_top(eb, 4 * kTop);
    expectEmpty(eb);
}

TEST(EbClearTopTest, TheLastTopLeavesTheSmallestAsTheLargest) {
    eb_t* eb = holding({1, 4 * kTop, 4 * kTop + 1});
    eb_clear_top(eb, 4 * kTop);
    EXPECT_EQ(eb->min, 1U);
    EXPECT_EQ(eb->max, 1U);
}

TEST(EbClearTopTest, TheLastTopTakesASmallestOfItsOwnAlong) {
    eb_t* eb = holding({4 * kTop, 4 * kTop + 1});
    eb_clear_top(eb, 4 * kTop);
    expectEmpty(eb);
    EXPECT_EQ(eb->min_top, 0xFFFFFFFFU);
}

TEST(EbClearTopTest, TheLargestIsTheLastOfTheTopsThatRemain) {
    eb_t* eb = holding({1, 4 * kTop, 5 * kTop + 3, 5 * kTop + 8, 9 * kTop});
    eb_clear_top(eb, 9 * kTop);
    EXPECT_EQ(eb->max, 5 * kTop + 8);
    EXPECT_EQ(eb->max_top, 5U);
}

TEST(EbClearTopTest, ThePromotedMinimumStaysInItsTop) {
    eb_t* eb = holding({5, kTop + 7});
    eb_clear_top(eb, 0);
    EXPECT_EQ(eb->min, kTop + 7);
    EXPECT_EQ(eb->max, kTop + 7);
    EXPECT_THAT(positionsInTops(eb), ElementsAre(kTop + 7));
}

TEST(EbClearTopTest, APromotedMinimumSurvivesItsFirstRemoval) {
    eb_t* eb = holding({5, kTop + 7, kTop + 8});
    eb_clear_top(eb, 0);
    eb_clear(eb, kTop + 7);
    EXPECT_EQ(eb_is_set(eb, kTop + 7), 1);
    eb_clear(eb, kTop + 7);
    EXPECT_EQ(eb_is_set(eb, kTop + 7), 0);
}

TEST(EbClearTopTest, APromotedOnlyMemberComesBackWithTheNextOne) {
    eb_t* eb = holding({5, kTop + 7});
    eb_clear_top(eb, 0);
    eb_clear(eb, kTop + 7);
    EXPECT_EQ(eb_is_set(eb, kTop + 7), 0);
    eb_set(eb, 9 * kTop);
    EXPECT_EQ(eb_is_set(eb, kTop + 7), 1);
}

// Holds 2^19 + 7, left in its top while the set was empty, and then `pos`.
eb_t* holdingOneThatCameBackAnd(std::uint64_t pos) {
    eb_t* eb = holding({5, kTop + 7});
    eb_clear_top(eb, 0);
    eb_clear(eb, kTop + 7);
    eb_set(eb, pos);
    return eb;
}

TEST(EbClearTopTest, AMemberThatComesBackMayLieAboveTheMaximum) {
    const eb_t* eb = holdingOneThatCameBackAnd(3);
    EXPECT_EQ(eb->min, 3U);
    EXPECT_EQ(eb->max, 3U);
    EXPECT_EQ(eb_is_set(eb, kTop + 7), 1);
    EXPECT_EQ(eb_find_next(eb, 3), kNone);
    EXPECT_EQ(member_from(eb, 4), MEMBER_NONE);
}

TEST(EbClearTopTest, AMemberThatComesBackMayLieBelowTheMinimum) {
    const eb_t* eb = holdingOneThatCameBackAnd(9 * kTop);
    EXPECT_EQ(eb->min, 9 * kTop);
    EXPECT_EQ(eb->max, 9 * kTop);
    EXPECT_EQ(eb_is_set(eb, kTop + 7), 1);
    EXPECT_EQ(eb_find_next(eb, 0), 9 * kTop);
    EXPECT_EQ(member_from(eb, 0), 9 * kTop);
}

// ---- eb_find_next ----

struct NextCase {
    const char* says;
    Positions members;
    std::uint64_t pos;
    std::uint64_t answer;
};

// The member 0 keeps the others in their tops.
// clang-format off
const NextCase kNextCases[] = {
    // says                                                  members                                        after                  answer
    {"an empty set has none",                                {},                                            0,                     kNone},
    {"an empty set has none, even after the last",           {},                                            kAux - 1,              kNone},
    {"below the smallest comes the smallest",                {70, 80},                                      9,                     70},
    {"after the largest comes nothing",                      {70, 80},                                      80,                    kNone},
    {"beyond the largest comes nothing",                     {70, 80},                                      kAux - 1,              kNone},
    {"the smallest of a top is found from below",            {0, 3 * kTop + 9, 3 * kTop + 11},              3 * kTop + 2,          3 * kTop + 9},
    {"the smallest of a leaf is found from the top's",       {0, 3 * kTop + 9, 3 * kTop + 11},              3 * kTop + 9,          3 * kTop + 11},
    {"the next in the same word",                            {0, 3 * kTop, 3 * kTop + 1, 3 * kTop + 5, 4 * kTop}, 3 * kTop + 1,    3 * kTop + 5},
    {"the next in a later word",                             {0, 3 * kTop, 3 * kTop + 1, 3 * kTop + 900, 4 * kTop}, 3 * kTop + 1,  3 * kTop + 900},
    {"from the last bit of a word",                          {0, 3 * kTop, 3 * kTop + 63, 3 * kTop + 64, 4 * kTop}, 3 * kTop + 63, 3 * kTop + 64},
    {"from a position that is no member",                    {0, 3 * kTop, 3 * kTop + 1, 3 * kTop + 70, 4 * kTop}, 3 * kTop + 66,  3 * kTop + 70},
};
const NextCase kLargestOfTopCases[] = {
    {"one below the top",                                    {0, 3 * kTop + 9, 5 * kTop},                   3 * kTop + 9,          3 * kTop - 1},
    {"all-ones for top 0",                                   {0, 9, 5 * kTop},                              9,                     kNone},
};
const NextCase kLargestOfLeafCases[] = {
    {"at the largest of a leaf",                             {0, 3 * kTop, 3 * kTop + 2 * kLeaf + 5, 3 * kTop + 4 * kLeaf},
                                                                                          3 * kTop + 2 * kLeaf + 5,                3 * kTop + 2 * kLeaf - 1},
    {"above it",                                             {0, 3 * kTop, 3 * kTop + 2 * kLeaf + 5, 3 * kTop + 4 * kLeaf},
                                                                                          3 * kTop + 2 * kLeaf + 9,                3 * kTop + 2 * kLeaf - 1},
    {"2^32 - 1 above the top for leaf 0",                    {0, 3 * kTop, 3 * kTop + 5, 3 * kTop + 4 * kLeaf},
                                                                                          3 * kTop + 5,                            3 * kTop + 0xFFFFFFFF},
};
const NextCase kNextLeafCases[] = {
    {"an empty leaf in front of the others",                 {0, 3 * kTop, 3 * kTop + 4 * kLeaf + 6},                              3 * kTop + 1 * kLeaf, 3 * kTop + 6},
    {"an empty leaf between others",                         {0, 3 * kTop, 3 * kTop + 4 * kLeaf, 3 * kTop + 8 * kLeaf + 6},        3 * kTop + 5 * kLeaf, 3 * kTop + 6},
    {"the smallest of the top alone in its leaf",            {0, 3 * kTop + 3, 3 * kTop + 4 * kLeaf + 6},                          3 * kTop + 3,         3 * kTop + 6},
    {"a value above the position that is no member",         {0, 3 * kTop + 3, 3 * kTop + 4 * kLeaf + 600},                        3 * kTop + 3,         3 * kTop + 600},
};
const NextCase kNextTopCases[] = {
    {"the only top, from below",                             {0, 5 * kTop + 1},                             3 * kTop,              5 * kTop + 1},
    {"the only top, from below it in its own record",        {0, 300 * kTop + 1},                           299 * kTop,            300 * kTop + 1},
    {"the second top gives the number within the record",    {0, 3 * kTop + 1, 5 * kTop + 1, 261 * kTop + 8}, 4 * kTop,            261 * kTop + 8},
    {"a top of the second record gives its own number",      {0, 3 * kTop + 1, 261 * kTop + 8, 262 * kTop}, 4 * kTop,              261 * kTop + 8},
    {"2^32 - 1 above an empty top",                          {0, 3 * kTop + 1, 5 * kTop + 1, 400 * kTop},   4 * kTop,              261 * kTop + 0xFFFFFFFF},
    {"the search starts at the smallest top",                {0, 3 * kTop + 1, 5 * kTop + 1, 261 * kTop + 8, 400 * kTop}, 399 * kTop, 261 * kTop + 8},
};
// clang-format on

// In 2^28 positions: two records of tops.
void expectAnswers(const NextCase& c) {
    EXPECT_EQ(eb_find_next(holding(28, c.members), c.pos), c.answer) << c.says;
}

TEST(EbFindNextTest, WithinALeafTheAnswerIsTheNextMember) {
    for (const NextCase& c : kNextCases) expectAnswers(c);
}
TEST(EbFindNextTest, TheLargestOfATopAnswersThePositionBeforeTheTop) {
    for (const NextCase& c : kLargestOfTopCases) expectAnswers(c);
}
TEST(EbFindNextTest, TheLargestOfALeafAnswersThePositionBeforeTheLeaf) {
    for (const NextCase& c : kLargestOfLeafCases) expectAnswers(c);
}
TEST(EbFindNextTest, TheNextLeafComesWithoutItsOffset) {
    for (const NextCase& c : kNextLeafCases) expectAnswers(c);
}
TEST(EbFindNextTest, TheNextTopIsLookedForInTheSecondRecord) {
    for (const NextCase& c : kNextTopCases) expectAnswers(c);
}

// ---- Positions at and above 2^32 ----

TEST(EbFoldTest, SettingTestingAndClearingDoNotFold) {
    eb_t* eb = holding(33, {1, k32 + 1, k32 + kTop, 2 * k32 - 1});
    EXPECT_EQ(eb_is_set(eb, k32 + 1), 1);
    EXPECT_EQ(eb_is_set(eb, kTop), 0);
    EXPECT_EQ(eb->max, 2 * k32 - 1);
    eb_clear(eb, 1);
    EXPECT_EQ(eb->min, k32 + 1);
    eb_clear(eb, 2 * k32 - 1);
    EXPECT_EQ(eb->max, k32 + kTop);
}

TEST(EbFoldTest, FindNextAnswersWithinATopInTheLow32Bits) {
    const eb_t* eb =
        holding(33, {1, k32 + 3 * kTop, k32 + 3 * kTop + 9, k32 + 3 * kTop + 12, 2 * k32 - 1});
    EXPECT_EQ(eb_find_next(eb, k32 + 3 * kTop), 3 * kTop + 9);
    EXPECT_EQ(eb_find_next(eb, k32 + 3 * kTop + 9), 3 * kTop + 12);
    EXPECT_EQ(eb_find_next(eb, k32 + 3 * kTop + 12), 3 * kTop - 1);
}

TEST(EbFoldTest, FindNextAnswersAllOnesAtTheLargestOfTheTopAt2To32) {
    EXPECT_EQ(eb_find_next(holding(33, {1, k32 + 9, 2 * k32 - 1}), k32 + 9), kNone);
}

TEST(EbFoldTest, FindNextAnswersAnotherTopInFull) {
    EXPECT_EQ(eb_find_next(holding(33, {1, k32 + 9}), 2), k32 + 9);
}

TEST(EbFoldTest, ClearTopFoldsTheNewSmallest) {
    eb_t* eb = holding(33, {5, k32 + kTop + 7, 2 * k32 - 1});
    eb_clear_top(eb, 0);
    EXPECT_EQ(eb->min, kTop + 7);
    EXPECT_EQ(eb_is_set(eb, kTop + 7), 1);
    EXPECT_EQ(eb_is_set(eb, k32 + kTop + 7), 1);
}

TEST(EbFoldTest, ClearTopFoldsTheNewLargest) {
    eb_t* eb = holding(33, {5, k32 + kTop + 7, k32 + 2 * kTop});
    eb_clear_top(eb, k32 + 2 * kTop);
    EXPECT_EQ(eb->max, kTop + 7);
    EXPECT_EQ(eb->max_top, 8192U + 1);
}

TEST(EbFoldTest, ClearTopTakesAMemberOfAnotherTopForOneOfItsOwn) {
    eb_t* only = holding(33, {kTop + 5});
    eb_clear_top(only, k32 + kTop);
    expectEmpty(only);

    eb_t* smallest = holding(33, {kTop + 5, k32 + kTop, k32 + 3 * kTop});
    eb_clear_top(smallest, k32 + kTop);
    EXPECT_EQ(smallest->min, 3 * kTop);
}

// ---- Legal states from which the search would leave the arrays ----

TEST(EbBoundsTest, TheNextTopOfOneRecordIsNeverThere) {
    EXPECT_EQ(eb_find_next(holding(27, {0, 3 * kTop, 5 * kTop}), 4 * kTop), kNone);
}

// The set {5}, whose largest member reads 2^19 + 7: min < max, and no top holds anything.
eb_t* withALargestMemberThatIsNowhere() {
    eb_t* eb = holding(33, {5, k32 + kTop + 7, k32 + 2 * kTop + 9});
    eb_clear_top(eb, k32 + 2 * kTop);  // folds the largest to 2^19 + 7
    eb_clear(eb, k32 + kTop + 7);      // takes the last of the tops
    return eb;
}

TEST(EbBoundsTest, FoldingCanLeaveALargestMemberThatIsNowhere) {
    const eb_t* eb = withALargestMemberThatIsNowhere();
    EXPECT_EQ(eb->min, 5U);
    EXPECT_EQ(eb->max, kTop + 7);
    EXPECT_EQ(eb->min_top, 0xFFFFFFFFU);
}

TEST(EbBoundsTest, ClearingTheSmallestWithNothingBelowLeavesAnEmptySet) {
    eb_t* eb = withALargestMemberThatIsNowhere();
    eb_clear(eb, 5);
    expectEmpty(eb);
}

TEST(EbBoundsTest, TheNextWithNothingBelowIsNone) {
    EXPECT_EQ(eb_find_next(withALargestMemberThatIsNowhere(), 5), kNone);
}

TEST(EbBoundsTest, TheNextWithNothingBelowIsNoneAlsoWhenBothTopsReadAllOnes) {
    eb_t* eb = withALargestMemberThatIsNowhere();
    eb_clear(eb, 0);
    EXPECT_EQ(eb->min_top, eb->max_top);
    EXPECT_EQ(eb_find_next(eb, 5), kNone);
}

}  // namespace
