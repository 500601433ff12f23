// SPDX-License-Identifier: Apache-2.0
#include "model.h"

#include <algorithm>
#include <iterator>

namespace tarnutil_test {
namespace {

using Position = EbModel::Position;

constexpr Position k32 = Position{1} << 32;
constexpr EbModel::Extremes kEmptyRecord{0xFFFF, 0};

Position topOf(Position p) { return p / EbModel::kTop; }
Position leafOf(Position p) { return p % EbModel::kTop / EbModel::kLeaf; }
Position topStart(Position p) { return p - p % EbModel::kTop; }
Position leafStart(Position p) { return p - p % EbModel::kLeaf; }

}  // namespace

// ---- What follows from the set ----

bool EbModel::topHolds(Position t) const {
    const Iterator first = tops.lower_bound(t * kTop);
    return first != tops.end() && topOf(*first) == t;
}

Position EbModel::firstOf(Position t) const { return *tops.lower_bound(t * kTop); }
Position EbModel::lastOf(Position t) const { return *std::prev(tops.lower_bound((t + 1) * kTop)); }

Position EbModel::minTop() const { return tops.empty() ? k32 - 1 : topOf(*tops.begin()); }

Position EbModel::maxTop() const {
    if (tops.empty()) return allOnesMaxTop ? k32 - 1 : 0;
    return topOf(*tops.rbegin());
}

EbModel::Extremes EbModel::top(Position t) const {
    if (!topHolds(t)) return {k32 - 1, allOnesMax.count(t) != 0 ? k32 - 1 : 0};
    return {firstOf(t) % kTop, lastOf(t) % kTop};
}

// The first and the last position from `from` up to but not including `to`, both in one top,
// without the smallest of that top; {kNone, 0} if there is none.
EbModel::Extremes EbModel::inLeaves(Position from, Position to) const {
    Iterator first = tops.lower_bound(from);
    if (first == tops.end() || *first >= to) return {kNone, 0};
    if (*first == firstOf(topOf(from))) ++first;
    if (first == tops.end() || *first >= to) return {kNone, 0};
    return {*first, *std::prev(tops.lower_bound(to))};
}

EbModel::Extremes EbModel::leaf(Position t, Position l) const {
    const Position from = t * kTop + l * kLeaf;
    const Extremes found = inLeaves(from, from + kLeaf);
    return found.first == kNone ? kEmptyRecord
                                : Extremes{found.first % kLeaf, found.second % kLeaf};
}

EbModel::Extremes EbModel::summary(Position t) const {
    const Extremes found = inLeaves(t * kTop, (t + 1) * kTop);
    return found.first == kNone ? kEmptyRecord
                                : Extremes{leafOf(found.first), leafOf(found.second)};
}

// The first top from `from` up to but not including `to` that holds something and is not the
// smallest; kNone if there is none.
Position EbModel::secondTopFrom(Position from, Position to) const {
    const Position start = tops.empty() ? from : std::max(from, minTop() + 1);
    const Iterator first = tops.lower_bound(start * kTop);
    return first == tops.end() || topOf(*first) >= to ? kNone : topOf(*first);
}

EbModel::Extremes EbModel::aux(Position record) const {
    const Position first = secondTopFrom(record * kAux, (record + 1) * kAux);
    if (first == kNone) return kEmptyRecord;
    const Position last = topOf(*std::prev(tops.lower_bound((record + 1) * kAux * kTop)));
    return {first % kAux, last % kAux};
}

// ---- The operations ----

bool EbModel::isSet(Position p) const {
    return smallest != kNone && (p == smallest || tops.count(p) != 0);
}

void EbModel::set(Position p) {
    if (smallest == kNone) {
        smallest = largest = p;
        return;
    }
    if (p == smallest) return;
    if (p < smallest) std::swap(p, smallest);
    tops.insert(p);
    allOnesMax.erase(topOf(p));
    allOnesMaxTop = false;
    largest = std::max(largest, p);
}

// What clearing the absent position `p` of an empty top leaves behind.
void EbModel::markCleared(Position p) {
    if (p % kTop == 0) allOnesMax.insert(topOf(p));
    if (tops.empty() && topOf(p) == 0) allOnesMaxTop = true;
}

void EbModel::clear(Position p) {
    if (smallest == kNone) return;
    if (p == smallest) {
        if (p == largest || tops.empty()) {
            smallest = kNone;
            largest = 0;
            return;
        }
        p = smallest = *tops.begin();
    }
    if (!topHolds(topOf(p))) markCleared(p);
    tops.erase(p);
    if (p == largest) largest = tops.empty() ? smallest : *tops.rbegin();
}

void EbModel::clearTop(Position p) {
    if (smallest == kNone) return;
    const Position removed = topStart(p) % k32;
    const bool takesSmallest = topStart(smallest) % k32 == removed;
    const bool takesLargest = topStart(largest) % k32 == removed;
    const bool hadTops = !tops.empty();
    if (hadTops) {
        tops.erase(tops.lower_bound(topStart(p)), tops.lower_bound(topStart(p) + kTop));
        allOnesMax.erase(topOf(p));
    }
    if (!tops.empty()) {
        if (takesSmallest) smallest = *tops.begin() % k32;
        if (takesLargest) largest = *tops.rbegin() % k32;
    } else if (takesSmallest) {
        smallest = kNone;
        largest = 0;
    } else if (hadTops) {
        largest = smallest;
    }
}

Position EbModel::findNext(Position p) const {
    if (p < smallest) return smallest;
    if (p >= largest) return kNone;
    const bool reached = topHolds(topOf(p)) && p <= lastOf(topOf(p));
    return reached ? findNextInTop(p) : findNextTop();
}

// For a position not above the last of its top.
Position EbModel::findNextInTop(Position p) const {
    const Position base = topStart(p) % k32;
    const Position first = firstOf(topOf(p));
    if (p < first) return base + first % kTop;
    if (p == lastOf(topOf(p))) return base - 1;

    const Position l = leafOf(p);
    const Extremes own = inLeaves(leafStart(p), leafStart(p) + kLeaf);
    const Position next = *tops.upper_bound(p);
    if (own.first == kNone) return base + next % kLeaf;  // the start of its leaf is left out
    if (p >= own.second) return base + (l * kLeaf + k32 - 1) % k32;
    return base + l * kLeaf + next % kLeaf;
}

Position EbModel::findNextTop() const {
    if (tops.empty()) return kNone;
    if (minTop() == maxTop()) return *tops.begin();
    const Position t = secondTopFrom(0, topCount) % kAux + kAux;
    if (t >= topCount) return kNone;
    return t * kTop + (topHolds(t) ? firstOf(t) % kTop : k32 - 1);
}

}  // namespace tarnutil_test
