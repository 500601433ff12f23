// SPDX-License-Identifier: Apache-2.0
#include "verifier.h"

#include <initializer_list>

namespace tarnutil_test {
namespace {

constexpr unsigned kLeafWords = 16;
constexpr unsigned kSummaryWords = 8;
constexpr unsigned kAuxWords = 4;
constexpr std::uint32_t kNoTop = 0xFFFFFFFF;

std::uint32_t topCount(const eb_t* eb) { return 1U << eb->top_shift; }
std::uint32_t auxCount(const eb_t* eb) { return topCount(eb) / 256; }

bool empty(const eb_l1_t& rec) { return rec.min == 0xFFFF; }
bool empty(const eb_top_t& top) { return top.min == 0xFFFFFFFF; }

bool inWords(const eb_l1_t& rec, unsigned bit) {
    return (rec.words[bit / 64] >> bit % 64 & 1) != 0;
}
bool holds(const eb_l1_t& rec, unsigned bit) {
    return !empty(rec) && (bit == rec.min || inWords(rec, bit));
}

// The first failed check of several, each a condition and what its failure says.
struct Check {
    bool good;
    const char* says;
};
const char* firstFailed(std::initializer_list<Check> checks) {
    for (const Check& check : checks) {
        if (!check.good) return check.says;
    }
    return nullptr;
}

// The bits of word `w` that lie above `min` and not above `max`.
std::uint64_t allowedBits(const eb_l1_t& rec, unsigned w) {
    const unsigned first = rec.min + 1U;
    const unsigned end = rec.max + 1U;
    const unsigned from = first > w * 64 ? first - w * 64 : 0;
    const unsigned to = end > w * 64 ? end - w * 64 : 0;
    const auto upTo = [](unsigned n) { return n >= 64 ? ~0ULL : (1ULL << n) - 1; };
    return upTo(to) & ~upTo(from);
}

const char* brokenRecord(const eb_l1_t& rec, unsigned wordCount) {
    if (empty(rec)) {
        std::uint64_t any = 0;
        for (unsigned w = 0; w < wordCount; ++w) any |= rec.words[w];
        return firstFailed({{rec.max == 0, "an empty record has a maximum"},
                            {any == 0, "an empty record has bits in its words"}});
    }
    if (rec.min > rec.max || rec.max >= wordCount * 64)
        return "a record's extremes are out of order";
    for (unsigned w = 0; w < wordCount; ++w) {
        if ((rec.words[w] & ~allowedBits(rec, w)) != 0)
            return "a record has bits beyond its extremes";
    }
    if (rec.max != rec.min && !inWords(rec, rec.max))
        return "a record's maximum is not in its words";
    return nullptr;
}

const char* brokenLeaf(const eb_top_t& top, unsigned l) {
    if (const char* says = brokenRecord(top.leaves[l], kLeafWords)) return says;
    if (holds(top.summary, l) == empty(top.leaves[l]))
        return "a leaf's mark does not tell its content";
    return nullptr;
}

// Everything of a top but its leaves.
const char* brokenTop(const eb_top_t& top) {
    if (const char* says = brokenRecord(top.summary, kSummaryWords)) return says;
    if (empty(top)) {
        return firstFailed({{top.max == 0 || top.max == 0xFFFFFFFF, "an empty top has a maximum"},
                            {empty(top.summary), "an empty top has leaves"}});
    }
    if (top.min > top.max || top.max > 0x7FFFF) return "a top's extremes are out of order";
    if (empty(top.summary)) return top.min == top.max ? nullptr : "a top lacks its maximum below";
    const eb_l1_t& first = top.leaves[top.summary.min];
    const eb_l1_t& last = top.leaves[top.summary.max];
    return firstFailed(
        {{top.summary.min * 1024U + first.min > top.min, "a top's minimum is in its leaves"},
         {top.summary.max * 1024U + last.max == top.max, "a top's maximum is not the last below"}});
}

const char* brokenMark(const eb_t* eb, std::uint32_t t) {
    const bool marked = holds(eb->top_aux[t / 256], t % 256);
    const bool expected = !empty(eb->tops[t]) && t != eb->min_top;
    return marked == expected ? nullptr : "a top's mark does not tell its content";
}

const char* brokenHandle(const eb_t* eb) {
    if (eb->min_top == kNoTop) {
        return eb->max_top == 0 || eb->max_top == kNoTop ? nullptr
                                                         : "a largest top without a smallest";
    }
    if (eb->min_top > eb->max_top || eb->max_top >= topCount(eb))
        return "the tops are out of order";
    return firstFailed(
        {{!empty(eb->tops[eb->min_top]), "the smallest top is empty"},
         {!empty(eb->tops[eb->max_top]), "the largest top is empty"},
         {eb->max_top == eb->min_top || eb->top_aux[eb->max_top / 256].max == eb->max_top % 256,
          "the largest top is not the last of its record"}});
}

}  // namespace

const char* brokenAlong(const eb_t* eb, std::uint64_t pos) {
    const auto t = static_cast<std::uint32_t>(pos / (512 * 1024));
    const eb_top_t& top = eb->tops[t];
    if (const char* says = brokenHandle(eb)) return says;
    if (const char* says = brokenRecord(eb->top_aux[t / 256], kAuxWords)) return says;
    if (const char* says = brokenMark(eb, t)) return says;
    if (const char* says = brokenTop(top)) return says;
    return brokenLeaf(top, static_cast<unsigned>(pos / 1024 % 512));
}

const char* brokenInTop(const eb_t* eb, std::uint32_t t) {
    if (const char* says = brokenMark(eb, t)) return says;
    if (const char* says = brokenTop(eb->tops[t])) return says;
    for (unsigned l = 0; l < 512; ++l) {
        if (const char* says = brokenLeaf(eb->tops[t], l)) return says;
    }
    return nullptr;
}

const char* brokenAnywhere(const eb_t* eb) {
    if (const char* says = brokenHandle(eb)) return says;
    for (std::uint32_t r = 0; r < auxCount(eb); ++r) {
        if (const char* says = brokenRecord(eb->top_aux[r], kAuxWords)) return says;
    }
    for (std::uint32_t t = 0; t < topCount(eb); ++t) {
        if (const char* says = brokenInTop(eb, t)) return says;
    }
    return nullptr;
}

std::vector<std::uint64_t> positionsInTop(const eb_t* eb, std::uint64_t t) {
    const eb_top_t& top = eb->tops[t];
    std::vector<std::uint64_t> found;
    if (!empty(top)) found.push_back(t * 512 * 1024 + top.min);
    for (unsigned l = 0; l < 512; ++l) {
        if (empty(top.leaves[l])) continue;
        for (unsigned bit = 0; bit < 1024; ++bit) {
            if (holds(top.leaves[l], bit)) found.push_back((t * 512 + l) * 1024 + bit);
        }
    }
    return found;
}

std::vector<std::uint64_t> positionsInTops(const eb_t* eb) {
    std::vector<std::uint64_t> found;
    for (std::uint64_t t = 0; t < topCount(eb); ++t) {
        const std::vector<std::uint64_t> own = positionsInTop(eb, t);
        found.insert(found.end(), own.begin(), own.end());
    }
    return found;
}

}  // namespace tarnutil_test
